// Every entity log line goes through one macro: priority and tag from the framework's tables and
// a fixed-width prefix with the writing function's signature and line.
#include "core/log.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

static int shortest() {
    RLOGI("done\n");
    return __LINE__ - 1;
}

// File-static rather than in an anonymous namespace, which gcc and clang spell differently.
static int a_function_with_a_rather_long_name(int value) {
    RLOGE("value = %d", value);
    return __LINE__ - 1;
}

namespace {

TEST(LogTest, PrefixLevelAndTag) {
    ASSERT_NE(android_log_prio[1], android_log_prio[8]);
    LogCapture logs;
    const int line = a_function_with_a_rather_long_name(7), shortLine = shortest();
    auto lines = logs.lines();
    ASSERT_EQ(lines.size(), 2u);
    // The signature is cut to 24 columns, or right-aligned in them.
    char expected[2][128];
    snprintf(expected[0], 128, " (int a_function_with_a_ra, %4d) value = 7", line);
    snprintf(expected[1], 128, " (          int shortest(), %4d) done\n", shortLine);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(lines[i].text, expected[i]);
        EXPECT_EQ(lines[i].prio, android_log_prio[i == 0 ? 1 : 8]);
        EXPECT_EQ(lines[i].tag, android_log_tag[8]);
    }
    EXPECT_EQ(lines[1].message, "done\n");
}

}  // namespace
