// The event pool and one request through a handler row: serials and slots, the sequence wrap,
// exhaustion, the TLV / old-table difference after a failure, and the release of every event.
#include "core/event_pool.h"

#include <stdio.h>

#include "core/handler_lookup.h"
#include "support/framework_fixture.h"
#include "support/log_capture.h"

namespace {

std::string g_errs;  // the error function's calls
task_ptr_t g_err_task;
event_ptr_t g_err_event;
int g_req_result = 0;

int reqOld(event_ptr_t, android::Parcel &p, ril_supported_feature_t *f) {
    p.writeInt32(f->sim_id + 10);
    return g_req_result;
}
int reqTlv(event_ptr_t, android::Parcel &p, rilproxy_ril_requset_param_t *param) {
    p.writeInt32(param->request_id);
    return g_req_result;
}
int errFn(task_ptr_t task, event_ptr_t event, event_id_t resp, int error) {
    g_err_task = task;
    g_err_event = event;
    g_errs += "err " + std::to_string(resp) + " " + std::to_string(error) + "; ";
    return 0;
}

ril_handler_t g_row = {4005, 4006, 41, 0, reqOld, nullptr, errFn};
ril_handler_tlv_t g_tlv_row = {4003, 4004, 2157, 0, reqTlv, nullptr, errFn};

class EventPoolTest : public FrameworkTest {
protected:
    void SetUp() override {
        FrameworkTest::SetUp();
        t.reset(new TestContext);
        g_errs.clear();
        g_req_result = 0;
    }
    event_ptr_t event(event_id_t id, const void *data = nullptr, int len = 0) {
        return vopa_host::new_event(id, data, len, 0);
    }
    uint32_t add(event_ptr_t e) { return rilproxy_add_event_to_pool(t->ctx, e); }
    event_ptr_t take(uint32_t serial) { return rilproxy_take_event_by_serial(t->ctx, serial); }
};

TEST_F(EventPoolTest, SerialsNameSlotsOnly) {
    event_ptr_t a = event(4005), b = event(4005), c = event(4005);
    EXPECT_EQ(add(a), 0x200u);
    EXPECT_EQ(add(b), 0x301u);
    EXPECT_EQ(add(c), 0x402u);
    EXPECT_EQ(take(0x7701), b);  // a stale serial takes whatever its slot holds now
    EXPECT_EQ(take(0x301), nullptr);
    for (uint32_t serial : {0x20u, 0x3FFu, 0x400000E1u}) EXPECT_EQ(take(serial), nullptr);
    EXPECT_EQ(add(b), 0x501u);
    EXPECT_EQ(vopa_host::statistic_count(0x8000000000000000ull), 4u);  // parked
    EXPECT_EQ(vopa_host::statistic_count(0x7FFFFFFFFFFFFFFFull), 5u);  // taken, or not found
}

TEST_F(EventPoolTest, SequenceWrapsAtThe0x100000thAllocation) {
    event_ptr_t e = event(4005);
    for (uint32_t k = 1; k < 0xFFFFF; ++k) take(add(e));
    EXPECT_EQ(add(e), 0x10000000u);
    take(0);
    EXPECT_EQ(add(e), 0x100u);
}

TEST_F(EventPoolTest, FailureAnswersWith2AndKeepsOnlyTheOldTableSlot) {
    enum Cause { kDisconnected, kFull, kCallback, kSend };
    const struct {
        bool tlv;
        Cause cause;
        const char *fmt;
        uint32_t next_serial;  // slot 0 stays held after an old-table failure past parking
    } cases[] = {
        {false, kDisconnected, "RILD is disconnected (%p)", 0x200},
        {false, kFull, "event pool is full (%p)", 0},
        {false, kCallback, "callback error (%p)", 0x301},
        {false, kSend, "send ril error (%p)", 0x301},
        {true, kDisconnected, "RILD is disconnected (%p)", 0x200},
        {true, kCallback, "callback error (%p)", 0x300},
        {true, kSend, "send ril error (%p)", 0x300},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.fmt + std::string(c.tlv ? " tlv" : " old"));
        t.reset(new TestContext);
        g_errs.clear();
        g_req_result = c.cause == kCallback ? -1 : 0;
        if (c.cause == kDisconnected) t->ctx->cmd_thread.fd = -1;
        if (c.cause == kSend) t->dropDaemon();
        for (int i = 0; c.cause == kFull && i < 32; ++i) add(event(4005));
        LogCapture logs;
        event_ptr_t e = event(c.tlv ? 4003 : 4005);
        EXPECT_EQ(c.tlv ? rilproxy_handle_ril_request_tlv(t->ctx, e, &g_tlv_row)
                        : rilproxy_handle_ril_request(t->ctx, e, &g_row),
                  -1);
        char msg[64];
        snprintf(msg, sizeof(msg), c.fmt, reinterpret_cast<void *>(errFn));
        EXPECT_TRUE(logs.containsMessage(msg));
        EXPECT_EQ(g_errs, c.tlv ? "err 4004 2; " : "err 4006 2; ");
        EXPECT_TRUE(g_err_task == reinterpret_cast<task_ptr_t>(t->ctx) && g_err_event == e);
        EXPECT_EQ(t->ctx->cmd_thread.fd < 0, c.cause == kDisconnected || c.cause == kSend);
        vopa_event_free(e);  // as the dispatcher does; nothing may touch it after this
        EXPECT_TRUE(c.cause == kFull || take(0) == nullptr);
        event_ptr_t next = event(4005);
        EXPECT_EQ(add(next), c.next_serial);
        if (c.next_serial == 0) vopa_event_free(next);
    }
}

