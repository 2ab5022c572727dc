// Every event the entity emits towards the framework: ids, routing, exact payload bytes, and what
// happens without a task or without memory.
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "core/replies.h"
#include "support/bytes.h"
#include "support/log_capture.h"
#include "vopa_host.h"

namespace {

using vopa_host::Delivery;
using vopa_host::DeliveryKind;

// Any non-null task object will do: the host framework's delivery services do not need the
// sender to be registered.
vopa_task_t gSender = {};
task_ptr_t kTask = &gSender;
constexpr uint32_t kRequester = 77;

class RepliesTest : public testing::Test {
protected:
    void SetUp() override { vopa_host::reset(); }
    void TearDown() override {
        if (request_) vopa_event_free(request_);
        EXPECT_TRUE(vopa_host::wait_no_live_events(1000));
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
    }
    event_ptr_t request() {
        request_ = vopa_host::new_event(EVENT_DEACTIVATE_DATA_CALL_REQ, "\x05\0\0\0", 4, kRequester);
        return request_;
    }
    static Delivery only() {
        auto all = vopa_host::deliveries();
        EXPECT_EQ(all.size(), 1u);
        return all.empty() ? Delivery{} : all[0];
    }
    event_ptr_t request_ = nullptr;
};

TEST_F(RepliesTest, ReplyResponseCopiesPayloadToRequester) {
    uint8_t data[5] = {1, 2, 3, 4, 5};
    EXPECT_EQ(rilproxy_reply_response(kTask, request(), EVENT_DEACTIVATE_DATA_CALL_RESP, data, 5), 0);
    Delivery d = only();
    EXPECT_EQ(d.kind, DeliveryKind::Reply);
    EXPECT_EQ(d.id, EVENT_DEACTIVATE_DATA_CALL_RESP);
    EXPECT_EQ(d.to, static_cast<int32_t>(kRequester));
    EXPECT_EQ(hex(d.data), "01 02 03 04 05");
}

TEST_F(RepliesTest, StatusOnlyReplyIsEightBytesWithClearTail) {
    rilproxy_reply_response_only_status(kTask, request(), EVENT_RADIO_POWER_RESP, -3);
    Delivery d = only();
    EXPECT_EQ(d.kind, DeliveryKind::Reply);
    EXPECT_EQ(d.id, EVENT_RADIO_POWER_RESP);
    EXPECT_EQ(d.to, static_cast<int32_t>(kRequester));
    EXPECT_EQ(hex(d.data), "fd ff ff ff 00 00 00 00");
}

TEST_F(RepliesTest, NotifyAndBroadcastsCreateFreshEvents) {
    uint8_t data[3] = {9, 8, 7};
    rilproxy_send_notify(kTask, TASK_ID_DATAMNGR, EVENT_DEDICATE_BEARER_DEACTIVATED_IND, data, 3);
    rilproxy_send_bcast_state_notify(kTask, 1);
    rilproxy_send_data_notification_request(kTask);
    auto all = vopa_host::deliveries();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].kind, DeliveryKind::Send);
    EXPECT_EQ(all[0].to, TASK_ID_DATAMNGR);
    EXPECT_EQ(all[0].id, EVENT_DEDICATE_BEARER_DEACTIVATED_IND);
    EXPECT_EQ(hex(all[0].data), "09 08 07");
    EXPECT_EQ(all[1].kind, DeliveryKind::Bcast);
    EXPECT_EQ(all[1].id, EVENT_RILPROXY_STATE_IND);
    EXPECT_EQ(hex(all[1].data), "01 00 00 00");
    EXPECT_EQ(all[2].kind, DeliveryKind::Send);
    EXPECT_EQ(all[2].to, 402);
    EXPECT_EQ(all[2].id, EVENT_DATA_NOTIFICATION_REQ);
    ASSERT_EQ(all[2].data.size(), 128u);
    EXPECT_EQ(hex(all[2].data.data(), 10), "72 69 6c 64 70 72 6f 78 79 00");  // "rildproxy"
    EXPECT_EQ(std::string(all[2].data.begin() + 9, all[2].data.end()), std::string(119, '\0'));
}

TEST_F(RepliesTest, AtCommandResponseLayout) {
    void *token = reinterpret_cast<void *>(uintptr_t{0x1122334455667788});
    char text[] = "\r\nOK";
    rilproxy_send_atcmd_response(kTask, request(), token, 1, text);
    Delivery d = only();
    EXPECT_EQ(d.kind, DeliveryKind::Reply);
    EXPECT_EQ(d.id, EVENT_RILPROXY_ATCMD_RESP);
    EXPECT_EQ(d.to, static_cast<int32_t>(kRequester));
    ASSERT_EQ(d.data.size(), 4120u);
    EXPECT_EQ(hex(d.data.data(), 28),
              "88 77 66 55 44 33 22 11 00 00 00 00 00 00 00 00 01 00 00 00 0d 0a 4f 4b 00 00 00 00");
}

TEST_F(RepliesTest, AtCommandTextIsBoundedAndOptional) {
    std::string longText(5000, 'x');
    rilproxy_send_atcmd_response(kTask, request(), nullptr, 0, &longText[0]);
    rilproxy_send_atcmd_response(kTask, request_, nullptr, 6, nullptr);
    auto all = vopa_host::deliveries();
    ASSERT_EQ(all.size(), 2u);
    const char *t = reinterpret_cast<const char *>(all[0].data.data()) + 20;
    EXPECT_EQ(strnlen(t, 4096), 4095u);
    EXPECT_EQ(all[1].data[16], 6);
    EXPECT_EQ(all[1].data[20], 0);
}

TEST_F(RepliesTest, NullTaskDeliversNothingAndLeaksNothing) {
    uint8_t b = 1;
    EXPECT_EQ(rilproxy_reply_response(nullptr, request(), 1, &b, 1), 0);
    EXPECT_EQ(rilproxy_reply_response_only_status(nullptr, request_, 1, 0), 0);
    EXPECT_EQ(rilproxy_send_notify(nullptr, 402, 1, &b, 1), 0);
    EXPECT_EQ(rilproxy_send_bcast_state_notify(nullptr, 0), 0);
    EXPECT_EQ(rilproxy_send_data_notification_request(nullptr), 0);
    EXPECT_EQ(rilproxy_send_atcmd_response(nullptr, request_, nullptr, 0, nullptr), 0);
    EXPECT_TRUE(vopa_host::deliveries().empty());
    EXPECT_EQ(vopa_host::counters().live, 1u);  // only the request itself
}

TEST_F(RepliesTest, AllocationFailureIsLoggedAndSwallowed) {
    LogCapture logs;
    vopa_host::fail_next_allocs(6);
    uint8_t b = 1;
    EXPECT_EQ(rilproxy_reply_response(kTask, request(), 1, &b, 1), 0);
    EXPECT_EQ(rilproxy_reply_response_only_status(kTask, request_, 1, 0), 0);
    EXPECT_EQ(rilproxy_send_notify(kTask, 402, 1, &b, 1), 0);
    EXPECT_EQ(rilproxy_send_bcast_state_notify(kTask, 0), 0);
    EXPECT_EQ(rilproxy_send_data_notification_request(kTask), 0);
    EXPECT_EQ(rilproxy_send_atcmd_response(kTask, request_, nullptr, 0, nullptr), 0);
    EXPECT_TRUE(vopa_host::deliveries().empty());
    EXPECT_EQ(logs.countMessage("get memory fail"), 6);
    EXPECT_EQ(vopa_host::counters().failed_allocs, 6u);
}

}  // namespace
