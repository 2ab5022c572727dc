// Request frames, the whole-buffer loops, the feature-header parser and the channel's writes and
// waits. send, usleep and poll are wrapped at link level to inject what a socket cannot produce on
// demand (EINTR, EAGAIN, zero-byte and short sends, an interrupted wait) and to count the back-off
// sleeps without sleeping.
#include "transport/frame.h"

#include <cutils/properties.h>
#include <cutils/properties_host.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <deque>
#include <future>

#include "support/log_capture.h"
#include "support/test_context.h"
#include "transport/reader.h"

namespace {
// Each send takes the next fault: {errno, 0} fails with errno; {0, n} sends at most n bytes, and
// {0, 0} is a zero-byte send. Without faults, send goes to the socket.
std::deque<std::pair<int, int>> g_faults;
int g_sleeps = 0;
int g_pollErrno = 0;  // the next poll fails with it
}  // namespace

extern "C" int __real_poll(pollfd *fds, nfds_t n, int timeout);
extern "C" int __wrap_poll(pollfd *fds, nfds_t n, int timeout) {
    errno = g_pollErrno;
    g_pollErrno = 0;
    return errno != 0 ? -1 : __real_poll(fds, n, timeout);
}

extern "C" ssize_t __real_send(int fd, const void *buf, size_t len, int flags);
extern "C" ssize_t __wrap_send(int fd, const void *buf, size_t len, int flags) {
    if (g_faults.empty()) return __real_send(fd, buf, len, flags);
    auto [err, cap] = g_faults.front();
    g_faults.pop_front();
    errno = err;
    if (err != 0 || cap == 0) return err != 0 ? -1 : 0;
    return __real_send(fd, buf, std::min(len, size_t(cap)), flags);
}
extern "C" int __wrap_usleep(useconds_t us) {
    EXPECT_EQ(us, 1000u);
    g_sleeps++;
    return 0;
}

namespace {

TEST(FrameTest, SendFaults) {
    const struct {
        std::vector<std::pair<int, int>> faults;
        bool peer_gone;  // EPIPE, which MSG_NOSIGNAL turns from a signal into an error
        int result, sleeps;
        const char *error;  // then "send header error" (-1) or "send data error" (-2)
    } cases[] = {
        {{{EAGAIN, 0}, {0, 3}, {EINTR, 0}, {EAGAIN, 0}, {0, 6}}, false, 0, 2, nullptr},
        {{{0, 8}, {0, 0}}, false, -1, 0, "socket closed"},
        {{{0, 20}, {ECONNRESET, 0}}, false, -2, 0, "socket recv error : Connection reset by peer"},
        {{}, true, -1, 0, "socket recv error : Broken pipe"},
    };
    property_host_reset();
    property_set("persist.vendor.radio.simswitch", "2");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.result);
        g_faults.assign(c.faults.begin(), c.faults.end());
        g_sleeps = 0;
        TestContext t;
        if (c.peer_gone) t.dropDaemon();
        LogCapture logs;
        rilproxy_ril_requset_param_t param;
        param.sim_id = 5;  // never what goes out: the SIM is read at send time
        param.request_id = 41;
        param.serial_no = 0x200;
        param.parcel.writeInt32(7);
        EXPECT_EQ(rilproxy_send_ril_request(t.own, &param), c.result);
        EXPECT_EQ(g_sleeps, c.sleeps);
        if (c.result == 0) {
            EXPECT_EQ(t.received(),
                      "00 00 00 14 04 00 00 00 01 00 00 00 29 00 00 00 00 02 00 00 07 00 00 00");
        } else {
            int at = logs.indexOf(c.error);
            EXPECT_GE(at, 0);
            EXPECT_GT(logs.indexOf(c.result == -1 ? "send header error" : "send data error", at),
                      at);
        }
    }
}

TEST(FrameTest, ReceiveLoop) {
    LogCapture logs;
    TestContext t;
    char buf[8] = {};
    ASSERT_EQ(write(t.peer, "\x0a\x0b\x0c\x0d\x0e", 5), 5);
    EXPECT_EQ(_recv_full(t.own, buf, 4), 4);
    EXPECT_EQ(hex(buf, 4), "0a 0b 0c 0d");
    shutdown(t.peer, SHUT_WR);
    EXPECT_EQ(_recv_full(t.own, buf, 8), 1);  // the 0e left over, then the close
    EXPECT_TRUE(logs.containsMessage("socket closed"));
    // Unlike the send side, EAGAIN is not retried: the socket is meant to be blocking.
    fcntl(t.peer, F_SETFL, O_NONBLOCK);
    EXPECT_EQ(_recv_full(t.peer, buf, 4), -1);
    EXPECT_TRUE(logs.containsMessage("socket recv error : Resource temporarily unavailable"));
}

TEST(FrameTest, ParseRespHeader) {
    const struct {
        std::string buffer;  // the header, then what the caller's buffer holds after it
        uint32_t header_size;
        int32_t sim_id;
    } cases[] = {
        {"00 00 00 00 02 00 00 00", 8, 0},
        {"01 80 00 00 00 00 00 00 07 00 00 00", 12, 7},
        {"01 00 00 00 00 00 00 00", 4, 0},              // the zeroed word past a 4-byte header
        {"01 80 00 00 00 00 00 00 05 00 00 00", 8, 0},  // nothing past an 8-byte header
        {"01 00 00 00 07 00 09 09", 6, 7},              // bytes past the size read as zero
        {"01 80 00 00 01 80 00 00 01 80 00 00 63 00 00 00", 12, 0},
        // Ten mask words, two more than the parser keeps.
        {"01 80 00 00 00 80 00 00 00 80 00 00 00 80 00 00 00 80 00 00 00 80 00 00 00 80 00 00 "
         "00 80 00 00 00 80 00 00 00 00 00 00 2a 00 00 00",
         44, 42},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.buffer);
        std::vector<uint8_t> raw = bytes(c.buffer);
        std::vector<uint32_t> words(raw.size() / 4);
        memcpy(words.data(), raw.data(), raw.size());
        ril_supported_feature_t out = {0};
        rilproxy_parse_resp_header(words.data(), c.header_size, &out);
        EXPECT_EQ(out.sim_id, c.sim_id);
    }
}

