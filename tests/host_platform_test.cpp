// The host framework and property store that every other test stands on: if they lie, the
// entity's tests prove nothing; and the capability SIM the entity derives from the SIM-switch
// property.
#include <cutils/properties.h>
#include <cutils/properties_host.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "core/capability_sim.h"
#include "vopa.h"
#include "vopa_host.h"

namespace {

// Posting, task threads, reply routing and broadcasts are what every entity test runs on; what
// none of them would notice is a double free performed instead of counted, or an allocation that
// cannot be made to fail.
TEST(HostFrameworkTest, DoubleFreesAreCountedNotPerformedAndAllocationsCanFail) {
    vopa_host::reset();
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
