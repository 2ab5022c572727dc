// Request frames on a socketpair, the whole-buffer loops and the feature-header parser. send and
// usleep are wrapped at link level (frame_test.cmake) to inject faults a socket cannot produce.
#include "transport/frame.h"

#include <cutils/properties.h>
#include <cutils/properties_host.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <deque>

#include "support/bytes.h"
#include "support/log_capture.h"

namespace {

struct Fault {
    int err;  // non-zero: fail with this errno
    int cap;  // otherwise send at most this many bytes (0: a zero-byte send)
};
std::deque<Fault> g_faults;
std::vector<int> g_flags;
std::vector<unsigned> g_sleeps;

}  // namespace

extern "C" ssize_t __real_send(int fd, const void *buf, size_t len, int flags);
extern "C" ssize_t __wrap_send(int fd, const void *buf, size_t len, int flags) {
    g_flags.push_back(flags);
    if (g_faults.empty()) return __real_send(fd, buf, len, flags);
    Fault f = g_faults.front();
    g_faults.pop_front();
    if (f.err != 0) {
        errno = f.err;
        return -1;
    }
    return f.cap == 0 ? 0 : __real_send(fd, buf, std::min(len, size_t(f.cap)), flags);
}
extern "C" int __wrap_usleep(useconds_t us) {
    g_sleeps.push_back(us);
    return 0;
}

namespace {

class FrameTest : public ::testing::Test {
protected:
    void SetUp() override {
        property_host_reset();
        g_faults.clear();
        g_flags.clear();
        g_sleeps.clear();
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    }
    void TearDown() override {
        close(sv[0]);
        if (sv[1] >= 0) close(sv[1]);
    }
    // Everything the peer has received so far.
    std::string peerBytes() {
        std::vector<uint8_t> all;
        uint8_t buf[4096];
        ssize_t n;
        while ((n = recv(sv[1], buf, sizeof(buf), MSG_DONTWAIT)) > 0)
            all.insert(all.end(), buf, buf + n);
        return hex(all);
    }
    int sv[2];
};

struct FrameCase {
    const char *name;
    const char *simswitch;  // null: unset
    std::vector<int32_t> words;
    int32_t request_id;
    uint32_t serial_no;
    const char *frame;
};

TEST_F(FrameTest, RequestFrameBytes) {
    const FrameCase cases[] = {
        {"empty parcel, default SIM",
         nullptr,
         {},
         41,
         0x205,
         "00 00 00 10 04 00 00 00 00 00 00 00 29 00 00 00 05 02 00 00"},
        {"SIM 2, retry flag",
         "2",
         {2},
         2157,
         0x40000301,
         "00 00 00 14 04 00 00 00 01 00 00 00 6d 08 00 00 01 03 00 40 02 00 00 00"},
        {"SIM 0 gives -1",
         "0",
         {},
         23,
         0x100,
         "00 00 00 10 04 00 00 00 ff ff ff ff 17 00 00 00 00 01 00 00"},
    };
    for (const FrameCase &c : cases) {
        SCOPED_TRACE(c.name);
        property_host_reset();
        if (c.simswitch) property_set("persist.vendor.radio.simswitch", c.simswitch);
        rilproxy_ril_requset_param_t param;
        param.sim_id = 5;  // never what goes out: the SIM is read at send time
        param.request_id = c.request_id;
        param.serial_no = c.serial_no;
        for (int32_t w : c.words) param.parcel.writeInt32(w);
        EXPECT_EQ(rilproxy_send_ril_request(sv[0], &param), 0);
        EXPECT_EQ(peerBytes(), c.frame);
    }
    for (int flags : g_flags) EXPECT_EQ(flags, MSG_NOSIGNAL);
}

TEST_F(FrameTest, HundredBytePayloadGoesOutInASecondSend) {
    rilproxy_ril_requset_param_t param;
    param.request_id = 27;
    param.serial_no = 0x202;
    std::string payload;
    for (int i = 0; i < 25; ++i) {
        param.parcel.writeInt32(0x11223344);
        payload += " 44 33 22 11";
    }
    ASSERT_EQ(rilproxy_send_ril_request(sv[0], &param), 0);
    EXPECT_EQ(peerBytes(), "00 00 00 74 04 00 00 00 00 00 00 00 1b 00 00 00 02 02 00 00" + payload);
    EXPECT_EQ(g_flags.size(), 2u);
}

struct FaultCase {
    const char *name;
    std::vector<Fault> faults;
    bool close_peer;
    int result;
    size_t sleeps;
    std::vector<const char *> errors;  // in order
};

TEST_F(FrameTest, SendFaults) {
    const char *frame = "00 00 00 14 04 00 00 00 00 00 00 00 29 00 00 00 00 02 00 00 07 00 00 00";
    const FaultCase cases[] = {
        {"EAGAIN three times", {{EAGAIN, 0}, {EAGAIN, 0}, {EAGAIN, 0}}, false, 0, 3, {}},
        {"EINTR retried at once", {{EINTR, 0}, {EINTR, 0}}, false, 0, 0, {}},
        {"short writes", {{0, 3}, {0, 5}, {0, 1}, {0, 11}, {0, 2}}, false, 0, 0, {}},
        {"peer closes after 8 header bytes",
         {{0, 8}, {0, 0}},
         false,
         -1,
         0,
         {"socket closed", "send header error"}},
        {"payload cut", {{0, 20}, {0, 0}}, false, -2, 0, {"socket closed", "send data error"}},
        {"payload error",
         {{0, 20}, {ECONNRESET, 0}},
         false,
         -2,
         0,
         {"socket recv error : Connection reset by peer", "send data error"}},
        {"peer gone, no SIGPIPE",
         {},
         true,
         -1,
         0,
         {"socket recv error : Broken pipe", "send header error"}},
    };
    for (const FaultCase &c : cases) {
        SCOPED_TRACE(c.name);
        TearDown();
        SetUp();
        g_faults.assign(c.faults.begin(), c.faults.end());
        if (c.close_peer) {
            close(sv[1]);
            sv[1] = -1;
        }
        LogCapture logs;
        rilproxy_ril_requset_param_t param;
        param.request_id = 41;
        param.serial_no = 0x200;
        param.parcel.writeInt32(7);
        EXPECT_EQ(rilproxy_send_ril_request(sv[0], &param), c.result);
        EXPECT_EQ(g_sleeps, std::vector<unsigned>(c.sleeps, 1000));
        int at = 0;
        for (const char *e : c.errors) {
            at = logs.indexOf(e, at);
            EXPECT_GE(at, 0) << e;
        }
        if (c.result == 0) {
            EXPECT_EQ(peerBytes(), frame);
        }
    }
}

TEST_F(FrameTest, ReceiveLoop) {
    LogCapture logs;
    char buf[8] = {};
    ASSERT_EQ(write(sv[1], "\x0a\x0b\x0c\x0d\x0e", 5), 5);
    EXPECT_EQ(_recv_full(sv[0], buf, 4), 4);
    EXPECT_EQ(hex(buf, 4), "0a 0b 0c 0d");
    close(sv[1]);
    sv[1] = -1;
    EXPECT_EQ(_recv_full(sv[0], buf, 8), 1);  // the 0e left over, then the close
    EXPECT_TRUE(logs.containsMessage("socket closed"));
    EXPECT_EQ(_send_full(sv[0], buf, 0), 0);
    EXPECT_TRUE(g_flags.empty());

    // The receive side does not retry EAGAIN: the socket is meant to be blocking.
    int p[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, p), 0);
    EXPECT_EQ(_recv_full(p[0], buf, 4), -1);
    EXPECT_TRUE(logs.containsMessage("socket recv error : Resource temporarily unavailable"));
    close(p[0]);
    close(p[1]);
}

