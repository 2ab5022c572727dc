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
    int err;  // non-zero: fail with this errno; else send at most `cap` bytes (0: a zero send)
    int cap;
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
    if (f.err != 0) errno = f.err;
    if (f.err != 0) return -1;
    return f.cap == 0 ? 0 : __real_send(fd, buf, std::min(len, size_t(f.cap)), flags);
}
extern "C" int __wrap_usleep(useconds_t us) {
    g_sleeps.push_back(us);
    return 0;
}

namespace {

struct Pair {
    int sv[2];
    Pair() { socketpair(AF_UNIX, SOCK_STREAM, 0, sv); }
    ~Pair() { close(sv[0]), close(sv[1]); }
    std::string received() {  // everything the peer end holds so far
        std::vector<uint8_t> all(4096);
        ssize_t n = recv(sv[1], all.data(), all.size(), MSG_DONTWAIT);
        all.resize(n > 0 ? n : 0);
        return hex(all);
    }
};

std::string times(const std::string &s, int n) {
    std::string out;
    while (n-- > 0) out += s;
    return out;
}

struct FrameCase {
    const char *simswitch;  // null: unset
    std::vector<int32_t> words;
    int32_t request_id;
    uint32_t serial_no;
    std::string frame;
    size_t sends;
};

TEST(FrameTest, RequestFrameBytes) {
    const FrameCase cases[] = {
        {nullptr, {}, 41, 0x205, "00 00 00 10 04 00 00 00 00 00 00 00 29 00 00 00 05 02 00 00", 1},
        {"2",
         {2},
         2157,
         0x40000301,
         "00 00 00 14 04 00 00 00 01 00 00 00 6d 08 00 00 01 03 00 40 02 00 00 00",
         2},
        {"0", {}, 23, 0x100, "00 00 00 10 04 00 00 00 ff ff ff ff 17 00 00 00 00 01 00 00", 1},
        {nullptr, std::vector<int32_t>(25, 0x11223344), 27, 0x202,
         "00 00 00 74 04 00 00 00 00 00 00 00 1b 00 00 00 02 02 00 00" + times(" 44 33 22 11", 25),
         2},
    };
    for (const FrameCase &c : cases) {
        SCOPED_TRACE(c.frame);
        property_host_reset();
        if (c.simswitch) property_set("persist.vendor.radio.simswitch", c.simswitch);
        g_flags.clear();
        Pair pair;
        rilproxy_ril_requset_param_t param;
        param.sim_id = 5;  // never what goes out: the SIM is read at send time
        param.request_id = c.request_id;
        param.serial_no = c.serial_no;
        for (int32_t w : c.words) param.parcel.writeInt32(w);
        EXPECT_EQ(rilproxy_send_ril_request(pair.sv[0], &param), 0);
        EXPECT_EQ(pair.received(), c.frame);
        EXPECT_EQ(g_flags, std::vector<int>(c.sends, MSG_NOSIGNAL));
    }
}

struct FaultCase {
    std::vector<Fault> faults;
    bool close_peer;
    int result;
    size_t sleeps;
    std::vector<const char *> errors;  // in this order
};

TEST(FrameTest, SendFaults) {
    const FaultCase cases[] = {
        {{{EAGAIN, 0}, {EAGAIN, 0}, {EAGAIN, 0}}, false, 0, 3, {}},
        {{{EINTR, 0}, {EINTR, 0}}, false, 0, 0, {}},
        {{{0, 3}, {0, 5}, {0, 1}, {0, 11}, {0, 2}}, false, 0, 0, {}},
        {{{0, 8}, {0, 0}}, false, -1, 0, {"socket closed", "send header error"}},
        {{{0, 20}, {0, 0}}, false, -2, 0, {"socket closed", "send data error"}},
        {{{0, 20}, {ECONNRESET, 0}},
         false,
         -2,
         0,
         {"socket recv error : Connection reset by peer", "send data error"}},
        {{}, true, -1, 0, {"socket recv error : Broken pipe", "send header error"}},
    };
    for (const FaultCase &c : cases) {
        SCOPED_TRACE(c.result);
        g_faults.assign(c.faults.begin(), c.faults.end());
        g_sleeps.clear();
        Pair pair;
        if (c.close_peer) shutdown(pair.sv[1], SHUT_RD);  // the peer is gone: EPIPE, no SIGPIPE
        LogCapture logs;
        rilproxy_ril_requset_param_t param;
        param.request_id = 41;
        param.serial_no = 0x200;
        param.parcel.writeInt32(7);
        EXPECT_EQ(rilproxy_send_ril_request(pair.sv[0], &param), c.result);
        EXPECT_EQ(g_sleeps, std::vector<unsigned>(c.sleeps, 1000));
        int at = 0;
        for (const char *e : c.errors) EXPECT_GE(at = logs.indexOf(e, at), 0) << e;
        if (c.result == 0) {
            EXPECT_EQ(pair.received(),
                      "00 00 00 14 04 00 00 00 00 00 00 00 29 00 00 00 00 02 00 00 07 00 00 00");
        }
    }
}

TEST(FrameTest, ReceiveLoop) {
    LogCapture logs;
    Pair pair;
    char buf[8] = {};
    ASSERT_EQ(write(pair.sv[1], "\x0a\x0b\x0c\x0d\x0e", 5), 5);
    EXPECT_EQ(_recv_full(pair.sv[0], buf, 4), 4);
    EXPECT_EQ(hex(buf, 4), "0a 0b 0c 0d");
    shutdown(pair.sv[1], SHUT_WR);
    EXPECT_EQ(_recv_full(pair.sv[0], buf, 8), 1);  // the 0e left over, then the close
    EXPECT_TRUE(logs.containsMessage("socket closed"));
    // Unlike the send side, EAGAIN is not retried: the socket is meant to be blocking.
    fcntl(pair.sv[1], F_SETFL, O_NONBLOCK);
    EXPECT_EQ(_recv_full(pair.sv[1], buf, 4), -1);
    EXPECT_TRUE(logs.containsMessage("socket recv error : Resource temporarily unavailable"));
}

TEST(FrameTest, ParseRespHeader) {
    const struct {
        std::string buffer;  // the header, then what the caller's buffer holds after it
        uint32_t header_size;
        int32_t sim_id;
    } cases[] = {
        {"01 00 00 00 02 00 00 00", 8, 2},
        {"00 00 00 00 02 00 00 00", 8, 0},
        {"01 80 00 00 00 00 00 00 07 00 00 00", 12, 7},
        {"01 00 00 00 00 00 00 00", 4, 0},              // the zeroed word past a 4-byte header
        {"01 80 00 00 00 00 00 00 05 00 00 00", 8, 0},  // nothing past an 8-byte header
        {"01 00 00 00 07 00 09 09", 6, 7},              // bytes past the size read as zero
        {"01 80 00 00 01 80 00 00 01 80 00 00 63 00 00 00", 12, 0},
        {"01 80 00 00" + times(" 00 80 00 00", 8) + " 00 00 00 00 2a 00 00 00", 44, 42},
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

}  // namespace
