// Unsolicited frames from the simulated daemon on a real local socket, through the whole entity
// (init, reader thread, ril_notifys) to the events task 402 receives; frames for another SIM and
// ids without a handler produce nothing.
//
// The connected reader ends the process when its socket closes, so the daemon is never deleted.
#include <cutils/properties.h>
#include <cutils/properties_host.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "rilproxy_entity.h"
#include "support/bytes.h"
#include "support/socket_dir.h"
#include "tools/sim/rild_sim.h"
#include "vopa_host.h"

namespace {

// Version 1001 entries: the first complete (cid 5, "1.2.3.4", default bearer ddcId 9 with QoS
// 9..5); the second carries no texts and a default bearer without QoS; the third is cut after
// its four leading integers (status 49, cid 7, active 1).
const char *kThreeCalls =
    "e9 03 00 00 03 00 00 00"
    " 00 00 00 00 11 00 00 00 05 00 00 00 02 00 00 00"
    " 02 00 00 00 49 00 50 00 00 00 00 00 02 00 00 00 72 00 30 00 00 00 00 00"
    " 07 00 00 00 31 00 2e 00 32 00 2e 00 33 00 2e 00 34 00 00 00"
    " ff ff ff ff ff ff ff ff ff ff ff ff dc 05 00 00 00 00 00 00 09 00 00 00"
    " 01 00 00 00 05 00 00 00 05 00 00 00 01 00 00 00 01 00 00 00 05 00 00 00 00 00 00 00"
    " 01 00 00 00 09 00 00 00 08 00 00 00 07 00 00 00 06 00 00 00 05 00 00 00 00 00 00 00"
    " 00 00 00 00 01 00 00 00"
    " 21 00 00 00 00 00 00 00 06 00 00 00 01 00 00 00 ff ff ff ff ff ff ff ff ff ff ff ff"
    " ff ff ff ff ff ff ff ff ff ff ff ff 00 00 00 00 00 00 00 00 00 00 00 00"
    " 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
    " 00 00 00 00 00 00 00 00 00 00 00 00 02 00 00 00"
    " 31 00 00 00 00 00 00 00 07 00 00 00 01 00 00 00";
// Default bearer and eran_type of an entry: valid 1, ddcId, interfaceId, primaryCid, cid, active,
// signalingFlag, bearerId, failCause, hasQos, QoS.
const char *kFirstDefaultBearer =
    "01 00 00 00 09 00 00 00 01 00 00 00 05 00 00 00 05 00 00 00 01 00 00 00 01 00 00 00 05 00 "
    "00 00 00 00 00 00 01 00 00 00 09 00 00 00 08 00 00 00 07 00 00 00 06 00 00 00 05 00 00 00";
const char *kNoDefaultBearer =
    "01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
const char *kResponseNoTexts =
    "0b 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 03 00 00 00 01 00 00 00"
    " ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff 78 05 00 00";

// Sent after every case (one released bearer, cid 0x7777): what arrives before its 4026 belongs
// to the case.
const char *kMarker = "01 00 00 00 77 77 00 00";
const char *kMarkerEvent = "00 00 00 00 77 77 00 00";

struct Expected {
    event_id_t id;
    size_t size;
    std::vector<std::pair<size_t, std::string>> slices;  // offset, bytes
};

struct Case {
    const char *name;
    int32_t id;
    const char *payload;
    std::vector<uint32_t> featureHeader;
    const char *simswitch;  // the capability SIM property for this case, 1-based
    std::vector<Expected> events;
};

void PrintTo(const Case &c, std::ostream *os) {
    *os << c.name;
}

rild_sim::RildSim *gDaemon = nullptr;

class NotifyE2eTest : public testing::TestWithParam<Case> {
protected:
    // One entity for the whole process: its reader keeps the socket until the process ends.
    static void SetUpTestSuite() {
        property_host_reset();
        zok_prop_ver = 1;
        ScopedSocketDir dir;
        gDaemon = new rild_sim::RildSim("rild-zok");
        static vopa_entity_t entity = {};
        ASSERT_EQ(rilproxy_entity_init(&entity, nullptr), &entity);
        vopa_host::open_entity_init_gate();
        ASSERT_TRUE(gDaemon->acceptClient(5000));
        ASSERT_TRUE(vopa_host::wait_for_id(EVENT_RILPROXY_STATE_IND, 5000));
    }
};

TEST_P(NotifyE2eTest, DeliversTheDecodedEventsToTheDataManager) {
    const Case &c = GetParam();
    ASSERT_NE(gDaemon, nullptr);
    std::vector<vopa_host::Delivery> before = vopa_host::deliveries();
    uint64_t start = before.empty() ? 0 : before.back().seq;
    property_set("persist.vendor.radio.simswitch", c.simswitch);
    ASSERT_TRUE(gDaemon->writeUnsolicited(c.id, bytes(c.payload), c.featureHeader));
    // The marker carries the case's capability SIM, so it is only taken once the frame before it
    // was judged under the same property value.
    uint32_t sim = static_cast<uint32_t>(atoi(c.simswitch) - 1);
    ASSERT_TRUE(gDaemon->writeUnsolicited(3032, bytes(kMarker), {1, sim}));
    vopa_host::Delivery marker;
    ASSERT_TRUE(vopa_host::wait_for(
        [](const vopa_host::Delivery &d) { return d.id == 4026 && hex(d.data) == kMarkerEvent; },
        5000, &marker, start));

    std::vector<vopa_host::Delivery> got;
    for (const vopa_host::Delivery &d : vopa_host::deliveries())
        if (d.seq > start && d.seq < marker.seq) got.push_back(d);
    ASSERT_EQ(got.size(), c.events.size());
    for (size_t i = 0; i < got.size(); i++) {
        const Expected &e = c.events[i];
        EXPECT_EQ(got[i].to, 402);
        EXPECT_EQ(got[i].id, e.id);
        ASSERT_EQ(got[i].data.size(), e.size);
        for (const auto &slice : e.slices) {
            size_t n = bytes(slice.second).size();
            ASSERT_LE(slice.first + n, e.size);
            EXPECT_EQ(hex(got[i].data.data() + slice.first, n), slice.second)
                << "event " << i << " @" << slice.first;
        }
    }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Frames, NotifyE2eTest,
    testing::Values(
        Case{"ListOfThree", 6002, kThreeCalls, {}, "1",
             {{4021, 47872, {{4, "00 00 00 00 11 00 00 00 05 00 00 00 02 00 00 00 dc 05 00 00"},
                             {156, "01 02 03 04"}, {43768, kFirstDefaultBearer}}},
              {4021, 47872, {{4, "21 00 00 00 00 00 00 00 06 00 00 00 01 00 00 00 00 00 00 00"},
                             {156, "00 00 00 00"}, {43768, kNoDefaultBearer}}},
              {4021, 47872, {{4, "31 00 00 00 00 00 00 00 07 00 00 00 01 00 00 00 00 00 00 00"},
                             {43768, kNoDefaultBearer}}}}},
        Case{"EmptyList", 6002, "e9 03 00 00 00 00 00 00", {}, "1", {}},
        Case{"ActivatedBearer", 3030,
             "01 00 00 00 01 00 00 00 05 00 00 00 08 00 00 00 01 00 00 00 00 00 00 00 09 00 00 00"
             " 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", {}, "1",
             {{4024, 3960, {{16, "08 00 00 00 01 00 00 00 00 00 00 00 09 00 00 00"}}}}},
        Case{"ModifiedBearerCutShort", 3031, "01 00 00 00 01 00 00 00 05 00 00 00 0a 00 00 00",
             {}, "1", {{4025, 3960, {{8, "01 00 00 00 05 00 00 00 0a 00 00 00 00 00 00 00"}}}}},
        Case{"DeactivationOfThree", 3032, "03 00 00 00 07 00 00 00 08 00 00 00 09 00 00 00", {},
             "1", {{4026, 8, {{0, "00 00 00 00 07 00 00 00"}}}}},
        Case{"ResponseNone", 3072, "0b 00 00 00 00 00 00 00", {}, "1",
             {{4052, 8, {{0, "02 00 00 00 00 00 00 00"}}}}},
        Case{"ResponseOne", 3072, kResponseNoTexts, {}, "1",
             {{4051, 47876, {{0, "00 00 00 00 00 00 00 00 00 00 00 00 03 00 00 00 01 00 00 00"
                                 " 78 05 00 00 ff ff ff ff"}}}}},
        Case{"ResponseTwo", 3072, "0b 00 00 00 02 00 00 00", {}, "1", {}},
        Case{"Ignored1009", 1009, "00 00 00 00", {}, "1", {}},
        Case{"UnknownId", 3033, "01 00 00 00 07 00 00 00", {}, "1", {}},
        Case{"OtherSimInHeader", 3032, "00 00 00 00", {1, 1}, "1", {}},
        Case{"OtherSimBySwitch", 3032, "00 00 00 00", {}, "2", {}},
        Case{"OwnSimInHeader", 3032, "00 00 00 00", {1, 1}, "2",
             {{4026, 8, {{0, "02 00 00 00 00 00 00 00"}}}}}),
    [](const testing::TestParamInfo<Case> &info) { return std::string(info.param.name); });
// clang-format on

}  // namespace