TEST_F(EventPoolTest, FreeAllAnswersAtRequestersOnly) {
    AtCommandRequest at = {reinterpret_cast<void *>(0x1122334455667788), 307, 0, "AT"};
    add(event(EVENT_RILPROXY_ATCMD_REQ, &at, sizeof(at)));
    add(event(4005));
    add(event(EVENT_RILPROXY_ATCMD_REQ, "\x11\x22\x33\x44", 4));  // short: token bytes 0-3 only
    rilproxy_reclaim_event(t->ctx, 0x303, nullptr, true);         // slot 3 held without an event
    LogCapture logs;
    EXPECT_EQ(rilproxy_free_all_event(t->ctx), 0);
    EXPECT_EQ(delivered(20),
              "reply 0 3004 4120 [88 77 66 55 44 33 22 11 00 00 00 00 00 00 00 00 06 00 00 00]; "
              "reply 0 3004 4120 [11 22 33 44 00 00 00 00 00 00 00 00 00 00 00 00 06 00 00 00]");
    EXPECT_EQ(logs.countMessage("release the event index = 1"), 1);
    EXPECT_EQ(logs.countMessage("release the event index = 3"), 0);
    EXPECT_EQ(add(event(4005)), 0x200u);  // every slot free again, the sequence restarted
}

TEST_F(EventPoolTest, RetryWithoutRowReleasesTheEvent) {
    LogCapture logs;
    EXPECT_EQ(rilproxy_retry_old_request(t->ctx, event(2003)), 0);
    int retry = logs.indexOf("retry old request for event ID EVENT_UNKNOWN(2003)\n");
    ASSERT_GE(retry, 0);
    EXPECT_GT(logs.indexOf("rilproxy_task_hdl(): an unknown event", retry), retry);
}

TEST(HandlerLookupTest, ScanStopsAtTheFirstIncompleteRow) {
    const ril_handler_t incomplete[] = {{0, 4006, 41, 0, reqOld, nullptr, nullptr},
                                        {4005, 0, 41, 0, reqOld, nullptr, nullptr},
                                        {4005, 4006, 0, 0, reqOld, nullptr, nullptr},
                                        {4005, 4006, 41, 0, nullptr, nullptr, nullptr}};
    for (const ril_handler_t &middle : incomplete) {
        ril_handler_t rows[] = {{4003, 4004, 27, 0, reqOld, nullptr, nullptr},
                                middle,
                                {4007, 4008, 77, 0, reqOld, nullptr, nullptr}};
        EXPECT_EQ(rilproxy_find_handler(rows, 4003), &rows[0]);
        EXPECT_EQ(rilproxy_find_handler(rows, 4005), nullptr);
        EXPECT_EQ(rilproxy_find_handler(rows, 4007), nullptr);
    }
    ril_handler_tlv_t tlv[] = {{4015, 4016, 2159, 0, reqTlv, nullptr, nullptr},
                               {4017, 4018, 2158, 0, nullptr, nullptr, nullptr}};
    EXPECT_EQ(rilproxy_find_handler_tlv(tlv, 4015), &tlv[0]);
    EXPECT_EQ(rilproxy_find_handler_tlv(tlv, 4017), nullptr);
}

}  // namespace
