// Every event the entity emits towards the framework: ids, routing, exact payload bytes, and what
// happens without a task or without memory.
#include "core/replies.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "vopa_host.h"

namespace {

using vopa_host::DeliveryKind;

// Any non-null task object will do: the host framework's delivery services do not need the
// sender to be registered.
vopa_task_t gSender = {};
constexpr int32_t kRequester = 77;

struct Case {
    const char *name;
    int (*call)(task_ptr_t, event_ptr_t);
    DeliveryKind kind;
    event_id_t id;
    int32_t to;
    size_t size;
    const char *head;  // hex; every byte after it is zero
};

uint8_t gData[5] = {1, 2, 3, 4, 5};
char gAtText[] = "\r\nOK";
void *const kToken = reinterpret_cast<void *>(uintptr_t{0x1122334455667788});

// The table's calls, with the sender task and the request event as `t` and `e`.
#define CALL(call) [](task_ptr_t t, event_ptr_t e) { return ((void)t, (void)e, call); }

const Case kCases[] = {
    {"reply", CALL(rilproxy_reply_response(t, e, 4006, gData, 5)), DeliveryKind::Reply, 4006,
     kRequester, 5, "01 02 03 04 05"},
    {"status only", CALL(rilproxy_reply_response_only_status(t, e, 7005, -3)), DeliveryKind::Reply,
     7005, kRequester, 8, "fd ff ff ff"},
    {"notify", CALL(rilproxy_send_notify(t, 402, 4026, gData, 3)), DeliveryKind::Send, 4026, 402, 3,
     "01 02 03"},
    {"state", CALL(rilproxy_send_bcast_state_notify(t, 1)), DeliveryKind::Bcast,
     EVENT_RILPROXY_STATE_IND, 0, 4, "01"},
    {"data notification", CALL(rilproxy_send_data_notification_request(t)), DeliveryKind::Send,
     EVENT_DATA_NOTIFICATION_REQ, 402, 128, "72 69 6c 64 70 72 6f 78 79"},
    {"AT answer", CALL(rilproxy_send_atcmd_response(t, e, kToken, 1, gAtText)), DeliveryKind::Reply,
     EVENT_RILPROXY_ATCMD_RESP, kRequester, 4120,
     "88 77 66 55 44 33 22 11 00 00 00 00 00 00 00 00 01 00 00 00 0d 0a 4f 4b"},
    {"AT answer without text", CALL(rilproxy_send_atcmd_response(t, e, nullptr, 6, nullptr)),
     DeliveryKind::Reply, EVENT_RILPROXY_ATCMD_RESP, kRequester, 4120,
     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 06"},
};

class RepliesTest : public testing::Test {
protected:
    void SetUp() override {
        vopa_host::reset();
        request = vopa_host::new_event(EVENT_DEACTIVATE_DATA_CALL_REQ, "\x05\0\0\0", 4, kRequester);
    }
    void TearDown() override {
        vopa_event_free(request);
        EXPECT_TRUE(vopa_host::wait_no_live_events(1000));
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
    }
    event_ptr_t request = nullptr;
};

TEST_F(RepliesTest, EachCallDeliversOneFreshEventWithItsExactPayload) {
    for (const Case &c : kCases) {
        SCOPED_TRACE(c.name);
        vopa_host::clear_deliveries();
        EXPECT_EQ(c.call(&gSender, request), 0);
        auto all = vopa_host::deliveries();
        ASSERT_EQ(all.size(), 1u);
        EXPECT_EQ(all[0].kind, c.kind);
        EXPECT_EQ(all[0].id, c.id);
        EXPECT_EQ(all[0].to, c.to);
        ASSERT_EQ(all[0].data.size(), c.size);
        size_t n = bytes(c.head).size();
        EXPECT_EQ(hex(all[0].data.data(), n), c.head);
        EXPECT_EQ(std::count(all[0].data.begin() + n, all[0].data.end(), 0), c.size - n);
    }
    // The AT text is cut to its field, 20 bytes in, with room for its NUL.
    std::string longText(5000, 'x');
    vopa_host::clear_deliveries();
    rilproxy_send_atcmd_response(&gSender, request, nullptr, 0, &longText[0]);
    std::vector<uint8_t> at = vopa_host::deliveries().at(0).data;
    EXPECT_EQ(std::count(at.begin() + 20, at.end(), 'x'), 4095);
}

TEST_F(RepliesTest, WithoutTaskOrMemoryNothingIsDeliveredOrLeaked) {
    LogCapture logs;
    for (const Case &c : kCases) EXPECT_EQ(c.call(nullptr, request), 0) << c.name;
    vopa_host::fail_next_allocs(std::size(kCases));
    for (const Case &c : kCases) EXPECT_EQ(c.call(&gSender, request), 0) << c.name;
    EXPECT_TRUE(vopa_host::deliveries().empty());
    EXPECT_EQ(logs.countMessage("get memory fail"), static_cast<int>(std::size(kCases)));
    EXPECT_EQ(vopa_host::counters().live, 1u);  // only the request itself
}

}  // namespace
