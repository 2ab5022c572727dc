// The host runner and the simulated daemon as their users run them: rilproxy-host (with the real
// shared object) and rild-sim are started as child processes with scripts, and their stdout,
// stderr and exit statuses are checked. The daemon profile's answers are also checked in-process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "tools/runner/script.h"
#include "tools/sim/profile.h"
#include "wire_format.h"

namespace {

const std::string kRunner = std::string(ZOK_BINARY_DIR) + "/tools/rilproxy-host";
const std::string kRildSim = std::string(ZOK_BINARY_DIR) + "/tools/rild-sim";

struct Outcome {
    int status = -1;  // waitpid status
    std::string out;
    std::string err;
    int exitCode() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
    std::vector<std::string> outLines() const {
        std::vector<std::string> lines;
        std::stringstream in(out);
        std::string line;
        while (std::getline(in, line)) lines.push_back(line);
        return lines;
    }
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

int64_t nowMs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

class Child {
public:
    // Starts `program` (under the build's emulator, if any) with `script` on its stdin.
    Child(const std::string &program, std::vector<std::string> args, const std::string &script) {
        std::vector<std::string> argv = split(ZOK_RUNNER_EMULATOR, '|');
        argv.push_back(program);
        argv.insert(argv.end(), args.begin(), args.end());
        std::vector<char *> cargv;
        for (std::string &a : argv) cargv.push_back(&a[0]);
        cargv.push_back(nullptr);
        int in[2], out[2], err[2];
        if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) return;
        mPid = fork();
        if (mPid == 0) {
            dup2(in[0], STDIN_FILENO);
            dup2(out[1], STDOUT_FILENO);
            dup2(err[1], STDERR_FILENO);
            for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(fd);
            execv(cargv[0], cargv.data());
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        close(err[1]);
        // Scripts are far below the pipe's capacity, so this cannot block on the child.
        if (write(in[1], script.data(), script.size()) != static_cast<ssize_t>(script.size())) {
            ADD_FAILURE() << "script not written";
        }
        close(in[1]);
        mOut = out[0];
        mErr = err[0];
    }

