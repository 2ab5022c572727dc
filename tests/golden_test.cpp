// Whole log transcripts of representative flows, compared line for line with the files in
// tests/golden/: any drift in a log line's prefix, level or text, or in the order of the lines,
// shows up as a diff. Each flow runs rilproxy-host (the real shared object) against its simulated
// daemon in a child process, so the teardown can end that process.
//
// What varies from run to run is masked before the comparison: line numbers (", ####)"),
// descriptors ("fd = #", "socket (#)") and pointers ("0x#").
//
// After an intended change of the log lines, rewrite the files and review the diff:
//     ZOK_UPDATE_GOLDEN=1 out/native/tests/golden_test
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include "support/child_process.h"

namespace {

const std::string kGoldenDir = std::string(ZOK_SOURCE_DIR) + "/tests/golden/";

std::string masked(const std::string &log) {
    static const struct {
        std::regex pattern;
        const char *replacement;
    } kMasks[] = {
        {std::regex(R"((ZOK_RILPROXY:  \(.{24}, ) *[0-9]+\) )"), "$1####) "},
        {std::regex(R"(fd = [0-9]+)"), "fd = #"},
        {std::regex(R"(socket \([0-9]+\))"), "socket (#)"},
        {std::regex(R"(0x[0-9a-fA-F]+)"), "0x#"},
    };
    std::string out = log;
    for (const auto &m : kMasks) out = std::regex_replace(out, m.pattern, m.replacement);
    return out;
}

std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(GoldenTest, LogTranscriptsOfRepresentativeFlows) {
#ifdef ZOK_RUNNER_NOT_BUILT
    GTEST_SKIP() << "tools not built (ZOK_BUILD_TOOLS=OFF)";
#endif
    const char *setup =
        "post EVENT_SETUP_DATA_CALL_REQ size=704 str=0:16 str=128:0 str=256:ims i32=644:2 "
        "i32=648:1\n";
    const struct {
        const char *name;
        std::string script;
    } flows[] = {
        {"startup_connect", "connect\nwait EVENT_RILPROXY_CONNECT\n"},
        // The simulated daemon refuses the TLV form; the plain request follows and is decoded.
        {"setup_tlv_refused", std::string(setup) + "wait EVENT_SETUP_DATA_CALL_RESP\n"},
        {"data_call_list", "sim unsol data-call-list\nwait 4021\n"},
        // A bearer with QoS and a TFT: the packet-filter lines belong to readTftStructFromParcel.
        {"dedicated_bearer",
         "post EVENT_SETUP_DEDICATE_DATA_CALL_REQ size=3956 i32=0:7 i32=4:1 i32=8:1 i32=32:1 "
         "i32=36:1 i32=40:128 i32=44:128 i32=48:128 i32=52:128\n"
         "wait EVENT_SETUP_DEDICATE_DATA_CALL_RESP\n"},
        {"teardown", "connect\nwait EVENT_RILPROXY_CONNECT\nsim close\n"},
    };
    const bool update = getenv("ZOK_UPDATE_GOLDEN") != nullptr;
    for (const auto &flow : flows) {
        SCOPED_TRACE(flow.name);
        Outcome r =
            ChildProcess(ZOK_RUNNER_EMULATOR, std::string(ZOK_BINARY_DIR) + "/tools/rilproxy-host",
                         {"--sim"}, flow.script)
                .wait();
        ASSERT_EQ(r.exitCode(), 0) << r.err;
        const std::string path = kGoldenDir + flow.name + ".log";
        const std::string transcript = masked(r.err);
        if (update) {
            std::ofstream(path, std::ios::binary) << transcript;
            continue;
        }
        EXPECT_EQ(transcript, readFile(path)) << "after an intended change: ZOK_UPDATE_GOLDEN=1 "
                                              << "tests/golden_test";
    }
}

}  // namespace
