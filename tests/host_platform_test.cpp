// The host framework and local sockets that every other test stands on: if these lie, the
// entity's tests prove nothing.
#include <cutils/sockets.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "support/bytes.h"
#include "vopa_events.h"
#include "vopa_host.h"

namespace {

struct Sink {
    vopa_task_t task = {};
    std::atomic<int> handled{0};
    std::atomic<bool> onTaskThread{false};
    pthread_t caller = pthread_self();
};

void *sinkHandler(task_ptr_t, event_ptr_t event, void *user) {
    Sink *sink = static_cast<Sink *>(user);
    sink->onTaskThread = !pthread_equal(pthread_self(), sink->caller);
    int len = 0;
    event_get_data(event, 0, &len);
    sink->handled += len;
    vopa_event_free(event);
    return nullptr;
}

class HostFrameworkTest : public testing::Test {
protected:
    void SetUp() override {
        vopa_host::reset();
        ASSERT_EQ(vopa_task_init(&sink_.task, 9, 500), 0);
        sink_.task.set_handler(&sink_.task, sinkHandler, &sink_, 0);
        vopa_connmngr_common_subscribe(&sink_.task, EVENT_RILPROXY_STATE_IND, 1);
    }
    void TearDown() override { vopa_task_exit(&sink_.task); }
    Sink sink_;
};

TEST_F(HostFrameworkTest, PostedEventsRunOnTheTaskThread) {
    ASSERT_TRUE(vopa_host::post(500, 1, "abc", 3, 1));
    ASSERT_TRUE(vopa_host::post(500, 1, "de", 2, 1));
    ASSERT_TRUE(vopa_host::wait_task_idle(500, 2000));
    EXPECT_EQ(sink_.handled.load(), 5);
    EXPECT_TRUE(sink_.onTaskThread.load());
    EXPECT_FALSE(vopa_host::post(501, 1, nullptr, 0, 1));  // no such task
    EXPECT_TRUE(vopa_host::wait_no_live_events(2000));
}

TEST_F(HostFrameworkTest, RepliesFollowTheRequesterAndBroadcastsTheSubscribers) {
    event_ptr_t request = vopa_host::new_event(4005, nullptr, 0, 500);
    event_ptr_t reply = vopa_event_alloc(request);
    EXPECT_EQ(vopa_event_get_ext_id(reply), 500u);
    event_set_id(reply, 4006);
    event_set_data(reply, 0, "xy", 2);
    vopa_context_common_reply(&sink_.task, reply);  // requester 500 is the sink task

    event_ptr_t state = vopa_event_alloc(nullptr);
    event_set_id(state, EVENT_RILPROXY_STATE_IND);
    event_set_data(state, 0, "\1\0\0\0", 4);
    vopa_task_t other = {};
    vopa_context_common_bcast(&other, state);
    ASSERT_TRUE(vopa_host::wait_task_idle(500, 2000));
    EXPECT_EQ(sink_.handled.load(), 6);

    // The sender's own subscription does not bring its broadcast back.
    event_ptr_t own = vopa_event_alloc(nullptr);
    event_set_id(own, EVENT_RILPROXY_STATE_IND);
    event_set_data(own, 0, "\2\0\0\0", 4);
    vopa_task_bcast_ext_event(&sink_.task, own);
    ASSERT_TRUE(vopa_host::wait_task_idle(500, 2000));
    EXPECT_EQ(sink_.handled.load(), 6);

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

TEST_F(HostFrameworkTest, DoubleFreesAreCountedNotPerformed) {
    event_ptr_t ev = vopa_host::new_event(1, "a", 1, 0);
    vopa_event_free(ev);
    vopa_event_free(ev);
    auto c = vopa_host::counters();
    EXPECT_EQ(c.bad_frees, 1u);
    EXPECT_EQ(c.allocated, c.freed);
    vopa_host::fail_next_allocs(1);
    EXPECT_EQ(vopa_event_alloc(nullptr), nullptr);
    event_ptr_t ok = vopa_event_alloc(nullptr);
    EXPECT_NE(ok, nullptr);
    vopa_event_free(ok);
}

TEST(HostSocketsTest, ReservedNamespaceFollowsAndroidSocketDir) {
    char dir[] = "/tmp/zok-sock-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    setenv("ANDROID_SOCKET_DIR", dir, 1);
    int server = socket_local_server("rild-test", ANDROID_SOCKET_NAMESPACE_RESERVED, SOCK_STREAM);
    ASSERT_GE(server, 0);
    EXPECT_EQ(access((std::string(dir) + "/rild-test").c_str(), F_OK), 0);
    int client = socket_local_client("rild-test", ANDROID_SOCKET_NAMESPACE_RESERVED, SOCK_STREAM);
    ASSERT_GE(client, 0);
    int accepted = accept(server, nullptr, nullptr);
    ASSERT_GE(accepted, 0);
    ASSERT_EQ(write(client, "hi", 2), 2);
    char buf[2];
    ASSERT_EQ(read(accepted, buf, 2), 2);
    EXPECT_EQ(std::string(buf, 2), "hi");
    EXPECT_EQ(socket_local_client("absent", ANDROID_SOCKET_NAMESPACE_RESERVED, SOCK_STREAM), -1);
    EXPECT_EQ(errno, ENOENT);
    close(accepted);
    close(client);
    close(server);
    unlink((std::string(dir) + "/rild-test").c_str());
    rmdir(dir);
}

}  // namespace