    // Collects the output until both pipes close, then the exit status. A child still running
    // after `timeoutMs` is killed and the test fails.
    Outcome wait(int timeoutMs = 60000) {
        Outcome run;
        int64_t deadline = nowMs() + timeoutMs;
        while (mOut >= 0 || mErr >= 0) {
            pollfd fds[2] = {{mOut, POLLIN, 0}, {mErr, POLLIN, 0}};
            int left = static_cast<int>(deadline - nowMs());
            if (left <= 0 || poll(fds, 2, left) <= 0) {
                ADD_FAILURE() << "child still running after " << timeoutMs << " ms";
                kill(mPid, SIGKILL);
                break;
            }
            drain(fds[0], &mOut, &run.out);
            drain(fds[1], &mErr, &run.err);
        }
        if (mOut >= 0) close(mOut);
        if (mErr >= 0) close(mErr);
        waitpid(mPid, &run.status, 0);
        return run;
    }

private:
    static void drain(const pollfd &p, int *fd, std::string *to) {
        if (*fd < 0 || p.revents == 0) return;
        char buf[65536];
        ssize_t n = read(*fd, buf, sizeof(buf));
        if (n > 0) {
            to->append(buf, static_cast<size_t>(n));
        } else {
            close(*fd);
            *fd = -1;
        }
    }
    pid_t mPid = -1;
    int mOut = -1;
    int mErr = -1;
};

Outcome runner(std::vector<std::string> args, const std::string &script) {
    return Child(kRunner, args, script).wait();
}

int indexOf(const std::vector<std::string> &lines, const std::string &line, int from = 0) {
    for (size_t i = static_cast<size_t>(from); i < lines.size(); i++) {
        if (lines[i] == line) return static_cast<int>(i);
    }
    return -1;
}

class RunnerTest : public testing::Test {
protected:
    void SetUp() override {
#ifdef ZOK_RUNNER_NOT_BUILT
        GTEST_SKIP() << "tools not built (ZOK_BUILD_TOOLS=OFF)";
#endif
    }
};

TEST_F(RunnerTest, DeactivateRoundTripPrintsExactJsonLines) {
    // Not quiet: the entity logs to stderr while stdout carries only the JSON lines.
    Outcome r = runner({"--sim", "--format", "json"},
                       "connect\n"
                       "post 4005 i32=0:5 i32=4:2   # id 5, cause 2\n"
                       "wait 4006\n");
    ASSERT_EQ(r.exitCode(), 0) << r.err;
    std::vector<std::string> lines = r.outLines();
    for (const std::string &line : lines) {
        EXPECT_TRUE(line.front() == '{' && line.back() == '}') << "not a JSON line: " << line;
    }
    EXPECT_NE(r.err.find("EVENT_DEACTIVATE_DATA_CALL_REQ"), std::string::npos);

    int connected = indexOf(
        lines, R"({"kind":"bcast","id":3008,"name":"EVENT_RILPROXY_STATE_IND","to":0,"len":4,)"
               R"("data":"00000000"})");
    int connectAnswer =
        indexOf(lines, R"({"kind":"send","id":2004,"name":"EVENT_RILPROXY_CONNECT","to":1,"len":4,)"
                       R"("data":"00000000"})");
    // int32 2, String16 "5", String16 "2"; the first request after connecting gets serial 0x200.
    int rx =
        indexOf(lines, R"({"kind":"rx","request_id":41,"name":"RIL_REQUEST_DEACTIVATE_DATA_CALL",)"
                       R"("serial":512,"sim_id":0,"length":36,)"
                       R"("data":"0200000001000000350000000100000032000000"})");
    int tx = indexOf(lines, R"({"kind":"tx","type":"response","serial":512,"result":0,"sim_id":0,)"
                            R"("length":24,"data":""})");
    int reply = indexOf(
        lines, R"({"kind":"reply","id":4006,"name":"EVENT_DEACTIVATE_DATA_CALL_RESP","to":1,)"
               R"("len":8,"data":"0000000000000000"})");
    EXPECT_GE(connected, 0) << r.out;
    EXPECT_GE(connectAnswer, 0) << r.out;
    ASSERT_GE(rx, 0) << r.out;
    ASSERT_GT(tx, rx) << r.out;
    EXPECT_GT(reply, tx) << r.out;
}

TEST_F(RunnerTest, ScriptErrorsExitTwoNamingTheLineBeforeAnythingRuns) {
    struct Case {
        std::vector<std::string> args;
        std::string script;
        std::string message;
    };
    const std::string longName(32, 'n');
    const Case cases[] = {
        {{"--sim"}, "connect\n\nbogus 1\n", "line 3: unknown command 'bogus'"},
        {{"--sim"}, "post 4005 0500000g\n", "line 1: bad hex '0500000g'"},
        {{"--sim"}, "post 4005 050\n", "line 1: bad hex '050'"},
        {{"--sim"}, "post 4005 i32=0:1 size=2\n", "line 1: payload of 4 bytes exceeds size=2"},
        {{"--sim"}, "# comment\nwait NOT_AN_EVENT\n", "line 2: bad event id 'NOT_AN_EVENT'"},
        {{"--sim"},
         "connect " + longName + "\n",
         "line 1: socket name '" + longName + "' longer than 31 characters"},
        {{"--sim"},
         "sim unsol no-such-payload\n",
         "line 1: unknown built-in unsolicited 'no-such-payload'"},
        {{"--sim"}, "at 301 0 0x1 AT\\q\n", "line 1: bad escape in the AT text"},
        {{}, "connect\nsim close\n", "line 2: 'sim' commands need --sim"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.script);
        Outcome r = runner(c.args, c.script);
        EXPECT_EQ(r.exitCode(), 2) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        // Validated whole before the entity is even loaded: nothing ran, nothing was printed.
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err.find("RILPROXY Version"), std::string::npos) << r.err;
    }
}

TEST_F(RunnerTest, WaitConsumesOneDeliveryAndTimesOutWithStatusOne) {
    // The daemon fails the deactivation; the first wait sees the error reply, the second has
    // nothing new to see.
    Outcome r = runner({"--sim", "--format", "json", "--quiet"},
                       "sim fail 41 2\n"
                       "post 4005 i32=0:5 i32=4:2\n"
                       "wait EVENT_DEACTIVATE_DATA_CALL_RESP\n"
                       "wait 4006 300\n"
                       "post 4032 i32=0:1\n");
    EXPECT_EQ(r.exitCode(), 1);
    EXPECT_NE(r.err.find("line 4: wait 4006 (EVENT_DEACTIVATE_DATA_CALL_RESP): nothing delivered "
                         "within 300 ms"),
              std::string::npos)
        << r.err;
    std::vector<std::string> lines = r.outLines();
    EXPECT_GE(indexOf(lines, R"({"kind":"tx","type":"response","serial":512,"result":2,)"
                             R"("sim_id":0,"length":24,"data":""})"),
              0)
        << r.out;
    // The status is the daemon's error code itself.
    EXPECT_GE(
        indexOf(lines, R"({"kind":"reply","id":4006,"name":"EVENT_DEACTIVATE_DATA_CALL_RESP",)"
                       R"("to":1,"len":8,"data":"0200000000000000"})"),
        0)
        << r.out;
    EXPECT_EQ(r.out.find("\"request_id\":23"), std::string::npos) << "ran past the failed wait";
}

TEST_F(RunnerTest, SimCloseEndsInTheEntityTeardown) {
    Outcome r = runner({"--sim", "--prop", "vendor.ril.zok.socket=zok-other"},
                       "sim close\n"
                       "post 4032 i32=0:1\n");
    // The entity's exit_group passes status 0.
    EXPECT_EQ(r.exitCode(), 0) << r.err;
    // The configured name is where both the daemon listened and the entity connected.
    EXPECT_NE(r.out.find("/zok-other\n"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("connect the rild (zok-other) by property"), std::string::npos) << r.err;
    std::vector<std::string> order = {
        "RIL Command socket (",
        "kill volte process before restart ZOK",
        "control request ctl.stop=vendor.vcd_bridge",
        "control request ctl.stop=vendor.vcd_agent",
        "control request ctl.stop=vendor.vcd_engine",
        "ZOK will be re-started: exit\n",
    };
    size_t at = 0;
    for (const std::string &text : order) {
        size_t found = r.err.find(text, at);
        ASSERT_NE(found, std::string::npos) << "missing or out of order: " << text << "\n" << r.err;
        at = found + text.size();
    }
    EXPECT_EQ(r.err.find("ZOK will be re-started: exit done"), std::string::npos);
    std::vector<std::string> lines = r.outLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(),
              "entity -> bcast EVENT_RILPROXY_STATE_IND(3008), 4 bytes: state 1 (closed)");
    EXPECT_EQ(r.out.find("EVENT_RADIO_POWER_REQ"), std::string::npos) << "ran past sim close";
}

TEST_F(RunnerTest, DemoScriptRunsToTheTeardown) {
    Outcome r =
        runner({"--sim", "--quiet", std::string(ZOK_SOURCE_DIR) + "/examples/demo.script"}, "");
    ASSERT_EQ(r.exitCode(), 0) << r.err;
    std::vector<std::string> lines = r.outLines();
    // The set-up goes out as TLV, is refused, and is answered in its plain form.
    int tlv = indexOf(lines, "rild -> response serial 0x40000200 result 6, 0 bytes: not supported");
    int plain = -1;
    for (size_t i = 0; i < lines.size(); i++) {
        if (lines[i].rfind("rild <- RIL_REQUEST_SETUP_DATA_CALL(27) serial 0x300 sim 0", 0) == 0) {
            plain = static_cast<int>(i);
        }
    }
    int reply = indexOf(lines,
                        "entity -> reply EVENT_SETUP_DATA_CALL_RESP(4004) to requester 1, 47876 "
                        "bytes: status 0, cid 1 active 2 status 0 IPV4V6 rmnet_data0 10.0.0.2 "
                        "2001:db8::2 dns 8.8.8.8,2001:4860:4860::8888 gw 10.0.0.1 mtu 1400");
    ASSERT_GE(tlv, 0) << r.out;
    EXPECT_GT(plain, tlv) << r.out;
    EXPECT_GT(reply, plain) << r.out;
    const char *expected[] = {
        "entity -> reply EVENT_PCSCF_DISCOVERY_PCO_RESP(4016) to requester 1, 264 bytes: status "
        "0, pcscf 10.0.0.10,2001:db8::10",
        "entity -> reply EVENT_MODIFY_DATA_CALL_RESP(4010) to requester 1, 3964 bytes: status 0 "
        "bearer 0 of 1, cid 2 primary 1 bearer 6 active 1 qos 1/256/256/256/256 tft op 1 filters "
        "1 [10.0.0.9 proto 17 local 50000-50010 remote 30000-30010] pcscf 10.0.0.10",
        "entity -> reply EVENT_RILPROXY_ATCMD_RESP(3004) to requester 1, 4120 bytes: token 0x1234 "
        "status 0 \"OK\\r\\n\"",
        "entity -> reply EVENT_DEACTIVATE_DATA_CALL_RESP(4006) to requester 1, 8 bytes: status 0",
        "entity -> bcast EVENT_RILPROXY_STATE_IND(3008), 4 bytes: state 1 (closed)",
    };
    int last = reply;
    for (const char *line : expected) {
        int at = indexOf(lines, line);
        EXPECT_GT(at, last) << line << "\n" << r.out;
        if (at > last) last = at;
    }
}

TEST_F(RunnerTest, StandaloneRildSimServesAnEntityInAnotherProcess) {
    char dir[] = "/tmp/zok-rt-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string socket = std::string(dir) + "/rild-zok";
    Child daemon(kRildSim, {"--socket-dir", dir, "--format", "json", "--accept-timeout", "30000"},
                 "");
    struct stat st;
    int64_t deadline = nowMs() + 20000;
    while (stat(socket.c_str(), &st) != 0 && nowMs() < deadline) usleep(20000);
    ASSERT_EQ(stat(socket.c_str(), &st), 0) << "rild-sim never listened";

    // Without --sim the script itself waits for the connection.
    Outcome entity = runner({"--socket-dir", dir, "--format", "json", "--quiet"},
                            "wait EVENT_RILPROXY_STATE_IND 20000\n"
                            "post 4005 i32=0:5 i32=4:2\n"
                            "wait 4006\n");
    Outcome sim = daemon.wait();
    rmdir(dir);
    EXPECT_EQ(entity.exitCode(), 0) << entity.err;
    // The runner's exit closed the connection, which ends rild-sim with status 0.
    EXPECT_EQ(sim.exitCode(), 0) << sim.err;
    EXPECT_NE(
        sim.out.find(R"({"kind":"rx","request_id":41,"name":"RIL_REQUEST_DEACTIVATE_DATA_CALL",)"
                     R"("serial":512,"sim_id":0,"length":36,)"
                     R"("data":"0200000001000000350000000100000032000000"})"),
        std::string::npos)
        << sim.out;
    EXPECT_NE(sim.out.find(R"({"kind":"rild","event":"connection closed by the entity"})"),
              std::string::npos)
        << sim.out;
    EXPECT_NE(
        entity.out.find(R"({"kind":"reply","id":4006,"name":"EVENT_DEACTIVATE_DATA_CALL_RESP",)"
                        R"("to":1,"len":8,"data":"0000000000000000"})"),
        std::string::npos)
        << entity.out;
}

rild_sim::RequestFrame request(int32_t id, const std::string &payloadHex = "") {
    rild_sim::RequestFrame f = {};
    f.request_id = id;
    f.payload = bytes(payloadHex);
    return f;
}

TEST(SimProfileTest, AnswersEachRequestKind) {
    struct Case {
        int32_t requestId;
        bool tlv;
        int32_t result;
        std::string payload;
    };
    const Case cases[] = {
        {RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE, false, 0, "01 00 00 00 21 00 00 00"},
        {RIL_REQUEST_DEACTIVATE_DATA_CALL, false, 0, ""},
        {RIL_REQUEST_RADIO_POWER, false, 0, ""},
        // int32 0, then "\r\nOK\r\n" as raw bytes: the entity reads the text 4 bytes in.
        {ZOKRIL_REQUEST_SEND_AT_CMD, false, 0, "00 00 00 00 0d 0a 4f 4b 0d 0a"},
        {ZOKRIL_REQUEST_SEND_AT_CMD_EXT, false, 0, "00 00 00 00 0d 0a 4f 4b 0d 0a"},
        {ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV, false, ZOKRIL_E_REQUEST_NOT_SUPPORTED, ""},
        {ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV, true, 0, ""},
        {ZOKRIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE_TLV, true, 0, ""},
        {9999, false, ZOKRIL_E_REQUEST_NOT_SUPPORTED, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.requestId);
        rild_sim::Answer a = rild_sim::answerRequest(request(c.requestId), c.tlv);
        EXPECT_EQ(a.result, c.result);
        EXPECT_EQ(hex(a.payload), hex(bytes(c.payload)));
    }
}

TEST(SimProfileTest, ModifyEchoesTheRequestedCidAndPcscfIsOneText) {
    // 7, cid 9, no QoS, no TFT
    rild_sim::Answer a = rild_sim::answerRequest(
        request(ZOKRIL_REQUEST_MODIFY_DATA_CALL, "07 00 00 00 09 00 00 00 00 00 00 00 00 00 00 00"),
        false);
    ASSERT_GE(a.payload.size(), 16u);
    // num 1, interfaceId 1, primary cid 1, cid 9
    EXPECT_EQ(hex(a.payload.data(), 16), "01 00 00 00 01 00 00 00 01 00 00 00 09 00 00 00");

    a = rild_sim::answerRequest(request(ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO), false);
    // One String16 of 46 units: the IPv4 address, a blank, sixteen dotted numbers.
    ASSERT_EQ(a.payload.size(), 4u + 2 * 47 + 2);
    EXPECT_EQ(hex(a.payload.data(), 8), "2e 00 00 00 31 00 30 00");
}

TEST(SimProfileTest, BuiltinUnsolicitedNames) {
    int32_t id = 0;
    std::vector<uint8_t> payload;
    ASSERT_TRUE(rild_sim::builtinUnsolicited("bearer-deactivated", &id, &payload));
    EXPECT_EQ(id, RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED);
    EXPECT_EQ(hex(payload), "01 00 00 00 02 00 00 00");
    ASSERT_TRUE(rild_sim::builtinUnsolicited("data-call-response", &id, &payload));
    EXPECT_EQ(id, RIL_UNSOL_DATA_CALL_RESPONSE);
    // version 11, one entry, status 0, no retry time, cid 1, active 2
    EXPECT_EQ(hex(payload.data(), 24),
              "0b 00 00 00 01 00 00 00 00 00 00 00 ff ff ff ff 01 00 00 "
              "00 02 00 00 00");
    EXPECT_FALSE(rild_sim::builtinUnsolicited("data-call", &id, &payload));
}

TEST(RunnerScriptTest, BuildsPayloadsAndAtRecordsExactly) {
    std::vector<runner::Command> commands;
    std::string error;
    ASSERT_TRUE(runner::parseScript(
        "post 4005 0102 hex=4:aabb i32=8:-2 str=12:a\\sb size=20 from=7  # comment\n"
        "  # only a comment\n"
        "post EVENT_RADIO_POWER_REQ i32=0:0xffffffff\n"
        "at 308 1 0xfedcba9876543210 AT#X=\"a b\"\\r\\n \n"
        "connect cmd-sock\n"
        "wait EVENT_SETUP_DATA_CALL_RESP 250\n",
        true, &commands, &error))
        << error;
    ASSERT_EQ(commands.size(), 5u);
    EXPECT_EQ(commands[0].id, 4005);
    EXPECT_EQ(commands[0].from, 7u);
    EXPECT_EQ(hex(commands[0].payload),
              "01 02 00 00 aa bb 00 00 fe ff ff ff 61 20 62 00 00 00 00 00");
    EXPECT_EQ(commands[1].id, 4032);
    EXPECT_EQ(commands[1].from, 1u);
    EXPECT_EQ(hex(commands[1].payload), "ff ff ff ff");
    // The AT text is the rest of the line: '#' and blanks kept, escapes decoded, trailing blank
    // cut.
    EXPECT_EQ(commands[2].line, 4);
    EXPECT_EQ(commands[2].channel, 308u);
    EXPECT_EQ(commands[2].simId, 1u);
    EXPECT_EQ(commands[2].token, 0xfedcba9876543210ull);
    EXPECT_EQ(commands[2].text, "AT#X=\"a b\"\r\n");
    ASSERT_EQ(commands[3].payload.size(), 64u);
    EXPECT_EQ(hex(commands[3].payload.data(), 9), "63 6d 64 2d 73 6f 63 6b 00");
    EXPECT_EQ(hex(commands[3].payload.data() + 32, 32), hex(std::vector<uint8_t>(32, 0)));
    EXPECT_EQ(commands[4].id, 4004);
    EXPECT_EQ(commands[4].timeoutMs, 250);
}

}  // namespace
