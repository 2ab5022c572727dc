// The task handler on the host framework's task thread: routing, connect / disconnect, the
// forwarding of TLV results, and the AT-command relay down to the bytes on the socket.
#include <cutils/properties_host.h>
#include <gtest/gtest.h>
#include <string.h>

#include "support/log_capture.h"
#include "support/test_context.h"
#include "vopa_host.h"

namespace {

class DispatcherTest : public ::testing::Test {
protected:
    void SetUp() override {
        vopa_host::reset();
        property_host_reset();
    }
    void TearDown() override {
        delete t;
        EXPECT_TRUE(vopa_host::wait_no_live_events(2000));
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
    }
    void post(event_id_t id, const void *data, int len, uint32_t requester = 9) {
        ASSERT_TRUE(vopa_host::post(TASK_ID_RILPROXY, id, data, len, requester));
        ASSERT_TRUE(vopa_host::wait_task_idle(TASK_ID_RILPROXY, 2000));
    }
    void post(event_id_t id, const std::string &data, uint32_t requester = 9) {
        post(id, data.data(), static_cast<int>(data.size()), requester);
    }
    std::string pipeBytes(int fd) {
        char buf[64];
        ssize_t n = read(fd, buf, sizeof(buf));
        return std::string(buf, n > 0 ? n : 0);
    }
    TestContext *t = new TestContext(true);
};

TEST_F(DispatcherTest, EventsWithoutCaseOrRowAreUnknown) {
    LogCapture logs;
    post(2003, nullptr, 0);
    post(9999, "x", 1);
    EXPECT_EQ(logs.countMessage("rilproxy_task_hdl(): an unknown event"), 2);
    EXPECT_EQ(logs.indexOf("rilproxy_task_hdl(), receive event ID EVENT_UNKNOWN(2003)\n"), 0);
    EXPECT_TRUE(vopa_host::deliveries().empty());
}

TEST_F(DispatcherTest, ConnectAndDisconnect) {
    rilproxy_thread_priv_t &cmd = t->ctx->cmd_thread, &urc = t->ctx->urc_thread;
    const struct {
        event_id_t id;
        std::string payload;
        uint32_t requester;
        const char *cmd_name, *urc_name;
        int enabled;
        vopa_host::DeliveryKind kind;
    } steps[] = {
        {2004, "rild-a" + std::string(26, '\0') + "urc-a", 7, "rild-a", "urc-a", 1,
         vopa_host::DeliveryKind::Send},
        {2005, "", 0, "rild-a", "urc-a", 0, vopa_host::DeliveryKind::BcastExt},
        {2004, std::string(32, '\0') + "urc-b", 0, "rild-a", "urc-b", 1,
         vopa_host::DeliveryKind::BcastExt},
        {2004, std::string(32, 'x') + "urc-c", 7, "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx", "urc-c", 1,
         vopa_host::DeliveryKind::Send},
    };
    for (const auto &s : steps) {
        SCOPED_TRACE(s.payload);
        vopa_host::clear_deliveries();
        cmd.enabled = urc.enabled = 1 - s.enabled;
        post(s.id, s.payload, s.requester);
        EXPECT_STREQ(cmd.socket_name, s.cmd_name);
        EXPECT_STREQ(urc.socket_name, s.urc_name);
        EXPECT_EQ(cmd.enabled, s.enabled);
        EXPECT_EQ(urc.enabled, s.enabled);
        EXPECT_EQ(pipeBytes(cmd.pipe_fd[0]), " ");
        EXPECT_EQ(pipeBytes(urc.pipe_fd[0]), " ");
        auto d = vopa_host::deliveries();
        ASSERT_EQ(d.size(), 1u);
        EXPECT_EQ(d[0].kind, s.kind);
        EXPECT_EQ(d[0].to, static_cast<int32_t>(s.requester));
        EXPECT_EQ(d[0].id, s.id);
        EXPECT_EQ(hex(d[0].data), "00 00 00 00");
    }
    vopa_host::fail_next_allocs(1);  // no reply to send: nothing is delivered, nothing crashes
    vopa_host::clear_deliveries();
    post(2005, nullptr, 0);
    EXPECT_TRUE(vopa_host::deliveries().empty());
}

TEST_F(DispatcherTest, TlvResultsAnswerTheWaitingEventWithFixedSizes) {
    const struct {
        event_id_t id, resp;
        std::string tail;
        size_t size;
        const char *head;  // first bytes of the answer; the rest is zero
    } cases[] = {
        {2006, 4004, "\xa1\xa2\xa3", 47876, "a1 a2 a3 00"},
        {2007, 4016, std::string(264, '\x5a'), 264, "5a 5a 5a 5a"},
        {2008, 4018, std::string("\x01\0\0\0\x02\0\0\0\xff", 9), 8, "01 00 00 00 02 00 00 00"},
    };
    for (const auto &c : cases) {
        vopa_host::clear_deliveries();
        event_ptr_t waiting = vopa_event_alloc(nullptr);
        uint32_t serial = rilproxy_add_event_to_pool(t->ctx, waiting) | RIL_SERIAL_RETRY_FLAG;
        post(c.id, std::string(reinterpret_cast<char *>(&serial), 4) + c.tail);
        auto d = vopa_host::deliveries();
        ASSERT_EQ(d.size(), 1u);
        EXPECT_EQ(d[0].id, c.resp);
        ASSERT_EQ(d[0].data.size(), c.size);
        std::string head = c.head;
        EXPECT_EQ(hex(d[0].data.data(), (head.size() + 1) / 3), head);
        size_t nonzero = 0;
        for (size_t i = c.tail.size(); i < c.size; ++i) nonzero += d[0].data[i] != 0;
        EXPECT_EQ(nonzero, 0u);
    }
    LogCapture logs;
    event_ptr_t waiting = vopa_event_alloc(nullptr);
    rilproxy_add_event_to_pool(t->ctx, waiting);  // slot 0
    post(2007, "\x03\x02\x00\x40", 4);
    post(2006, nullptr, 0);
    post(2008, "\x00\x00\x00", 3);  // too short for a serial
    EXPECT_TRUE(logs.containsMessage("not found req_event_ptr for serial_no 40000203"));
    EXPECT_TRUE(logs.containsMessage("data (nil) is NULL or data 0 len is 0"));
    int short_payload = 0;
    for (const std::string &m : logs.messages()) {
        short_payload += m.find(" is NULL or data 3 len is 0") != std::string::npos;
    }
    EXPECT_EQ(short_payload, 1);
    EXPECT_EQ(t->ctx->event_pool[0], waiting);
}

TEST_F(DispatcherTest, AtCommandFrames) {
    // 511 characters and a NUL fill the 520-byte body; the length word keeps all 600.
    std::string long_text(600, 'A');
    std::string long_frame =
        "00 00 02 18 04 00 00 00 00 00 00 00 4b 08 00 00 00 02 00 00 01 00 00 00 58 02 00 00";
    for (int i = 0; i < 511; ++i) long_frame += " 41";
    long_frame += " 00";
    const struct {
        uint32_t channel;
        const char *text;
        std::string frame;
        const char *log;
    } cases[] = {
        {307, "AT+CSQ",
         "00 00 00 20 04 00 00 00 00 00 00 00 4b 08 00 00 00 02 00 00 01 00 00 00 06 00 00 00 "
         "41 54 2b 43 53 51 00 00",
         "req channel = 307, ril_request_id = 2123, channel = 1"},
        {308, "AT",
         "00 00 00 1c 04 00 00 00 00 00 00 00 4e 08 00 00 00 02 00 00 01 00 00 00 02 00 00 00 "
         "41 54 00 00",
         "req channel = 308, ril_request_id = 2126, channel = 1"},
        {301, "ATE",
         "00 00 00 1c 04 00 00 00 00 00 00 00 3a 08 00 00 00 02 00 00 00 00 00 00 03 00 00 00 "
         "41 54 45 00",
         "req channel = 301, ril_request_id = 2106, channel = 0"},
        {300, "AT",
         "00 00 00 1c 04 00 00 00 00 00 00 00 3a 08 00 00 00 02 00 00 ff ff ff ff 02 00 00 00 "
         "41 54 00 00",
         "req channel = 300, ril_request_id = 2106, channel = -1"},
        {307, long_text.c_str(), long_frame,
         "req channel = 307, ril_request_id = 2123, channel = 1"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.log);
        delete t;
        t = new TestContext(true);
        vopa_host::clear_deliveries();
        LogCapture logs;
        AtCommandRequest at = {reinterpret_cast<void *>(0x55), c.channel, 3, c.text};
        post(EVENT_RILPROXY_ATCMD_REQ, &at, sizeof(at));
        EXPECT_TRUE(logs.containsMessage(c.log));
        EXPECT_EQ(t->received(), c.frame);
        EXPECT_NE(t->ctx->event_pool[0], nullptr);  // parked until the daemon answers
        EXPECT_TRUE(vopa_host::deliveries().empty());
    }
}

TEST_F(DispatcherTest, AtCommandFailuresAnswerWithStatus) {
    enum Setup { kNoData, kDisconnected, kPoolFull, kSendFails };
    const struct {
        Setup setup;
        const char *log;
        const char *answer;  // token, reserved, status
    } cases[] = {
        {kNoData, "can't get the data",
         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 04 00 00 00"},
        {kDisconnected, "RILD is disconnected",
         "88 77 66 55 44 33 22 11 00 00 00 00 00 00 00 00 05 00 00 00"},
        {kPoolFull, "event pool is full",
         "88 77 66 55 44 33 22 11 00 00 00 00 00 00 00 00 05 00 00 00"},
        {kSendFails, "send ril request fail",
         "88 77 66 55 44 33 22 11 00 00 00 00 00 00 00 00 05 00 00 00"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.log);
        delete t;
        t = new TestContext(true);
        vopa_host::clear_deliveries();
        if (c.setup == kDisconnected) t->ctx->cmd_thread.fd = -1;
        if (c.setup == kSendFails) t->dropDaemon();
        for (int i = 0; c.setup == kPoolFull && i < 32; ++i) {
            rilproxy_add_event_to_pool(t->ctx, vopa_event_alloc(nullptr));
        }
        LogCapture logs;
        AtCommandRequest at = {reinterpret_cast<void *>(0x1122334455667788), 310, 0, "AT"};
        post(EVENT_RILPROXY_ATCMD_REQ, c.setup == kNoData ? nullptr : &at, sizeof(at), 5);
        EXPECT_TRUE(logs.containsMessage(c.log));
        auto d = vopa_host::deliveries();
        ASSERT_EQ(d.size(), 1u);
        EXPECT_EQ(d[0].to, 5);
        EXPECT_EQ(hex(d[0].data.data(), 20), c.answer);
        if (c.setup == kSendFails) {
            EXPECT_EQ(t->ctx->cmd_thread.fd, -1);
            EXPECT_EQ(t->ctx->held_without_event, 1u);  // the slot stays taken, the event is gone
        }
    }
}

}  // namespace
