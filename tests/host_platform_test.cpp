// The host framework that every other test stands on: if it lies, the entity's tests prove
// nothing. (The host sockets are proven by the reader's own tests over real sockets.)
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "support/bytes.h"
#include "vopa_events.h"
#include "vopa_host.h"

namespace {

class HostFrameworkTest : public testing::Test {
protected:
    void SetUp() override {
        vopa_host::reset();
        ASSERT_EQ(vopa_task_init(&task, 9, 500), 0);
        task.set_handler(&task, handler, this, 0);
        vopa_connmngr_common_subscribe(&task, EVENT_RILPROXY_STATE_IND, 1);
    }
    void TearDown() override { vopa_task_exit(&task); }
    // Adds up the payload bytes it was handed, off the posting thread.
    static void *handler(task_ptr_t, event_ptr_t event, void *user) {
        auto *self = static_cast<HostFrameworkTest *>(user);
        self->onTaskThread = !pthread_equal(pthread_self(), self->poster);
        int len = 0;
        event_get_data(event, 0, &len);
        self->handled += len;
        vopa_event_free(event);
        return nullptr;
    }
    vopa_task_t task = {};
    std::atomic<int> handled{0};
    std::atomic<bool> onTaskThread{false};
    pthread_t poster = pthread_self();
};

TEST_F(HostFrameworkTest, PostedEventsRunOnTheTaskThread) {
    ASSERT_TRUE(vopa_host::post(500, 1, "abc", 3, 1));
    ASSERT_TRUE(vopa_host::post(500, 1, "de", 2, 1));
    EXPECT_FALSE(vopa_host::post(501, 1, nullptr, 0, 1));  // no such task
    ASSERT_TRUE(vopa_host::wait_task_idle(500, 2000));
    EXPECT_EQ(handled.load(), 5);
    EXPECT_TRUE(onTaskThread.load());
    EXPECT_TRUE(vopa_host::wait_no_live_events(2000));
}

TEST_F(HostFrameworkTest, RepliesFollowTheRequesterAndBroadcastsTheSubscribers) {
    event_ptr_t request = vopa_host::new_event(4005, nullptr, 0, 500);
    event_ptr_t reply = vopa_event_alloc(request);
    EXPECT_EQ(vopa_event_get_ext_id(reply), 500u);
    event_set_data(reply, 0, "xy", 2);
    vopa_context_common_reply(&task, reply);  // requester 500 is this task
    auto state = [] {
        event_ptr_t ev = vopa_event_alloc(nullptr);
        event_set_id(ev, EVENT_RILPROXY_STATE_IND);
        event_set_data(ev, 0, "\1\0\0\0", 4);
        return ev;
    };
    vopa_task_t other = {};
    vopa_context_common_bcast(&other, state());
    // The sender's own subscription does not bring its broadcast back.
    vopa_task_bcast_ext_event(&task, state());
    ASSERT_TRUE(vopa_host::wait_task_idle(500, 2000));
    EXPECT_EQ(handled.load(), 6);
    auto all = vopa_host::deliveries();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].kind, vopa_host::DeliveryKind::Reply);
    EXPECT_EQ(all[0].to, 500);
    EXPECT_EQ(hex(all[0].data), "78 79");
    EXPECT_EQ(all[1].kind, vopa_host::DeliveryKind::Bcast);
    EXPECT_EQ(all[1].to, 0);
    vopa_event_free(request);
    EXPECT_TRUE(vopa_host::wait_no_live_events(2000));
}

TEST_F(HostFrameworkTest, DoubleFreesAreCountedNotPerformedAndAllocationsCanFail) {
    event_ptr_t ev = vopa_host::new_event(1, "a", 1, 0);
    vopa_event_free(ev);
    vopa_event_free(ev);
    EXPECT_EQ(vopa_host::counters().bad_frees, 1u);
    EXPECT_EQ(vopa_host::counters().live, 0u);
    vopa_host::fail_next_allocs(1);
    EXPECT_EQ(vopa_event_alloc(nullptr), nullptr);
    event_ptr_t ok = vopa_event_alloc(nullptr);
    EXPECT_NE(ok, nullptr);
    vopa_event_free(ok);
}

}  // namespace
