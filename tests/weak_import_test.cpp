// The entity's weak import of android::ProcessState::initWithDriver, exercised in a child process
// (weak_import_probe) against two host binder libraries with the same soname: one with the
// function, one without. Where it is absent the entity must still load and init must skip it.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct ProbeRun {
    int status = -1;
    std::string binderAddress;      // dlsym's answer in the child, as %p prints it
    std::vector<std::string> logs;  // messages after the " (%24.24s, %4d) " prefix
    std::string initReturned;
};

std::vector<std::string> split(const std::string &text, char separator) {
    std::vector<std::string> parts;
    std::stringstream in(text);
    std::string part;
    while (std::getline(in, part, separator)) {
        if (!part.empty()) parts.push_back(part);
    }
    return parts;
}

// The probe is a program of the build's own architecture, so under emulation it is started
// through the same emulator command line that runs this test.
ProbeRun runProbe(const std::string &binder) {
    std::vector<std::string> args = split(ZOK_TEST_EMULATOR, '|');
    args.push_back(ZOK_WEAK_IMPORT_PROBE);
    args.push_back(binder);
    args.push_back(ZOK_ENTITY_SO);
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);

    ProbeRun run;
    int out[2];
    if (pipe(out) != 0) return run;
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], STDOUT_FILENO);
        close(out[0]);
        close(out[1]);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(out[1]);
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(out[0], buf, sizeof(buf))) > 0) text.append(buf, static_cast<size_t>(n));
    close(out[0]);
    if (pid > 0) waitpid(pid, &run.status, 0);

    static const std::regex kPrefix("^ \\(.{24}, [ 0-9-]{4,}\\) ");
    for (const std::string &line : split(text, '\n')) {
        const std::string kBinder = "binder initWithDriver ";
        const std::string kLog = "log ";
        const std::string kInit = "init returned ";
        if (line.compare(0, kBinder.size(), kBinder) == 0) {
            run.binderAddress = line.substr(kBinder.size());
        } else if (line.compare(0, kInit.size(), kInit) == 0) {
            run.initReturned = line.substr(kInit.size());
        } else if (line.compare(0, kLog.size(), kLog) == 0) {
            std::string message = line.substr(kLog.size());
            std::smatch m;
            if (std::regex_search(message, m, kPrefix)) message = m.suffix();
            run.logs.push_back(message);
        }
    }
    return run;
}

int indexOf(const std::vector<std::string> &logs, const std::string &message) {
    for (size_t i = 0; i < logs.size(); i++) {
        if (logs[i] == message) return static_cast<int>(i);
    }
    return -1;
}

TEST(WeakImportTest, InitCallsInitWithDriverOnlyWhereTheBinderLibraryHasIt) {
    struct Case {
        const char *name;
        const char *binder;
        bool hasInitWithDriver;
    };
    const Case cases[] = {
        {"present", ZOK_BINDER_WITH_INIT, true},
        {"absent", ZOK_BINDER_WITHOUT_INIT, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        ProbeRun run = runProbe(c.binder);
        ASSERT_TRUE(WIFEXITED(run.status) && WEXITSTATUS(run.status) == 0)
            << "probe status " << run.status << " (its stderr is above)";
        // Guards the test itself: the child really loaded the intended library.
        ASSERT_EQ(run.binderAddress != "(nil)", c.hasInitWithDriver) << run.binderAddress;

        // The texts below are the probe's "log " records with "\n" spelled out.
        int before = indexOf(run.logs, "before call initWithDriver\\n");
        int fp = indexOf(run.logs, "init_fp = " + run.binderAddress);
        int after = indexOf(run.logs, "after call initWithDriver");
        EXPECT_EQ(before, 0);
        EXPECT_EQ(fp, 1) << "the entity saw another address than the loader bound";
        if (c.hasInitWithDriver) {
            EXPECT_EQ(after, 2);
        } else {
            EXPECT_EQ(after, -1);
        }
        EXPECT_EQ(run.initReturned, "21");
    }
}

}  // namespace
