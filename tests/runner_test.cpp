// The host runner and the simulated daemon as their users run them: rilproxy-host (with the real
// shared object) and rild-sim are started as child processes with scripts, and their stdout,
// stderr and exit statuses are checked; the script parser, the capture files (pcapng) and the
// relaying tools' frame splitter are checked in-process. What the simulated daemon answers and
// sends is pinned by the dissector's field dumps and the golden transcript.
//
// The golden transcript is the whole log of representative flows, compared line for line with
// tests/golden/representative_flows.log: any drift in a log line's prefix, level or text, or in
// the order of the lines, shows up as a diff. What varies from run to run is masked first: line
// numbers (", ####)"), descriptors ("fd = #", "socket (#)") and pointers ("0x#"). After an
// intended change of the log lines, rewrite the file and review the diff:
//     ZOK_UPDATE_GOLDEN=1 out/native/tests/runner_test --gtest_filter='*Golden*'
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/child_process.h"
#include "support/socket_dir.h"
#include "tools/capture/pcapng.h"
#include "tools/runner/script.h"

namespace {

const std::string kTools = std::string(ZOK_BINARY_DIR) + "/tools/";

Outcome runner(const std::vector<std::string> &args, const std::string &script) {
    return ChildProcess(ZOK_RUNNER_EMULATOR, kTools + "rilproxy-host", args, script).wait();
}

// Each item is found in `text` after the one before.
void expectInOrder(const std::string &text, const std::vector<std::string> &items) {
    size_t at = 0;
    for (const std::string &item : items) {
        size_t found = text.find(item, at);
        ASSERT_NE(found, std::string::npos) << "missing or out of order: " << item << "\n" << text;
        at = found + 1;
    }
}

class RunnerTest : public testing::Test {
protected:
    void SetUp() override {
#ifdef ZOK_RUNNER_NOT_BUILT
        GTEST_SKIP() << "tools not built (ZOK_BUILD_TOOLS=OFF)";
#endif
    }
};

// rilproxy-host with its own simulated daemon: the exit status, stderr and stdout in order, and
// what must not show because the run stopped before it.
TEST_F(RunnerTest, RunsEndWithTheirStatusAndOutput) {
    const struct {
        const char *name;
        std::vector<std::string> args;
        std::string script;
        int exitCode;
        std::vector<std::string> err, out, absent;  // `absent` from stdout and stderr both
    } cases[] = {
        // Validated whole before the entity is even loaded.
        {"script error",
         {"--sim"},
         "connect\n\nbogus 1\n",
         2,
         {"rilproxy-host: <stdin>: line 3: unknown command 'bogus'\n"},
         {},
         {"RILPROXY Version"}},
        // The daemon fails the deactivation with its own code as the status; the first wait sees
        // the error reply, the second has nothing new to see.
        {"wait timeout",
         {"--sim", "--format", "json", "--quiet"},
         "sim fail 41 2\npost 4005 i32=0:5 i32=4:2\nwait EVENT_DEACTIVATE_DATA_CALL_RESP\n"
         "wait 4006 300\npost 4032 i32=0:1\n",
         1,
         {"line 4: wait 4006 (EVENT_DEACTIVATE_DATA_CALL_RESP): nothing delivered within 300 ms"},
         {R"({"kind":"tx","type":"response","serial":512,"result":2,"sim_id":0,"length":24,)"
          R"("data":"","mono_us":)",
          R"({"kind":"reply","id":4006,"name":"EVENT_DEACTIVATE_DATA_CALL_RESP","to":1,"len":8,)"
          R"("data":"0200000000000000","fields":{"status":2},"mono_us":)"},
         {"\"request_id\":23"}},
        // The configured socket name serves both sides; the entity's exit_group passes status 0.
        // (The teardown's log lines are the golden transcript's.)
        {"sim close",
         {"--sim", "--prop", "vendor.ril.zok.socket=zok-other"},
         "sim close\npost 4032 i32=0:1\n",
         0,
         {"connect the rild (zok-other) by property", "ZOK will be re-started: exit\n"},
         {"/zok-other\n",
          "entity -> bcast EVENT_RILPROXY_STATE_IND(3008), 4 bytes: state 1 (closed)\n"},
         {"ZOK will be re-started: exit done", "EVENT_RADIO_POWER_REQ"}},
        // Held answers let 40 requests overflow the 32-slot pool: 8 replies come from the full
        // pool, and no other until the release. The failed wait makes the status 1.
        {"sim hold",
         {"--sim", "--interactive"},
         [] {
             std::string script = "sim hold\n";
             for (int i = 0; i < 40; i++) script += "post EVENT_RADIO_POWER_REQ i32=0:1\n";
             for (int i = 0; i < 8; i++) script += "wait 4034\n";
             return script + "wait 4034 300\nsim release\nwait 4034\n";
         }(),
         1,
         {"event pool is full",
          "line 50: wait 4034 (EVENT_RADIO_POWER_RESP): nothing delivered within 300 ms"},
         {"entity -> reply EVENT_RADIO_POWER_RESP(4034) to requester 1, 8 bytes: status 2\n",
          "rild -> response serial",
          "EVENT_RADIO_POWER_RESP(4034) to requester 1, 8 bytes: status 0"},
         {}},
        // The set-up goes out as TLV, is refused, and is answered in its plain form.
        {"demo",
         {"--sim", "--quiet", std::string(ZOK_SOURCE_DIR) + "/examples/demo.script"},
         "",
         0,
         {},
         {"rild -> response serial 0x40000200 result 6, 0 bytes: not supported",
          "rild <- RIL_REQUEST_SETUP_DATA_CALL(27) serial 0x300 sim 0",
          "entity -> reply EVENT_SETUP_DATA_CALL_RESP(4004) to requester 1, 47876 bytes: status 0, "
          "cid 1 active 2 status 0 IPV4V6 rmnet_data0 10.0.0.2 2001:db8::2 dns "
          "8.8.8.8,2001:4860:4860::8888 gw 10.0.0.1 mtu 1400\n",
          "entity -> reply EVENT_PCSCF_DISCOVERY_PCO_RESP(4016) to requester 1, 264 bytes: status "
          "0, pcscf 10.0.0.10,2001:db8::10\n",
          "entity -> reply EVENT_MODIFY_DATA_CALL_RESP(4010) to requester 1, 3964 bytes: status 0 "
          "bearer 0 of 1, cid 2 primary 1 bearer 6 active 1 qos 1/256/256/256/256 tft op 1 "
          "filters 1 [10.0.0.9 proto 17 local 50000-50010 remote 30000-30010] pcscf 10.0.0.10\n",
          "entity -> reply EVENT_RILPROXY_ATCMD_RESP(3004) to requester 1, 4120 bytes: token "
          "0x1234 status 0 \"OK\\r\\n\"\n",
          "entity -> reply EVENT_DEACTIVATE_DATA_CALL_RESP(4006) to requester 1, 8 bytes: status "
          "0\n",
          "entity -> bcast EVENT_RILPROXY_STATE_IND(3008), 4 bytes: state 1 (closed)\n"},
         {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Outcome r = runner(c.args, c.script);
        EXPECT_EQ(r.exitCode(), c.exitCode) << r.err;
        expectInOrder(r.err, c.err);
        expectInOrder(r.out, c.out);
        for (const std::string &a : c.absent)
            EXPECT_EQ((r.out + r.err).find(a), std::string::npos) << a;
    }
}

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

// Start-up and connect; the simulated daemon refuses the TLV set-up, the plain request follows
// and is decoded; a bearer with QoS and a TFT (the packet-filter lines belong to
// readTftStructFromParcel); the unsolicited list; then the daemon closes.
TEST_F(RunnerTest, GoldenLogTranscriptOfRepresentativeFlows) {
    Outcome r = runner({"--sim"},
                       "connect\nwait EVENT_RILPROXY_CONNECT\n"
                       "post EVENT_SETUP_DATA_CALL_REQ size=704 str=0:16 str=128:0 str=256:ims "
                       "i32=644:2 i32=648:1\nwait EVENT_SETUP_DATA_CALL_RESP\n"
                       "post EVENT_SETUP_DEDICATE_DATA_CALL_REQ size=3956 i32=0:7 i32=4:1 i32=8:1 "
                       "i32=32:1 i32=36:1 i32=40:128 i32=44:128 i32=48:128 i32=52:128\n"
                       "wait EVENT_SETUP_DEDICATE_DATA_CALL_RESP\n"
                       "sim unsol data-call-list\nwait 4021\nsim close\n");
    ASSERT_EQ(r.exitCode(), 0) << r.err;
    const std::string path = kGoldenDir + "representative_flows.log";
    if (getenv("ZOK_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(path, std::ios::binary) << masked(r.err);
        return;
    }
    EXPECT_EQ(masked(r.err), readFile(path)) << "after an intended change: ZOK_UPDATE_GOLDEN=1 "
                                             << "runner_test";
}

// Blocks until a tool in another process listens at `path`.
void waitForSocket(const std::string &path) {
    struct stat st;
    for (int i = 0; i < 1000 && stat(path.c_str(), &st) != 0; i++) usleep(20000);
    ASSERT_EQ(stat(path.c_str(), &st), 0) << "nobody listens on " << path;
}

// The events the entity delivered (JSON lines) without their times, and without the daemon's
// lines and the echoes of posted events (an AT record holds a pointer).
std::vector<std::string> deliveries(const Outcome &r) {
    std::vector<std::string> out;
    for (const std::string &line : r.outLines()) {
        bool other = false;
        for (const char *kind : {"rx", "tx", "rild", "post"}) {
            other |= line.rfind(std::string("{\"kind\":\"") + kind + "\"", 0) == 0;
        }
        if (!other) out.push_back(std::regex_replace(line, std::regex(",\"mono_us\":[0-9]+"), ""));
    }
    return out;
}

std::vector<capture::Packet> readCapture(const std::string &path) {
    std::vector<capture::Packet> packets;
    std::string error;
    EXPECT_TRUE(capture::readFile(path, &packets, &error)) << error;
    return packets;
}

// rild-sim in a process of its own, listening in `dir` under `name` once this returns.
std::unique_ptr<ChildProcess> startSim(const ScopedSocketDir &dir, std::vector<std::string> args,
                                       const std::string &name = "rild-zok") {
    args.insert(args.begin(), {"--socket-dir", dir.path(), "--accept-timeout", "30000"});
    auto sim = std::make_unique<ChildProcess>(ZOK_RUNNER_EMULATOR, kTools + "rild-sim", args);
    waitForSocket(dir.path() + "/" + name);
    return sim;
}

TEST_F(RunnerTest, ReplayOfTheDemoCaptureDeliversTheSameEvents) {
    ScopedSocketDir dir;
    const std::string demo = std::string(ZOK_SOURCE_DIR) + "/examples/demo.script";
    const std::string cap = dir.path() + "/demo.pcapng";
    const std::vector<std::string> entity = {"--socket-dir", dir.path(), "--quiet", "--format",
                                             "json"};
    Outcome original = runner({"--sim", "--quiet", "--format", "json", "--capture", cap, demo}, "");
    ASSERT_EQ(original.exitCode(), 0) << original.err;

    // The demo's framework side: the daemon's commands are the capture's business now, and the
    // end of the run is the replayed close.
    std::ifstream in(demo);
    std::string line, script = "wait EVENT_RILPROXY_STATE_IND 20000\n";
    while (std::getline(in, line)) {
        if (line.rfind("sim unsol", 0) == 0) continue;
        script += line.rfind("sim close", 0) == 0 ? "wait EVENT_RILPROXY_STATE_IND" : line;
        script += "\n";
    }
    auto daemon = startSim(dir, {"--replay", cap});
    Outcome replayed = runner(entity, script);
    Outcome sim = daemon->wait();
    EXPECT_EQ(replayed.exitCode(), 0) << replayed.err;
    EXPECT_EQ(sim.exitCode(), 0) << sim.err;
    EXPECT_EQ(sim.err, "") << "every request found its recorded answer";
    // Ids and payload bytes, in order: set-up, P-CSCF, bearers, the unsolicited list, AT, close.
    ASSERT_GE(deliveries(original).size(), 11u);
    EXPECT_EQ(deliveries(replayed), deliveries(original));

    // A request the capture lacks is refused (6) and reported; the replay speaks JSON on request.
    daemon = startSim(dir, {"--replay", cap, "--format", "json"});
    Outcome lacking = runner(entity,
                             "wait EVENT_RILPROXY_STATE_IND 20000\n"
                             "post EVENT_RB_DM_HO_REQ 000102030405\nwait EVENT_HANDOVER_RESP\n");
    Outcome lackingSim = daemon->wait();
    EXPECT_EQ(lackingSim.err,
              "rild-sim: replay: ZOKRIL_REQUEST_HANDOVER(2112) serial 0x200 has no recorded answer "
              "left; "
              "answered 6\n");
    expectInOrder(
        lackingSim.out,
        {R"({"kind":"rx","request_id":2112,"name":"ZOKRIL_REQUEST_HANDOVER","serial":512,)",
         R"({"kind":"tx","type":"response","serial":512,"result":6,)"});
    EXPECT_EQ(lacking.exitCode(), 0) << lacking.err;
    expectInOrder(lacking.out, {R"({"kind":"reply","id":4053,"name":"EVENT_HANDOVER_RESP","to":1,)"
                                R"("len":8,"data":"0600000000000000","fields":{"status":6},)"});
}

TEST_F(RunnerTest, TapChangesNothingAndRecordsWhatTheDaemonRecords) {
    ScopedSocketDir dir;
    const std::string script =
        "wait EVENT_RILPROXY_STATE_IND 20000\n"
        "post EVENT_SETUP_DATA_CALL_REQ size=704 str=256:ims i32=644:1 i32=648:2\n"
        "wait EVENT_SETUP_DATA_CALL_RESP\n"
        "post EVENT_DEACTIVATE_DATA_CALL_REQ size=8 i32=0:2\n"
        "wait EVENT_DEACTIVATE_DATA_CALL_RESP\n"
        "at 308 0 0x77 AT+CGDCONT?\\r\n"
        "wait EVENT_RILPROXY_ATCMD_RESP\n";
    // Not quiet: the entity logs to stderr, and stdout must still carry JSON lines only.
    const std::vector<std::string> entity = {"--socket-dir", dir.path(), "--format", "json"};
    // Without the tap; the runner's own capture goes through its in-process relay.
    auto direct = startSim(dir, {"--format", "json", "--capture", dir.path() + "/direct.pcapng"});
    std::vector<std::string> args = entity;
    args.insert(args.end(), {"--capture", dir.path() + "/runner.pcapng"});
    Outcome plain = runner(args, script);
    Outcome sim = direct->wait();
    ASSERT_EQ(sim.exitCode(), 0) << sim.err;  // the runner's exit closed the connection
    ASSERT_EQ(plain.exitCode(), 0) << plain.err;
    for (const std::string &line : plain.outLines()) {
        EXPECT_TRUE(line.front() == '{' && line.back() == '}') << "not a JSON line: " << line;
    }
    expectInOrder(plain.out,
                  {R"({"kind":"bcast","id":3008,"name":"EVENT_RILPROXY_STATE_IND","to":0,"len":4,)"
                   R"("data":"00000000","fields":{"state":0},)"});
    expectInOrder(sim.out,
                  {R"({"kind":"rx","request_id":41,"name":"RIL_REQUEST_DEACTIVATE_DATA_CALL")",
                   R"({"kind":"rild","event":"connection closed by the entity"})"});

    auto upstream =
        startSim(dir, {"--capture", dir.path() + "/sim.pcapng", "--name", "upstream"}, "upstream");
    ChildProcess tap(ZOK_RUNNER_EMULATOR, kTools + "rild-tap",
                     {"--socket-dir", dir.path(), "--listen", "rild-zok", "--upstream", "upstream",
                      "--capture", dir.path() + "/tap.pcapng"});
    waitForSocket(dir.path() + "/rild-zok");
    Outcome tapped = runner(entity, script);
    Outcome tapOutcome = tap.wait();
    EXPECT_EQ(upstream->wait().exitCode(), 0);
    EXPECT_EQ(tapped.exitCode(), 0) << tapped.err;
    EXPECT_EQ(tapOutcome.exitCode(), 0) << tapOutcome.err;
    ASSERT_GE(deliveries(plain).size(), 5u);
    EXPECT_EQ(deliveries(tapped), deliveries(plain));

    // Frames and directions, not times: requests and answers, then the entity's close.
    std::vector<capture::Packet> atDaemon = readCapture(dir.path() + "/sim.pcapng");
    ASSERT_EQ(atDaemon.size(), 9u);
    EXPECT_TRUE(atDaemon.back().isClose());
    EXPECT_EQ(atDaemon.back().direction, capture::Direction::ToDaemon);
    for (const char *other : {"/tap.pcapng", "/direct.pcapng", "/runner.pcapng"}) {
        SCOPED_TRACE(other);
        std::vector<capture::Packet> packets = readCapture(dir.path() + other);
        ASSERT_EQ(packets.size(), atDaemon.size());
        for (size_t i = 0; i < atDaemon.size(); i++) {
            EXPECT_EQ(packets[i].direction, atDaemon[i].direction) << i;
            EXPECT_EQ(hex(packets[i].frame), hex(atDaemon[i].frame)) << i;
        }
    }
}

TEST(RunnerScriptTest, BuildsPayloadsAndAtRecordsExactly) {
    std::vector<runner::Command> commands;
    std::string error;
    ASSERT_TRUE(runner::parseScript(
        "post 4005 0102 hex=4:aabb i32=8:-2 str=12:a\\sb size=20 from=7  # comment\n"
        "  # only a comment\n"
        "post EVENT_RADIO_POWER_REQ i32=0:0xffffffff\n"
        "at 308 1 0xfedcba9876543210 AT#X=\"a b\"\\r\\n \n"
        "connect cmd-sock\n",
        true, &commands, &error))
        << error;
    ASSERT_EQ(commands.size(), 4u);
    EXPECT_EQ(commands[0].id, 4005);
    EXPECT_EQ(commands[0].from, 7u);
    EXPECT_EQ(hex(commands[0].payload),
              "01 02 00 00 aa bb 00 00 fe ff ff ff 61 20 62 00 00 00 00 00");
    EXPECT_EQ(commands[1].id, 4032);
    EXPECT_EQ(hex(commands[1].payload), "ff ff ff ff");
    // The AT text is the rest of the line: '#' and blanks kept, escapes decoded, trailing blank
    // cut.
    EXPECT_EQ(commands[2].channel, 308u);
    EXPECT_EQ(commands[2].simId, 1u);
    EXPECT_EQ(commands[2].token, 0xfedcba9876543210ull);
    EXPECT_EQ(commands[2].text, "AT#X=\"a b\"\r\n");
    ASSERT_EQ(commands[3].payload.size(), 64u);
    EXPECT_EQ(hex(commands[3].payload.data(), 9), "63 6d 64 2d 73 6f 63 6b 00");
    EXPECT_EQ(hex(commands[3].payload.data() + 32, 32), hex(std::vector<uint8_t>(32, 0)));
}

// A script with an error is refused whole, naming the line.
TEST(RunnerScriptTest, ErrorsNameTheLine) {
    const std::string longName(32, 'n');
    const struct {
        bool withSim;
        std::string script, error;
    } cases[] = {
        {true, "post 4005 0500000g\n", "line 1: bad hex '0500000g'"},
        {true, "post 4005 050\n", "line 1: bad hex '050'"},
        {true, "post 4005 i32=0:1 size=2\n", "line 1: payload of 4 bytes exceeds size=2"},
        {true, "# comment\nwait NOT_AN_EVENT\n", "line 2: bad event id 'NOT_AN_EVENT'"},
        {true, "connect " + longName + "\n",
         "line 1: socket name '" + longName + "' longer than 31 characters"},
        {true, "sim unsol no-such-payload\n",
         "line 1: unknown built-in unsolicited 'no-such-payload'"},
        {true, "at 301 0 0x1 AT\\q\n", "line 1: bad escape in the AT text"},
        {false, "connect\nsim close\n", "line 2: 'sim' commands need --sim"},
    };
    for (const auto &c : cases) {
        std::vector<runner::Command> commands;
        std::string error;
        EXPECT_FALSE(runner::parseScript(c.script, c.withSim, &commands, &error)) << c.script;
        EXPECT_EQ(error, c.error) << c.script;
    }
}

// The file header and the padding are tshark's and the round trip's to check; the time's word
// order and the direction flags show only here. An empty deactivate request, outbound (flags 2).
TEST(CaptureTest, PacketBlockLayout) {
    capture::Packet p;
    p.direction = capture::Direction::ToDaemon;
    p.timestampUs = 0x100000002ull;
    p.frame = bytes("00 00 00 10 04 00 00 00 00 00 00 00 29 00 00 00 00 02 00 00");
    EXPECT_EQ(hex(capture::packetBlock(p)),
              "06 00 00 00 40 00 00 00 00 00 00 00 01 00 00 00 02 00 00 00 14 00 00 00 14 00 00 00 "
              "00 00 00 10 04 00 00 00 00 00 00 00 29 00 00 00 00 02 00 00 "
              "02 00 04 00 02 00 00 00 00 00 00 00 40 00 00 00");
}

TEST(CaptureTest, WriterAndReaderRoundTrip) {
    ScopedSocketDir dir;
    const std::string path = dir.path() + "/s.pcapng";
    // An odd-sized frame (padded on the wire) and the close: the tap test reads whole runs back.
    const std::vector<uint8_t> odd = bytes("00 00 00 03 01 02 03");
    {
        capture::Writer w;
        std::string error;
        ASSERT_TRUE(w.open(path, &error)) << error;
        ASSERT_TRUE(w.write(capture::Direction::ToEntity, odd));
        ASSERT_TRUE(w.writeClose(capture::Direction::ToDaemon));
    }
    std::vector<capture::Packet> packets;
    std::string error;
    ASSERT_TRUE(capture::readFile(path, &packets, &error)) << error;
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(hex(packets[0].frame), hex(odd));
    EXPECT_GT(packets[0].timestampUs, 1500000000ull * 1000000u) << "not wall-clock time";

    // Damaged files are refused with a reason, never half read.
    const std::string whole = readFile(path);
    std::string otherLink = whole;
    otherLink[28 + 8] = 1;  // the interface's link type: Ethernet
    const struct {
        std::string bytes, error;
    } broken[] = {
        // The close block starts after the headers (28 + 20) and the odd frame's block (52).
        {whole.substr(0, whole.size() - 2), "broken block at byte 100"},
        {otherLink, "not a RIL socket capture (link type)"},
        {"\x0a\x0d\x0d\x0a" + whole.substr(4, 4) + "\x1a\x2b\x3c\x4d" + whole.substr(12),
         "not a pcapng file in this host's byte order"},
    };
    for (const auto &b : broken) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << b.bytes;
        EXPECT_FALSE(capture::readFile(path, &packets, &error));
        EXPECT_NE(error.find(b.error), std::string::npos) << error;
    }
}

TEST(CaptureTest, SplitterCutsFramesWhateverTheReads) {
    const std::vector<uint8_t> stream = bytes("00 00 00 02 aa bb 00 00 00 00 00 00 00 01 cc");
    for (size_t cut = 0; cut <= stream.size(); cut++) {
        capture::FrameSplitter s;
        std::vector<std::vector<uint8_t>> frames;
        ASSERT_TRUE(s.feed(stream.data(), cut, &frames));
        ASSERT_TRUE(s.feed(stream.data() + cut, stream.size() - cut, &frames));
        ASSERT_EQ(frames.size(), 3u) << cut;
        EXPECT_EQ(hex(frames[0]), "00 00 00 02 aa bb");
        EXPECT_EQ(hex(frames[1]), "00 00 00 00");
        EXPECT_EQ(hex(frames[2]), "00 00 00 01 cc");
        EXPECT_EQ(s.pending(), 0u);
    }
    // A length no frame can have (above 4 MiB) stops the cutting for good.
    capture::FrameSplitter s;
    std::vector<std::vector<uint8_t>> frames;
    const std::vector<uint8_t> huge = bytes("00 40 00 01 00 00 00 00");
    EXPECT_FALSE(s.feed(huge.data(), huge.size(), &frames));
    EXPECT_FALSE(s.feed(stream.data(), stream.size(), &frames));
    EXPECT_TRUE(frames.empty());
}

}  // namespace