struct HeaderCase {
    const char *name;
    const char *buffer;  // the header and, after it, what the caller's buffer holds
    uint32_t header_size;
    int32_t sim_id;
};

TEST(ParseRespHeaderTest, Cases) {
    const HeaderCase cases[] = {
        {"SIM id after one mask", "01 00 00 00 02 00 00 00", 8, 2},
        {"no SIM bit", "00 00 00 00 02 00 00 00", 8, 0},
        {"chained mask", "01 80 00 00 00 00 00 00 07 00 00 00", 12, 7},
        {"4-byte header reads the zeroed word", "01 00 00 00 00 00 00 00", 4, 0},
        {"not past an 8-byte header", "01 80 00 00 00 00 00 00 05 00 00 00", 8, 0},
        {"odd size: missing bytes are zero", "01 00 00 00 07 00 09 09", 6, 7},
        {"chain longer than the slots",
         "01 80 00 00 00 80 00 00 00 80 00 00 00 80 00 00 00 80 00 00 00 80 00 00 00 80 00 00 "
         "00 80 00 00 00 80 00 00 00 00 00 00 2a 00 00 00",
         44, 42},
        {"endless chain stops at the header end", "01 80 00 00 01 80 00 00 01 80 00 00 63 00 00 00",
         12, 0},
    };
    for (const HeaderCase &c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<uint8_t> raw = bytes(c.buffer);
        std::vector<uint32_t> words((raw.size() + 3) / 4);
        memcpy(words.data(), raw.data(), raw.size());
        ril_supported_feature_t out = {0};
        rilproxy_parse_resp_header(words.data(), c.header_size, &out);
        EXPECT_EQ(out.sim_id, c.sim_id);
    }
}

}  // namespace
