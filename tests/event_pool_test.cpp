// The event pool and one request through a handler row: serials and slots, the sequence wrap,
// exhaustion, the TLV / old-table difference after a failure, and the release of every event.
#include "core/event_pool.h"

#include <cutils/properties_host.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include "core/handler_lookup.h"
#include "support/log_capture.h"
#include "support/test_context.h"
#include "vopa_host.h"

namespace {

struct ErrCall {
    task_ptr_t task;
    event_ptr_t event;
    event_id_t resp_event_id;
    int error;
};
std::vector<ErrCall> g_errs;
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
    g_errs.push_back({task, event, resp, error});
    return 0;
}

ril_handler_t g_row = {4005, 4006, 41, 0, reqOld, nullptr, errFn};
ril_handler_tlv_t g_tlv_row = {4003, 4004, 2157, 0, reqTlv, nullptr, errFn};
const uint64_t kParked = 0x8000000000000000ull, kTaken = 0x7FFFFFFFFFFFFFFFull;

class EventPoolTest : public ::testing::Test {
protected:
    void SetUp() override {
        vopa_host::reset();
        property_host_reset();
        g_errs.clear();
        g_req_result = 0;
    }
    void TearDown() override {
        delete t;  // empties the pool
        EXPECT_TRUE(vopa_host::wait_no_live_events(2000));
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
    }
    event_ptr_t event(event_id_t id, const void *data = nullptr, int len = 0) {
        event_ptr_t e = vopa_event_alloc(nullptr);
        event_set_id(e, id);
        event_set_data(e, 0, data, len);
        return e;
    }
    uint32_t add(event_ptr_t e) { return rilproxy_add_event_to_pool(t->ctx, e); }
    event_ptr_t take(uint32_t serial) { return rilproxy_take_event_by_serial(t->ctx, serial); }
    TestContext *t = new TestContext;
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
    EXPECT_EQ(vopa_host::statistic_count(kParked), 4u);
    EXPECT_EQ(vopa_host::statistic_count(kTaken), 5u);
}

TEST_F(EventPoolTest, SequenceWrapsAtThe0x100000thAllocation) {
    event_ptr_t e = event(4005);
    for (uint32_t k = 1; k < 0xFFFFF; ++k) take(add(e));
    EXPECT_EQ(add(e), 0x10000000u);
    take(0);
    EXPECT_EQ(add(e), 0x100u);
}

TEST_F(EventPoolTest, RequestsGoOutAndPark) {
    event_ptr_t a = event(4005), b = event(4003);
    EXPECT_EQ(rilproxy_handle_ril_request(t->ctx, a, &g_row), 0);
    EXPECT_EQ(rilproxy_handle_ril_request_tlv(t->ctx, b, &g_tlv_row), 0);
    EXPECT_EQ(t->received(),
              "00 00 00 14 04 00 00 00 00 00 00 00 29 00 00 00 00 02 00 00 0a 00 00 00 "
              "00 00 00 14 04 00 00 00 00 00 00 00 6d 08 00 00 01 03 00 40 6d 08 00 00");
    EXPECT_EQ(t->ctx->event_pool[0], a);
    EXPECT_EQ(t->ctx->event_pool[1], b);
    EXPECT_TRUE(g_errs.empty());
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
        delete t;
        t = new TestContext;
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
        ASSERT_EQ(g_errs.size(), 1u);
        EXPECT_EQ(g_errs[0].task, reinterpret_cast<task_ptr_t>(t->ctx));
        EXPECT_EQ(g_errs[0].event, e);
        EXPECT_EQ(g_errs[0].resp_event_id, c.tlv ? 4004 : 4006);
        EXPECT_EQ(g_errs[0].error, 2);
        EXPECT_EQ(t->ctx->cmd_thread.fd < 0, c.cause == kDisconnected || c.cause == kSend);
        vopa_event_free(e);  // as the dispatcher does; nothing may touch it after this
        if (c.cause != kFull) {
            EXPECT_EQ(take(0), nullptr);
        }
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
    rilproxy_hold_slot_without_event(t->ctx, 0x303);
    LogCapture logs;
    EXPECT_EQ(rilproxy_free_all_event(t->ctx), 0);
    std::vector<std::string> answers;
    for (const auto &d : vopa_host::deliveries()) {
        EXPECT_EQ(d.id, EVENT_RILPROXY_ATCMD_RESP);
        EXPECT_EQ(d.data.size(), 4120u);
        answers.push_back(hex(d.data.data(), 20));
    }
    EXPECT_EQ(answers, (std::vector<std::string>{
                           "88 77 66 55 44 33 22 11 00 00 00 00 00 00 00 00 06 00 00 00",
                           "11 22 33 44 00 00 00 00 00 00 00 00 00 00 00 00 06 00 00 00"}));
    EXPECT_EQ(logs.countMessage("release the event index = 1"), 1);
    EXPECT_EQ(logs.countMessage("release the event index = 3"), 0);
    EXPECT_EQ(t->ctx->held_without_event, 0u);
    EXPECT_EQ(add(event(4005)), 0x200u);
}

TEST_F(EventPoolTest, RetryWithoutRowReleasesTheEvent) {
    LogCapture logs;
    EXPECT_EQ(rilproxy_retry_old_request(t->ctx, event(2003)), 0);
    int retry = logs.indexOf("retry old request for event ID EVENT_UNKNOWN(2003)\n");
    ASSERT_GE(retry, 0);
    EXPECT_GT(logs.indexOf("rilproxy_task_hdl(): an unknown event", retry), retry);
}

TEST(HandlerLookupTest, ScanStopsAtTheFirstIncompleteRow) {
    for (int broken = 0; broken < 4; ++broken) {
        ril_handler_t rows[] = {{4003, 4004, 27, 0, reqOld, nullptr, nullptr},
                                {4005, 4006, 41, 0, reqOld, nullptr, nullptr},
                                {4007, 4008, 2077, 0, reqOld, nullptr, nullptr}};
        int32_t *fields[] = {&rows[1].req_event_id, &rows[1].resp_event_id,
                             &rows[1].ril_request_id};
        if (broken < 3) *fields[broken] = 0;
        if (broken == 3) rows[1].req = nullptr;
        EXPECT_EQ(rilproxy_find_handler(rows, 4003), &rows[0]);
        EXPECT_EQ(rilproxy_find_handler(rows, 4007), nullptr) << broken;
        EXPECT_EQ(rilproxy_find_handler(rows, 4005), nullptr) << broken;
    }
    ril_handler_tlv_t tlv[] = {{4015, 4016, 2159, 0, reqTlv, nullptr, nullptr},
                               {4017, 4018, 2158, 0, nullptr, nullptr, nullptr}};
    EXPECT_EQ(rilproxy_find_handler_tlv(tlv, 4015), &tlv[0]);
    EXPECT_EQ(rilproxy_find_handler_tlv(tlv, 4017), nullptr);
}

}  // namespace
