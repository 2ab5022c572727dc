// The host property store and the capability SIM derived from the SIM-switch property.
#include <cutils/properties.h>
#include <cutils/properties_host.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "core/capability_sim.h"
#include "support/log_capture.h"
#include "vopa.h"

namespace {

// Android's signatures: Debian's header does not compile on a non-Android host, so hold them here.
static_assert(std::is_same<decltype(&property_get), int (*)(const char *, char *, const char *)>::value);
static_assert(std::is_same<decltype(&property_set), int (*)(const char *, const char *)>::value);
static_assert(PROPERTY_VALUE_MAX == 92);

class PropertiesTest : public testing::Test {
protected:
    void SetUp() override {
        property_host_reset();
        zok_prop_ver = 1;
    }
    void TearDown() override { zok_prop_ver = 1; }
};

TEST_F(PropertiesTest, GetReturnsValueOrDefault) {
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(property_get("a.b", value, "dflt"), 4);
    EXPECT_STREQ(value, "dflt");
    EXPECT_EQ(property_get("a.b", value, nullptr), 0);
    EXPECT_STREQ(value, "");
    ASSERT_EQ(property_set("a.b", "xyz"), 0);
    EXPECT_EQ(property_get("a.b", value, "dflt"), 3);
    EXPECT_STREQ(value, "xyz");
    property_host_unset("a.b");
    EXPECT_EQ(property_get("a.b", value, "d"), 1);
}

TEST_F(PropertiesTest, ValueLimits) {
    char value[PROPERTY_VALUE_MAX];
    std::string longest(PROPERTY_VALUE_MAX - 1, 'x');
    EXPECT_EQ(property_set("k", longest.c_str()), 0);
    EXPECT_EQ(property_get("k", value, ""), PROPERTY_VALUE_MAX - 1);
    EXPECT_EQ(property_set("k", std::string(PROPERTY_VALUE_MAX, 'y').c_str()), -1);
    EXPECT_STREQ(value, longest.c_str());
    // A default longer than a value may be is cut, never overflows the caller's buffer.
    EXPECT_EQ(property_get("none", value, std::string(200, 'z').c_str()), PROPERTY_VALUE_MAX - 1);
    EXPECT_EQ(property_set(nullptr, "v"), -1);
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

struct SimCase {
    const char *value;  // null: property unset
    int expected;
};

TEST_F(PropertiesTest, CapabilitySimFromSimSwitch) {
    const SimCase cases[] = {
        {nullptr, 0}, {"1", 0}, {"2", 1}, {"3", 2}, {"0", -1}, {"abc", -1}, {"", -1}, {"2x", 1},
    };
    for (const SimCase &c : cases) {
        property_host_reset();
        if (c.value) property_set("persist.vendor.radio.simswitch", c.value);
        EXPECT_EQ(rilproxy_get_capability_sim(), c.expected) << (c.value ? c.value : "(unset)");
    }
}

TEST_F(PropertiesTest, CapabilitySimNameFollowsPropVersion) {
    property_set("persist.vendor.radio.simswitch", "2");
    property_set("persist.radio.simswitch", "3");
    EXPECT_EQ(rilproxy_get_capability_sim(), 1);
    zok_prop_ver = 0;
    EXPECT_EQ(rilproxy_get_capability_sim(), 2);
    property_host_unset("persist.radio.simswitch");
    EXPECT_EQ(rilproxy_get_capability_sim(), 0);  // the newer name is not consulted
    // Read afresh on every call.
    property_set("persist.radio.simswitch", "2");
    EXPECT_EQ(rilproxy_get_capability_sim(), 1);
}

}  // namespace
