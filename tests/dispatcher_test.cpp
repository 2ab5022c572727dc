// The task handler on the host framework's task thread: unknown events and the TLV table ending
// the lookup, connect / disconnect, the forwarding of TLV results, and the AT-command relay down
// to the bytes on the socket.
#include "support/framework_fixture.h"
#include "support/log_capture.h"
#include "transport/reader.h"

namespace {

class DispatcherTest : public FrameworkTest {
protected:
    void SetUp() override {
        FrameworkTest::SetUp();
        t.reset(new TestContext(true));
    }
    // An empty `data` is no payload at all.
    void post(event_id_t id, const std::string &data, uint32_t requester = 9) {
        ASSERT_TRUE(
            vopa_host::post(TASK_ID_RILPROXY, id, data.data(), int(data.size()), requester));
        ASSERT_TRUE(vopa_host::wait_task_idle(TASK_ID_RILPROXY, 2000));
    }
};

TEST_F(DispatcherTest, UnknownEventsAndTheTlvTableEndingTheLookup) {
    LogCapture logs;
    post(2003, "");
    post(9999, "x");
    EXPECT_EQ(logs.countMessage("rilproxy_task_hdl(): an unknown event"), 2);
    EXPECT_EQ(logs.indexOf("rilproxy_task_hdl(), receive event ID EVENT_UNKNOWN(2003)\n"), 0);
    EXPECT_EQ(delivered(4), "");
    // 4017 has rows in both tables; the failed TLV request is answered once, not tried again.
    t->ctx->cmd_thread.fd = -1;
    post(EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ, "x");
    EXPECT_EQ(delivered(4), "reply 9 4018 8 [02 00 00 00]");
}

TEST_F(DispatcherTest, ConnectAndDisconnect) {
    rilproxy_thread_priv_t &cmd = t->ctx->cmd_thread, &urc = t->ctx->urc_thread;
    // clang-format off
    const struct {
        event_id_t id;
        std::string payload;
        uint32_t requester;  // the answer goes to it, or is broadcast when there is none
        const char *cmd_name, *urc_name;
    } steps[] = {
        {2004, "rild-a" + std::string(26, '\0') + "urc-a", 7, "rild-a", "urc-a"},
        {2005, "", 0, "rild-a", "urc-a"},
        // An empty first name keeps the command socket's; a full one loses its last byte.
        {2004, std::string(32, '\0') + "urc-b", 0, "rild-a", "urc-b"},
        {2004, std::string(32, 'x') + "urc-c", 7, "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx", "urc-c"},
    };
    // clang-format on
    for (const auto &s : steps) {
        SCOPED_TRACE(s.urc_name);
        int enabled = s.id == 2004;
        cmd.enabled = urc.enabled = 1 - enabled;
        post(s.id, s.payload, s.requester);
        EXPECT_STREQ(cmd.socket_name, s.cmd_name);
        EXPECT_STREQ(urc.socket_name, s.urc_name);
        EXPECT_EQ(cmd.enabled, enabled);
        EXPECT_EQ(urc.enabled, enabled);
        char wake[8];  // one byte in each pipe; an empty pipe reads -1
        EXPECT_EQ(read(cmd.pipe_fd[0], wake, 8) + read(urc.pipe_fd[0], wake, 8), 2);
        EXPECT_EQ(delivered(4), (s.requester ? "send " : "bcast_ext ") +
                                    std::to_string(s.requester) + " " + std::to_string(s.id) +
                                    " 4 [00 00 00 00]");
    }
    vopa_host::fail_next_allocs(1);  // no reply to send: nothing is delivered, nothing crashes
    post(2005, "");
    EXPECT_EQ(delivered(4), "");
}

TEST_F(DispatcherTest, TlvResultsAnswerTheWaitingEventWithFixedSizes) {
    // clang-format off
    const struct {
        event_id_t id;
        std::string tail;
        const char *answer;  // the rest of the fixed size is zero
    } cases[] = {
        {2006, "\xa1\xa2\xa3", "reply 0 4004 47876 [a1 a2 a3 00 00 00 00 00]"},
        {2007, std::string(264, '\x5a'), "reply 0 4016 264 [5a 5a 5a 5a 5a 5a 5a 5a]"},
        {2008, std::string("\x01\0\0\0\x02\0\0\0\xff", 9),
         "reply 0 4018 8 [01 00 00 00 02 00 00 00]"},
    };
    // clang-format on
    for (const auto &c : cases) {
        uint32_t serial =
            rilproxy_add_event_to_pool(t->ctx, vopa_event_alloc(nullptr)) | RIL_SERIAL_RETRY_FLAG;
        post(c.id, std::string(reinterpret_cast<char *>(&serial), 4) + c.tail);
        std::vector<uint8_t> body = vopa_host::deliveries().at(0).data;
        body.erase(body.begin(), body.begin() + std::min(body.size(), c.tail.size()));
        EXPECT_EQ(std::count(body.begin(), body.end(), 0), std::ptrdiff_t(body.size()));
        EXPECT_EQ(delivered(8), c.answer);
    }
    LogCapture logs;
    event_ptr_t waiting = vopa_event_alloc(nullptr);
    rilproxy_add_event_to_pool(t->ctx, waiting);  // slot 0
    post(2007, std::string("\x03\x02\x00\x40", 4));
    post(2006, "");
    post(2008, std::string(3, '\0'));  // too short for a serial
    EXPECT_TRUE(logs.containsMessage("not found req_event_ptr for serial_no 40000203"));
    EXPECT_TRUE(logs.containsMessage("data (nil) is NULL or data 0 len is 0"));
    EXPECT_NE(logs.messages().back().find(" is NULL or data 3 len is 0"), std::string::npos);
    EXPECT_EQ(t->slot(0), waiting);
}

TEST_F(DispatcherTest, AtCommandRelay) {
    // 511 characters and a NUL fill the 520-byte body; the length word keeps all 600.
    std::string longFrame =
        "00 00 02 18 04 00 00 00 00 00 00 00 4b 08 00 00 00 02 00 00 01 00 00 00 58 02 00 00";
    for (int i = 0; i < 511; ++i) longFrame += " 41";
    enum Setup { kSent, kNoData, kDisconnected, kPoolFull, kSendFails };
    const std::string kNotSent =  // token, reserved, status 5
        "reply 5 3004 4120 [88 77 66 55 44 33 22 11 00 00 00 00 00 00 00 00 05 00 00 00]";
    // clang-format off
    const struct {
        Setup setup;
        uint32_t channel;
        std::string text, log, outcome;  // the frame at the daemon, or the answer to the requester
    } cases[] = {
        {kSent, 308, "AT+C", "", "00 00 00 20 04 00 00 00 00 00 00 00 4e 08 00 00 00 02 00 00 "
                                 "01 00 00 00 04 00 00 00 41 54 2b 43 00 00 00 00"},
        // The channel index wraps below zero.
        {kSent, 300, "AT", "", "00 00 00 1c 04 00 00 00 00 00 00 00 3a 08 00 00 00 02 00 00 "
                               "ff ff ff ff 02 00 00 00 41 54 00 00"},
        {kSent, 307, std::string(600, 'A'), "", longFrame + " 00"},
        {kNoData, 310, "AT", "can't get the data",
         "reply 5 3004 4120 [00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 04 00 00 00]"},
        {kDisconnected, 310, "AT", "RILD is disconnected", kNotSent},
        {kPoolFull, 310, "AT", "event pool is full", kNotSent},
        {kSendFails, 310, "AT", "send ril request fail", kNotSent},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.outcome);
        t.reset();  // one task 202 at a time
        t.reset(new TestContext(true));
        vopa_host::clear_deliveries();  // the old context's parked AT request was answered
        if (c.setup == kDisconnected) t->ctx->cmd_thread.fd = -1;
        if (c.setup == kSendFails) t->dropDaemon();
        for (int i = 0; c.setup == kPoolFull && i < 32; ++i) {
            rilproxy_add_event_to_pool(t->ctx, vopa_event_alloc(nullptr));
        }
        LogCapture logs;
        AtCommandRequest at = {reinterpret_cast<void *>(0x1122334455667788), c.channel, 3,
                               c.text.c_str()};
        post(EVENT_RILPROXY_ATCMD_REQ,
             c.setup == kNoData ? "" : std::string(reinterpret_cast<char *>(&at), sizeof(at)), 5);
        EXPECT_EQ(delivered(20) + t->received(), c.outcome);
        EXPECT_TRUE(c.log.empty() || logs.containsMessage(c.log)) << c.log;
        if (c.setup == kSendFails) {
            EXPECT_EQ(t->ctx->cmd_thread.fd, -1);
            RilproxyMutexHold hold(&t->ctx->event_pool_mutex);
            EXPECT_EQ(t->ctx->held_without_event, 1u);  // the slot stays taken, the event is gone
        }
    }
}

