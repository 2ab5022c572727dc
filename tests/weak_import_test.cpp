// The entity's weak import of android::ProcessState::initWithDriver, exercised in a child process
// (weak_import_probe) against two host binder libraries with the same soname: one with the
// function, one without. Where it is absent the entity must still load and init must skip it.
#include <gtest/gtest.h>

#include <string>

#include "support/child_process.h"

namespace {

TEST(WeakImportTest, InitCallsInitWithDriverOnlyWhereTheBinderLibraryHasIt) {
    const struct {
        const char *binder;
        bool present;
    } cases[] = {{ZOK_BINDER_WITH_INIT, true}, {ZOK_BINDER_WITHOUT_INIT, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.binder);
        Outcome r =
            ChildProcess(ZOK_TEST_EMULATOR, ZOK_WEAK_IMPORT_PROBE, {c.binder, ZOK_ENTITY_SO})
                .wait();
        ASSERT_EQ(r.exitCode(), 0) << r.err;
        // The probe's first line is the address the loader bound; "(nil)" guards the test itself:
        // the child really loaded the intended library.
        std::vector<std::string> lines = r.outLines();
        ASSERT_GE(lines.size(), 3u) << r.out;
        const std::string address = lines[0].substr(lines[0].rfind(' ') + 1);
        ASSERT_EQ(address != "(nil)", c.present) << lines[0];
        // A log record's message follows the prefix's ") "; "\n" in it is written as \\n.
        auto message = [&](size_t i) { return lines[i].substr(lines[i].find(") ") + 2); };
        EXPECT_EQ(message(1), "before call initWithDriver\\n");
        EXPECT_EQ(message(2), "init_fp = " + address);
        EXPECT_EQ(r.out.find(") after call initWithDriver\n") != std::string::npos, c.present);
        EXPECT_EQ(lines.back(), "init returned 21");
    }
}

}  // namespace
