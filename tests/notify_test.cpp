// The unsolicited handlers called directly with Parcels written out in hex: which events reach
// task 402, their sizes and decoded fields, nothing carried over from one entry to the next, the
// counts that send nothing, and the error lines. The route through the reader is in
// notify_e2e_test.cpp.
#include "codec/notify.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/log_capture.h"
#include "vopa_host.h"

namespace {

// A version-6 data-call entry: status 33, cid 6, active 1 and five null texts. A list that
// claims more entries follows it with two stray bytes, too few to start another.
const char *kCallV6 =
    "21 00 00 00 00 00 00 00 06 00 00 00 01 00 00 00 ff ff ff ff ff ff ff ff ff ff ff ff"
    " ff ff ff ff ff ff ff ff";
// Bearers: cid 6, bid 7, QoS 1..5, P-CSCF "1.2.3.4"; then cid 8, bid 9 without QoS or P-CSCF.
const char *kBearerFull =
    "01 00 00 00 05 00 00 00 06 00 00 00 01 00 00 00 00 00 00 00 07 00 00 00 00 00 00 00"
    " 01 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00 04 00 00 00 05 00 00 00 00 00 00 00"
    " 01 00 00 00 07 00 00 00 31 00 2e 00 32 00 2e 00 33 00 2e 00 34 00 00 00";
const char *kBearerBare =
    "01 00 00 00 05 00 00 00 08 00 00 00 01 00 00 00 00 00 00 00 09 00 00 00 00 00 00 00"
    " 00 00 00 00 00 00 00 00 00 00 00 00";

std::string zeros(size_t n) {
    std::string s;
    for (size_t i = 0; i < n; i++) s += i ? " 00" : "00";
    return s;
}

struct Slice {
    size_t event;
    size_t offset;
    std::string hex;
};

struct Case {
    const char *name;
    ril_notify_fn_t handler;
    std::string payload;
    std::vector<std::pair<event_id_t, size_t>> events;
    std::vector<Slice> slices;
    const char *log;  // a line expected at `level`
    int level;
};

void PrintTo(const Case &c, std::ostream *os) {
    *os << c.name;
}

class NotifyTest : public testing::TestWithParam<Case> {
protected:
    void SetUp() override { vopa_host::reset(); }
};

vopa_task_t gSender = {};

TEST_P(NotifyTest, SendsExactlyTheDecodedEventsToTheDataManager) {
    const Case &c = GetParam();
    LogCapture logs;
    android::Parcel parcel;
    std::vector<uint8_t> payload = bytes(c.payload);
    parcel.setData(payload.data(), payload.size());
    EXPECT_EQ(c.handler(&gSender, parcel, nullptr), 0);

    std::vector<vopa_host::Delivery> out = vopa_host::deliveries();
    ASSERT_EQ(out.size(), c.events.size());
    for (size_t i = 0; i < out.size(); i++) {
        EXPECT_EQ(out[i].kind, vopa_host::DeliveryKind::Send);
        EXPECT_EQ(out[i].to, 402);
        EXPECT_EQ(out[i].id, c.events[i].first);
        EXPECT_EQ(out[i].data.size(), c.events[i].second);
    }
    for (const Slice &s : c.slices) {
        const std::vector<uint8_t> &d = out[s.event].data;
        size_t n = bytes(s.hex).size();
        ASSERT_LE(s.offset + n, d.size());
        EXPECT_EQ(hex(d.data() + s.offset, n), s.hex) << "event " << s.event << " @" << s.offset;
    }
    bool found = false;
    for (const LogLine &l : logs.lines()) found |= l.message == c.log && l.prio == c.level;
    EXPECT_TRUE(found) << c.log;
    EXPECT_TRUE(vopa_host::wait_no_live_events(1000));
}

const int kErr = android_log_prio[1];
const int kInfo = android_log_prio[8];
constexpr size_t kList = 47872, kBearer = 3960, kShort = 8;

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Handlers, NotifyTest,
    testing::Values(
        Case{"ListCountBeyondThePayloadStopsAtItsEnd",
             rilproxy_UNSOL_DATA_CALL_LIST_CHANGED_notify,
             std::string("06 00 00 00 00 00 00 40 ") + kCallV6 + " 00 00", {{4021, kList}},
             {{0, 0, "00 00 00 00 21 00 00 00 00 00 00 00 06 00 00 00 01 00 00 00"}},
             "num = 1073741824, but the payload ends after 1 entries", kErr},
        Case{"ListNegativeSendsNothing", rilproxy_UNSOL_DATA_CALL_LIST_CHANGED_notify,
             "0b 00 00 00 ff ff ff ff", {}, {}, "ver 11 num = -1", kInfo},
        Case{"ActivatedBearersDoNotInheritFields",
             rilproxy_UNSOL_DEDICATE_BEARER_ACTIVATED_notify,
             std::string("02 00 00 00 ") + kBearerFull + " " + kBearerBare,
             {{4024, kBearer}, {4024, kBearer}},
             {{0, 0, "00 00 00 00 00 00 00 00 01 00 00 00 05 00 00 00 06 00 00 00 01 00 00 00"
                     " 00 00 00 00 07 00 00 00 00 00 00 00 01 00 00 00 01 00 00 00 02 00 00 00"},
              {0, 3696, "01 00 00 00 01 02 03 04"},
              {1, 16, "08 00 00 00 01 00 00 00 00 00 00 00 09 00 00 00"},
              {1, 36, zeros(24)},
              {1, 3696, zeros(8)}},
             "num = 2", kInfo},
        Case{"ActivatedNegativeSendsNothing", rilproxy_UNSOL_DEDICATE_BEARER_ACTIVATED_notify,
             "fe ff ff ff 00 00 00 00", {}, {}, "num = -2", kInfo},
        Case{"DeactivatedWithoutBearers", rilproxy_UNSOL_DEDICATE_BEARER_DEACTIVATED_notify,
             "00 00 00 00 07 00 00 00", {{4026, kShort}}, {{0, 0, "02 00 00 00 00 00 00 00"}},
             "RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED, num = 0", kInfo},
        Case{"ResponseWithoutCall", rilproxy_UNSOL_DATA_CALL_RESPONSE_notify,
             "0b 00 00 00 00 00 00 00", {{4052, kShort}}, {{0, 0, "02 00 00 00 00 00 00 00"}},
             "UNSOL_DATA_CALL_RESPONSE num = 0", kErr},
        Case{"ResponseWithTwoCalls", rilproxy_UNSOL_DATA_CALL_RESPONSE_notify,
             std::string("06 00 00 00 02 00 00 00 ") + kCallV6 + " " + kCallV6, {}, {},
             "UNSOL_DATA_CALL_RESPONSE invalid num = 2", kErr}),
    [](const testing::TestParamInfo<Case> &info) { return std::string(info.param.name); });
// clang-format on

}  // namespace
