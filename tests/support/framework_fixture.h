// A fixture for unit tests that run entity code against the host framework: each test starts
// from a clean framework and property store, and ends by releasing its context `t` (answering and
// freeing what its pool holds) and checking that every event was freed exactly once.
//
//     class PoolTest : public FrameworkTest {};
//     TEST_F(PoolTest, Answers) {
//         t.reset(new TestContext(/*with_task=*/true));
//         ...
//         EXPECT_EQ(delivered(4), "reply 9 4006 8 [00 00 00 00]");
//     }
#ifndef ZOK_TESTS_FRAMEWORK_FIXTURE_H
#define ZOK_TESTS_FRAMEWORK_FIXTURE_H

#include <cutils/properties_host.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "support/bytes.h"
#include "support/test_context.h"
#include "vopa_host.h"

class FrameworkTest : public ::testing::Test {
protected:
    void SetUp() override {
        vopa_host::reset();
        property_host_reset();
    }
    void TearDown() override {
        t.reset();
        EXPECT_TRUE(vopa_host::wait_no_live_events(2000));
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
    }
    // Every delivery since the last call, as "<kind> <to> <id> <size> [first `n` bytes]", joined
    // by "; ".
    static std::string delivered(size_t n) {
        std::string out;
        for (const vopa_host::Delivery &d : vopa_host::deliveries()) {
            out += (out.empty() ? "" : "; ") + std::string(vopa_host::kind_name(d.kind)) + " " +
                   std::to_string(d.to) + " " + std::to_string(d.id) + " " +
                   std::to_string(d.data.size()) + " [" +
                   hex(d.data.data(), std::min(n, d.data.size())) + "]";
        }
        vopa_host::clear_deliveries();
        return out;
    }
    std::unique_ptr<TestContext> t;
};

#endif  // ZOK_TESTS_FRAMEWORK_FIXTURE_H
