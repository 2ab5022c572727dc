// Every entity log line goes through one macro: a fixed-width prefix with the signature the
// writing function logs under, and the line.
#include "core/log.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

static int shortest() {
    ZOK_LOG_AS("int shortest()");
    RLOGI("done\n");
    return __LINE__ - 1;
}

namespace {

// A helper in an anonymous namespace writes under the function it works for: the prefix is that
// function's signature in clang's spelling, whichever compiler built this.
int a_helper_of_the_reader(int value) {
    ZOK_LOG_AS(kSigCmdRespThread);
    RLOGE("value = %d", value);
    return __LINE__ - 1;
}

// Priority and tag are pinned by the golden transcript and notify_test; these are the prefix's
// columns, which the transcripts mask.
TEST(LogTest, SignatureCutOrRightAlignedAndLineNumber) {
    LogCapture logs;
    const int line = a_helper_of_the_reader(7), shortLine = shortest();
    char expected[2][128];
    snprintf(expected[0], 128, " (void *rilproxy_cmd_resp_, %4d) value = 7", line);
    snprintf(expected[1], 128, " (          int shortest(), %4d) done\n", shortLine);
    std::vector<std::string> texts;
    for (const LogLine &l : logs.lines()) texts.push_back(l.text);
    EXPECT_EQ(texts, std::vector<std::string>(expected, expected + 2));
}

}  // namespace
