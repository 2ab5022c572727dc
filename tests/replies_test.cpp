// The events the entity emits towards the framework: what no other test sees (the data manager's
// wake-up, the AT text's cut), and what happens without a task or without memory.
#include "core/replies.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "vopa_host.h"

namespace {

// Any non-null task object will do: the host framework's delivery services do not need the
// sender to be registered.
vopa_task_t gSender = {};
constexpr int32_t kRequester = 77;

uint8_t gData[5] = {1, 2, 3, 4, 5};

// Every call that allocates an event, with the sender task and the request event as `t` and `e`.
// What each delivers is pinned where the entity makes it: the handler and notification rows, the
// reader's AT answers and the runner's state broadcasts.
#define CALL(call) [](task_ptr_t t, event_ptr_t e) { return ((void)t, (void)e, call); }
int (*const kCalls[])(task_ptr_t, event_ptr_t) = {
    CALL(rilproxy_reply_response(t, e, 4006, gData, 5)),
    CALL(rilproxy_reply_response_only_status(t, e, 7005, -3)),
    CALL(rilproxy_send_notify(t, 402, 4026, gData, 3)),
    CALL(rilproxy_send_bcast_state_notify(t, 1)),
    CALL(rilproxy_send_data_notification_request(t)),
    CALL(rilproxy_send_atcmd_response(t, e, nullptr, 0, nullptr)),
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

// The data manager's wake-up, a negative status kept as it is, and an AT text cut to its field,
// 20 bytes in, with room for its NUL.
TEST_F(RepliesTest, WakeUpNegativeStatusAndLongAtText) {
    rilproxy_send_data_notification_request(&gSender);
    rilproxy_reply_response_only_status(&gSender, request, 7005, -3);
    std::string longText(5000, 'x');
    rilproxy_send_atcmd_response(&gSender, request, nullptr, 0, &longText[0]);
    auto all = vopa_host::deliveries();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].to, TASK_ID_DATAMNGR);
    EXPECT_EQ(all[0].id, EVENT_DATA_NOTIFICATION_REQ);
    EXPECT_EQ(hex(all[0].data), "72 69 6c 64 70 72 6f 78 79 " + hex(std::vector<uint8_t>(119)));
    EXPECT_EQ(hex(all[1].data), "fd ff ff ff 00 00 00 00");
    EXPECT_EQ(std::count(all[2].data.begin() + 20, all[2].data.end(), 'x'), 4095);
}

TEST_F(RepliesTest, WithoutTaskOrMemoryNothingIsDeliveredOrLeaked) {
    LogCapture logs;
    for (auto call : kCalls) EXPECT_EQ(call(nullptr, request), 0);
    vopa_host::fail_next_allocs(std::size(kCalls));
    for (auto call : kCalls) EXPECT_EQ(call(&gSender, request), 0);
    EXPECT_TRUE(vopa_host::deliveries().empty());
    EXPECT_EQ(logs.countMessage("get memory fail"), static_cast<int>(std::size(kCalls)));
    EXPECT_EQ(vopa_host::counters().live, 1u);  // only the request itself
}

}  // namespace
