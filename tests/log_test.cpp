// Every entity log line goes through one macro: priority and tag from the framework's tables and
// a fixed-width prefix with the writing function's signature and line.
#include <gtest/gtest.h>

#include "core/log.h"
#include "support/log_capture.h"

static int shortest() {
    RLOGI("done\n");
    return __LINE__ - 1;
}

namespace {

int a_function_with_a_rather_long_name(int value) {
    RLOGE("value = %d", value);
    return __LINE__ - 1;
}

TEST(LogTest, PrefixCarriesSignatureCutTo24AndLine) {
    LogCapture logs;
    int line = a_function_with_a_rather_long_name(7);
    int shortLine = shortest();
    auto lines = logs.lines();
    ASSERT_EQ(lines.size(), 2u);
    char expected[128];
    snprintf(expected, sizeof(expected), " (int {anonymous}::a_funct, %4d) value = 7", line);
    EXPECT_EQ(lines[0].text, expected);
    // Short signatures are right-aligned in their 24 columns.
    snprintf(expected, sizeof(expected), " (          int shortest(), %4d) done\n", shortLine);
    EXPECT_EQ(lines[1].text, expected);
    EXPECT_EQ(lines[1].message, "done\n");
}

TEST(LogTest, LevelsAndTagComeFromFrameworkTables) {
    LogCapture logs;
    a_function_with_a_rather_long_name(1);
    shortest();
    auto lines = logs.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].prio, android_log_prio[1]);
    EXPECT_EQ(lines[1].prio, android_log_prio[8]);
    EXPECT_EQ(lines[0].tag, android_log_tag[8]);
    EXPECT_EQ(lines[1].tag, android_log_tag[8]);
    EXPECT_NE(android_log_prio[1], android_log_prio[8]);
}

}  // namespace