// The daemon stops reading, answers the request the task thread is still sending (the reader
// answers and frees its event), then closes: the failed send must leave that event alone.
TEST_F(DispatcherTest, SendFailingAfterTheAnswerNeitherAnswersNorFreesAgain) {
    AtCommandRequest at = {reinterpret_cast<void *>(0x77), 310, 0, "AT"};
    const struct {
        event_id_t id;
        std::string payload, answer;
    } cases[] = {
        {EVENT_DEACTIVATE_DATA_CALL_REQ, std::string(12, '\0'), "reply 9 4006 8 [02 00 00 00]"},
        {EVENT_RILPROXY_ATCMD_REQ, std::string(reinterpret_cast<char *>(&at), sizeof(at)),
         "reply 9 3004 4120 [77 00 00 00]"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.id);
        t.reset();
        t.reset(new TestContext(true));
        char fill[4096] = {};
        while (send(t->own, fill, sizeof(fill), MSG_DONTWAIT) > 0) continue;
        LogCapture logs;
        ASSERT_TRUE(
            vopa_host::post(TASK_ID_RILPROXY, c.id, c.payload.data(), int(c.payload.size()), 9));
        auto sending = [&] { return logs.lines().back().message.find("send ril") == 0; };
        for (int ms = 0; ms < 5000 && (logs.lines().empty() || !sending()); ms++) usleep(1000);
        std::vector<uint8_t> refused = bytes(
            "00 00 00 10 00 00 00 00 00 00 00 00 00 02 00 00 "
            "02 00 00 00");
        ASSERT_EQ(write(t->peer, refused.data(), refused.size()), 20);
        EXPECT_EQ(rilproxy_read_one_frame(t->ctx, t->own), RILPROXY_FRAME_OK);
        close(t->peer);
        t->peer = -1;
        ASSERT_TRUE(vopa_host::wait_task_idle(TASK_ID_RILPROXY, 5000));
        EXPECT_EQ(delivered(4), c.answer);  // once, by the reader
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
    }
}

}  // namespace