rilproxy_ril_requset_param_t &request(rilproxy_ril_requset_param_t &param) {
    param.request_id = 41;
    param.serial_no = 0x200;
    param.parcel.writeInt32(7);
    return param;
}

const std::string kFrame =
    "00 00 00 14 04 00 00 00 01 00 00 00 29 00 00 00 00 02 00 00 07 00 00 00";

// The reader's queued frame goes out whole whatever the sends take: nothing lost or repeated.
TEST(ChannelTest, QueuedFrameThroughShortRefusedAndFailedSends) {
    const struct {
        std::vector<std::pair<int, int>> faults;
        int queued, flushes;  // flushes that leave bytes waiting
        size_t bytes;         // at the daemon
        const char *error;
    } cases[] = {
        {{{0, 3}, {EAGAIN, 0}, {EINTR, 0}, {0, 5}, {EAGAIN, 0}, {0, 1}}, 0, 1, 24, nullptr},
        {{{0, 19}, {0, 0}}, -2, 0, 19, "socket closed"},
        {{{ECONNRESET, 0}}, -2, 0, 0, "socket recv error : Connection reset by peer"},
    };
    property_set("persist.vendor.radio.simswitch", "2");
    for (const auto &c : cases) {
        g_faults.assign(c.faults.begin(), c.faults.end());
        TestContext t;
        LogCapture logs;
        rilproxy_ril_requset_param_t param;
        EXPECT_EQ(t.ctx->channel->queue(t.own, &request(param)), c.queued);
        int flushes = 0;
        while (t.ctx->channel->flush(t.own) == RILPROXY_OUTBOX_WAITS_FOR_SOCKET) flushes++;
        EXPECT_EQ(flushes, c.flushes);
        EXPECT_EQ(t.received(), kFrame.substr(0, c.bytes ? c.bytes * 3 - 1 : 0));
        EXPECT_TRUE(c.error == nullptr || logs.containsMessage(c.error));
    }
    // Frames that went out no longer count against the ceiling, though the outbox never empties:
    // each frame leaves one byte more waiting.
    TestContext t;
    LogCapture quiet;
    std::string all;
    for (unsigned i = 0; i <= kRilproxyOutboxFrames; i++) {
        g_faults.assign({{0, 23}, {EAGAIN, 0}});
        rilproxy_ril_requset_param_t param;
        ASSERT_EQ(t.ctx->channel->queue(t.own, &request(param)), 0);
        all += (all.empty() ? "" : " ") + kFrame;
    }
    EXPECT_EQ(t.ctx->channel->flush(t.own), RILPROXY_OUTBOX_EMPTY);
    EXPECT_EQ(t.received(), all);
}

// The teardown ends a task thread's wait for the token that the reader holds with a half-written
// frame, and the send that follows; the reader's stalled write is seen by the watch.
TEST(ChannelTest, TeardownFreesTheTokenTheReaderHolds) {
    TestContext t;
    RilChannel &channel = *t.ctx->channel;
    char fill[4096] = {};
    while (send(t.own, fill, sizeof(fill), MSG_DONTWAIT) > 0) continue;
    rilproxy_ril_requset_param_t queued, sent;
    ASSERT_EQ(channel.queue(t.own, &request(queued)), 0);
    EXPECT_EQ(channel.flush(t.own), RILPROXY_OUTBOX_WAITS_FOR_SOCKET);
    EXPECT_FALSE(channel.writeStalled());
    channel.setBoundsForTest(0, 0);
    EXPECT_TRUE(channel.writeStalled());
    std::promise<int> result;
    std::thread([&] { result.set_value(channel.send(t.own, &request(sent))); }).detach();
    channel.dropOutbox();
    shutdown(t.own, SHUT_RDWR);
    auto done = result.get_future();
    ASSERT_EQ(done.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(done.get(), -1);
}

// A number poll reported invalid may name someone else's descriptor by the teardown: it is
// forgotten, not closed.
TEST(ChannelTest, TeardownLeavesAForeignNumberOpen) {
    TestContext t;
    {
        RilproxyMutexHold hold(&t.ctx->channel->mRecord->sock_mutex);
        t.ctx->channel->closeSocket(false);
    }
    EXPECT_EQ(t.ctx->cmd_thread.fd, -1);
    EXPECT_EQ(close(t.own), 0);
}

// An interrupted wait is no error; any other failure of the wait is logged.
TEST(ChannelTest, InterruptedWaitIsNotLogged) {
    TestContext t;
    for (int err : {EINTR, ENOMEM}) {
        LogCapture logs;
        g_pollErrno = err;
        EXPECT_EQ(rilproxy_check_thread_pipe(&t.ctx->cmd_thread, t.own, 0), -1);
        EXPECT_EQ(logs.messages().size(), err == EINTR ? 0u : 1u);
    }
}

}  // namespace
