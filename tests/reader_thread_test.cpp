// The reader thread against the simulated daemon on a real local socket in a private socket
// directory: which name it connects to, how it paces attempts, and the teardown that ends the
// process (in child processes). Frames split across reads are the soak test's.
//
// A connected reader ends the process as soon as its socket closes, so tests that stay connected
// keep their daemon alive until the process exits.
#include <cutils/properties.h>
#include <cutils/properties_host.h>
#include <cutils/sockets.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "core/framework_calls.h"
#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/socket_dir.h"
#include "support/test_context.h"
#include "tools/sim/rild_sim.h"
#include "transport/frame.h"
#include "transport/reader.h"
#include "transport/ril_channel.h"
#include "vopa_host.h"

namespace {

using rild_sim::RildSim;

// Sets the flag and wakes the reader to look at it.
void setEnabled(rilproxy_entity_priv_t *ctx, int enabled) {
    ctx->cmd_thread.enabled.store(enabled);
    EXPECT_EQ(write(ctx->cmd_thread.pipe_fd[1], " ", 1), 1);
}

// The reader keeps the context for the rest of the process, as the entity's own thread does.
TestContext *startReader(const char *configuredName = "", int boundMs = kRilproxySendBoundMs) {
    // Never destroyed, so leak checkers, which run after the static destructors, still reach it.
    static std::vector<TestContext *> *kept = new std::vector<TestContext *>;
    TestContext *t = new TestContext;  // its socketpair stays unused
    kept->push_back(t);
    rilproxy_entity_priv_t *ctx = t->ctx;
    ctx->channel->setBoundsForTest(boundMs, boundMs);
    ctx->cmd_thread.fd.store(-1);
    snprintf(ctx->cmd_thread.socket_name, sizeof(ctx->cmd_thread.socket_name), "%s",
             configuredName);
    setEnabled(ctx, 1);
    vopa_thrd_init(&ctx->cmd_thread.thread);
    ctx->cmd_thread.thread.start(&ctx->cmd_thread.thread, rilproxy_cmd_resp_thread,
                                 &ctx->cmd_thread);
    vopa_host::open_entity_init_gate();
    return t;
}

// A daemon that stays open until the process exits; the static keeps it reachable for leak
// checkers.
RildSim *keptDaemon(const std::string &name) {
    static std::vector<RildSim *> *kept = new std::vector<RildSim *>;
    kept->push_back(new RildSim(name));
    return kept->back();
}

class ReaderThreadTest : public testing::Test {
protected:
    void SetUp() override {
        vopa_host::reset();
        property_host_reset();
        zok_prop_ver = 1;
    }
};

// A connected reader stays connected to its daemon for the rest of the process; each case starts
// a reader of its own in a socket directory of its own, and the idle ones before it stay quiet.
// (The vendor property alone is the runner's "sim close" case.)
TEST_F(ReaderThreadTest, ConnectsByNameThenAnnouncesTheConnection) {
    const struct {
        const char *configured, *vendorProperty, *oldProperty;
        int propVer;
        const char *expectedLog;
    } cases[] = {
        {"cfg-sock", "prop-sock", "", 1,
         "RIL Command thread try to connect the rild (cfg-sock) by configure"},
        {"", "new-sock", "old-sock", 0,
         "RIL Command thread try to connect the rild (old-sock) by property"},
        {"", "new-sock", "", 0, "RIL Command thread try to connect the rild (rild-zok) by default"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.expectedLog);
        SetUp();
        zok_prop_ver = c.propVer;
        if (c.vendorProperty[0] != '\0') property_set("vendor.ril.zok.socket", c.vendorProperty);
        if (c.oldProperty[0] != '\0') property_set("ril.zok.socket", c.oldProperty);
        ScopedSocketDir dir;
        // The expected name is the one inside the log text's parentheses.
        std::string log = c.expectedLog;
        std::string name = log.substr(log.find('(') + 1, log.find(')') - log.find('(') - 1);
        RildSim *sim = keptDaemon(name);
        LogCapture logs;
        rilproxy_entity_priv_t *ctx = startReader(c.configured)->ctx;
        ASSERT_TRUE(sim->acceptClient(5000));
        // What the connection announces is the runner's transcripts'.
        ASSERT_TRUE(vopa_host::wait_for_id(EVENT_RILPROXY_STATE_IND, 5000));
        EXPECT_TRUE(logs.containsMessage(c.expectedLog));
        int fd = ctx->cmd_thread.fd.load();
        EXPECT_GT(fd, 0);
        EXPECT_TRUE(
            logs.containsMessage("RIL Command socket connect success, fd = " + std::to_string(fd)));
    }
}

TEST_F(ReaderThreadTest, AbsentDaemonIsRetriedEverySecondOnlyWhileEnabled) {
    ScopedSocketDir dir;
    LogCapture logs;
    const std::string refused =
        std::string("can't open socket : rild-zok (") + strerror(ENOENT) + ")";
    rilproxy_entity_priv_t *ctx = startReader()->ctx;
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    int attempts = logs.countMessage(refused);
    EXPECT_GE(attempts, 2);
    EXPECT_LE(attempts, 4);

    setEnabled(ctx, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    LogCapture disabled;  // takes over from `logs`
    std::this_thread::sleep_for(std::chrono::milliseconds(2200));
    EXPECT_EQ(disabled.countMessage(refused), 0);
    EXPECT_GE(disabled.countMessage("RIL Command thread is disable"), 2);
    EXPECT_FALSE(disabled.containsMessage("kill volte process before restart ZOK"));

    RildSim *sim = keptDaemon("rild-zok");
    setEnabled(ctx, 1);
    EXPECT_TRUE(sim->acceptClient(3000));
}

// Each case provokes the end of the connection; the child must then run the whole teardown in
// order, answering the parked AT request with status 6, and end with exit status 0.
struct TeardownCase {
    const char *name;
    int propVer;
    std::function<void(RildSim *, rilproxy_entity_priv_t *)> provoke;
    const char *cause;  // regex of the line that starts the teardown
    int boundMs = kRilproxySendBoundMs;
};

// The task thread in a 1 MiB send under sock_mutex to a daemon that does not read (and has not
// for a while: the socket is full before the frame's first byte).
void startStuckSend(rilproxy_entity_priv_t *ctx) {
    char fill[4096] = {};
    while (send(ctx->cmd_thread.fd, fill, sizeof(fill), MSG_DONTWAIT) > 0) continue;
    std::promise<void> locked;
    std::thread([ctx, &locked] {
        std::vector<uint8_t> big(1 << 20, 0x5a);
        rilproxy_ril_requset_param_t param;
        param.request_id = RIL_REQUEST_RADIO_POWER;
        param.serial_no = 0x100;
        param.parcel.setData(big.data(), big.size());
        RilproxyMutexHold hold(&ctx->cmd_thread.sock_mutex);
        locked.set_value();
        ctx->channel->send(ctx->cmd_thread.fd, &param);
    }).detach();
    locked.get_future().wait();
}

void runUntilTeardown(const TeardownCase &c) {
    zok_prop_ver = c.propVer;
    ScopedSocketDir dir;
    RildSim sim("rild-zok");
    vopa_host::set_delivery_listener([](const vopa_host::Delivery &d) {
        fprintf(stderr, "delivered %d [%s]\n", d.id, hex(d.data.data(), 4).c_str());
    });
    TestContext *t = startReader("", c.boundMs);
    if (!sim.acceptClient(5000)) return;
    if (!vopa_host::wait_for_id(EVENT_RILPROXY_STATE_IND, 5000)) return;
    AtCommandRequest request = {};
    request.token = reinterpret_cast<void *>(0x5150);
    t->park(4, vopa_host::new_event(EVENT_RILPROXY_ATCMD_REQ, &request, sizeof(request), 44));
    c.provoke(&sim, t->ctx);
    std::this_thread::sleep_for(std::chrono::seconds(10));
}

TEST_F(ReaderThreadTest, EveryLostConnectionEndsTheProcessAfterTheTeardownInOrder) {
    const TeardownCase cases[] = {
        {"DisabledWhileConnected", 1,
         [](RildSim *, rilproxy_entity_priv_t *ctx) { setEnabled(ctx, 0); },
         "RIL Command thread is disable"},
        {"SenderMarkedLostOldNames", 0,
         [](RildSim *, rilproxy_entity_priv_t *ctx) {
             ctx->cmd_thread.fd.store(-1);
             setEnabled(ctx, 1);
         },
         "connect success"},
        // Faults a hostile daemon or a neighbour in the process provoked, each ended by a bound
        // (shortened here) instead of a spin or a wait for ever.
        {"SocketClosedUnderneath", 1,
         [](RildSim *, rilproxy_entity_priv_t *ctx) { close(ctx->cmd_thread.fd.load()); },
         "select error, errno = 9", 300},
        {"HalfFrame", 1,
         [](RildSim *sim, rilproxy_entity_priv_t *) { sim->writeRaw(bytes("00 00 00 10 00 00")); },
         "socket recv error : Resource temporarily unavailable", 300},
        // The task thread sits in a send under sock_mutex: the teardown must not wait for that
        // lock for ever.
        {"DaemonStopsReading", 1,
         [](RildSim *sim, rilproxy_entity_priv_t *ctx) {
             startStuckSend(ctx);
             EXPECT_GE(dup(sim->clientFd()), 0);  // held open past the test, as a live daemon
         },
         "socket send error : no progress for 300 ms", 300},
    };
    for (const TeardownCase &c : cases) {
        SCOPED_TRACE(c.name);
        const char *prefix = c.propVer < 1 ? "" : "vendor\\.";
        std::string expected = std::string(c.cause) +
                               ".*RIL Command socket \\([0-9]+\\) is closed"
                               ".*delivered 3008 \\[01 00 00 00\\]"
                               ".*delivered 3004 \\[50 51 00 00\\].*release the event index = 4"
                               ".*kill volte process before restart ZOK" +
                               ".*control request ctl\\.stop=" + prefix + "vcd_bridge" +
                               ".*control request ctl\\.stop=" + prefix + "vcd_agent" +
                               ".*control request ctl\\.stop=" + prefix + "vcd_engine" +
                               ".*ZOK will be re-started: exit\n";
        EXPECT_EXIT(runUntilTeardown(c), testing::ExitedWithCode(0), expected);
    }
}

}  // namespace
