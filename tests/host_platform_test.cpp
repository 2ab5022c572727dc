// The host framework and property store that every other test stands on: if they lie, the
// entity's tests prove nothing; and the capability SIM the entity derives from the SIM-switch
// property. (The host sockets are proven by the reader's own tests over real sockets.)
#include <cutils/properties.h>
#include <cutils/properties_host.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <type_traits>

#include "core/capability_sim.h"
#include "support/bytes.h"
#include "support/log_capture.h"
#include "vopa.h"
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

// Android's signatures: Debian's header does not compile on a non-Android host, so hold them here.
static_assert(
    std::is_same<decltype(&property_get), int (*)(const char *, char *, const char *)>::value);
static_assert(std::is_same<decltype(&property_set), int (*)(const char *, const char *)>::value);
static_assert(PROPERTY_VALUE_MAX == 92);

class PropertiesTest : public testing::Test {
protected:
    void SetUp() override { property_host_reset(); }
    void TearDown() override { zok_prop_ver = 1; }
};

TEST_F(PropertiesTest, GetReturnsValueOrDefaultWithinTheValueLimit) {
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(property_get("a.b", value, "dflt"), 4);
    EXPECT_STREQ(value, "dflt");
    EXPECT_EQ(property_get("a.b", value, nullptr), 0);
    EXPECT_STREQ(value, "");
    std::string longest(PROPERTY_VALUE_MAX - 1, 'x');
    ASSERT_EQ(property_set("a.b", longest.c_str()), 0);
    EXPECT_EQ(property_set("a.b", std::string(PROPERTY_VALUE_MAX, 'y').c_str()), -1);
    EXPECT_EQ(property_set(nullptr, "v"), -1);
    EXPECT_EQ(property_get("a.b", value, "dflt"), PROPERTY_VALUE_MAX - 1);
    EXPECT_STREQ(value, longest.c_str());
    property_host_unset("a.b");
    // A default longer than a value may be is cut, never overflows the caller's buffer.
    EXPECT_EQ(property_get("a.b", value, std::string(200, 'z').c_str()), PROPERTY_VALUE_MAX - 1);
}

TEST_F(PropertiesTest, ControlRequestsAreLoggedNotStored) {
    LogCapture logs;
    ASSERT_EQ(property_set("ctl.stop", "vendor.vcd_bridge"), 0);
    char value[PROPERTY_VALUE_MAX];
    property_get("ctl.stop", value, "unset");
    EXPECT_STREQ(value, "unset");
    EXPECT_EQ(property_host_set_count("ctl.stop"), 1);
    ASSERT_EQ(logs.lines().size(), 1u);
    EXPECT_EQ(logs.lines()[0].text, "control request ctl.stop=vendor.vcd_bridge");
}

// The 1-based SIM number under the name that zok_prop_ver selects, read afresh on every call.
TEST_F(PropertiesTest, CapabilitySimFromSimSwitch) {
    const struct {
        const char *vendorName, *oldName;  // values; null: unset
        int propVer;
        int expected;
    } cases[] = {
        {nullptr, nullptr, 1, 0}, {"1", nullptr, 1, 0},  {"2", nullptr, 1, 1},
        {"3", nullptr, 1, 2},     {"0", nullptr, 1, -1}, {"abc", nullptr, 1, -1},
        {"", nullptr, 1, -1},     {"2x", nullptr, 1, 1}, {"2", "3", 1, 1},
        {"2", "3", 0, 2},         {"2", nullptr, 0, 0},  {nullptr, "2", 0, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        property_host_reset();
        if (c.vendorName) property_set("persist.vendor.radio.simswitch", c.vendorName);
        if (c.oldName) property_set("persist.radio.simswitch", c.oldName);
        zok_prop_ver = c.propVer;
        EXPECT_EQ(rilproxy_get_capability_sim(), c.expected);
    }
}

}  // namespace
