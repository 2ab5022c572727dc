// The unsolicited handlers reached through ril_notifys by their ids, with Parcels written out in
// hex: which events reach task 402, their sizes and decoded fields, nothing carried over from one
// entry to the next, the counts that send nothing, and the log lines with their levels.
#include "codec/notify.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rilproxy_entity.h"
#include "support/bytes.h"
#include "support/event_bytes.h"
#include "support/log_capture.h"
#include "vopa_events.h"
#include "vopa_host.h"

namespace {

// Version-6 data-call entries (status 33, cid 6, active 1): one with the IPv4 address "1.2.3.4",
// one whose five texts are all null.
const std::string kCallIp =
    "21 00 00 00 00 00 00 00 06 00 00 00 01 00 00 00 02 00 00 00 49 00 50 00 00 00 00 00 ff ff ff "
    "ff 07 00 00 00 31 00 2e 00 32 00 2e 00 33 00 2e 00 34 00 00 00 ff ff ff ff ff ff ff ff ";
const std::string kCallV6 =
    "21 00 00 00 00 00 00 00 06 00 00 00 01 00 00 00 ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff "
    "ff ff ff ff ff ";
const std::string kCallHead = "00 00 00 00 21 00 00 00 00 00 00 00 06 00 00 00 01 00 00 00";
// Bearers: cid 6, bid 7, QoS 1..5, P-CSCF "1.2.3.4"; then cid 8, bid 9 without QoS or P-CSCF.
const std::string kBearerFull =
    "01 00 00 00 05 00 00 00 06 00 00 00 01 00 00 00 00 00 00 00 07 00 00 00 00 00 00 00 01 00 00 "
    "00 01 00 00 00 02 00 00 00 03 00 00 00 04 00 00 00 05 00 00 00 00 00 00 00 01 00 00 00 07 00 "
    "00 00 31 00 2e 00 32 00 2e 00 33 00 2e 00 34 00 00 00 ";
const std::string kBearerBare =
    "01 00 00 00 05 00 00 00 08 00 00 00 01 00 00 00 00 00 00 00 09 00 00 00 00 00 00 00 00 00 00 "
    "00 00 00 00 00 00 00 00 00";
// Version 1001, one entry without texts: cid 3, active 1, mtu 1400, no bearers, a bare default
// bearer with ddcId 9, then eran_type 2.
const std::string kResponseV1001 =
    "e9 03 00 00 01 00 00 00 00 00 00 00 00 00 00 00 03 00 00 00 01 00 00 00 ff ff ff ff ff ff ff "
    "ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff 78 05 00 00 00 00 00 00 09 00 00 00 " +
    hex(std::vector<uint8_t>(40)) + " 02 00 00 00";

constexpr size_t kList = 47872, kBearer = 3960;
// An entry the payload lacks: status 0 and a record of zeros.
const std::string kZeros = hex(std::vector<uint8_t>(64));
// A data call the payload lacks: zeros, but the empty type text is no family (-1) and the
// missing interface name reads as the null text.
const std::string kCallEmpty =
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ff ff ff ff 28 6e "
    "75 6c 6c 29 00 00";

TEST(NotifyTest, RowsSendExactlyTheDecodedEventsToTheDataManager) {
    const int err = android_log_prio[1], info = android_log_prio[8];
    const struct {
        const char *name;
        int32_t id;
        std::string payload;
        std::vector<ExpectedEvent> events;
        const char *log;  // expected at `level`; null: the row logs nothing
        int level;
    } cases[] = {
        // clang-format off
        {"list entries start clean", 6002, "06 00 00 00 02 00 00 00 " + kCallIp + kCallV6,
         {{4021, kList, {{0, kCallHead}, {156, "01 02 03 04"}}},
          {4021, kList, {{0, kCallHead}, {156, "00 00 00 00"}}}}, "ver 6 num = 2", info},
        {"list count beyond the payload", 6002, "06 00 00 00 03 00 00 00 " + kCallV6 + "00 00",
         {{4021, kList, {{0, kCallHead}}}, {4021, kList, {{0, kCallEmpty}}},
          {4021, kList, {{0, kCallEmpty}}}}, "ver 6 num = 3", info},
        {"list negative", 6002, "0b 00 00 00 ff ff ff ff", {}, "ver 11 num = -1", info},
        {"activated bearers start clean", 3030, "02 00 00 00 " + kBearerFull + kBearerBare,
         {{4024, kBearer, {{0, "00 00 00 00 00 00 00 00 01 00 00 00 05 00 00 00 06 00 00 00 01 00"
                               " 00 00 00 00 00 00 07 00 00 00 00 00 00 00 01 00 00 00 01 00 00 00"},
                           {3696, "01 00 00 00 01 02 03 04"}}},
          {4024, kBearer, {{16, "08 00 00 00 01 00 00 00 00 00 00 00 09 00 00 00"}, {36, hex(std::vector<uint8_t>(24))},
                           {3696, "00 00 00 00 00 00 00 00"}}}}, "num = 2", info},
        {"activated negative", 3030, "fe ff ff ff 00 00 00 00", {}, "num = -2", info},
        {"activated count beyond the payload", 3030, "03 00 00 00 " + kBearerBare,
         {{4024, kBearer, {{16, "08 00 00 00"}}}, {4024, kBearer, {{0, kZeros}}},
          {4024, kBearer, {{0, kZeros}}}}, "num = 3", info},
        {"modified count above the ceiling", 3031, "ff ff ff 7f",
         std::vector<ExpectedEvent>(256, {4025, kBearer, {{0, kZeros}}}),
         "num = 2147483647, only the first 256 entries are sent", err},
        {"modified bearer cut short", 3031, "01 00 00 00 01 00 00 00 05 00 00 00 0a 00 00 00",
         {{4025, kBearer, {{8, "01 00 00 00 05 00 00 00 0a 00 00 00 00 00 00 00"}}}}, "num = 1",
         info},
        {"deactivated none", 3032, "00 00 00 00 07 00 00 00",
         {{4026, 8, {{0, "02 00 00 00 00 00 00 00"}}}},
         "RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED, num = 0", info},
        {"deactivated three: first cid", 3032, "03 00 00 00 07 00 00 00 08 00 00 00 09 00 00 00",
         {{4026, 8, {{0, "00 00 00 00 07 00 00 00"}}}}, "RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED",
         info},
        {"response none", 3072, "0b 00 00 00 00 00 00 00",
         {{4052, 8, {{0, "02 00 00 00 00 00 00 00"}}}}, "UNSOL_DATA_CALL_RESPONSE num = 0", err},
        {"response one", 3072, kResponseV1001,
         {{4051, 47876, {{0, "00 00 00 00 00 00 00 00 00 00 00 00 03 00 00 00 01 00 00 00 78 05 00"
                             " 00 ff ff ff ff"}, {43768, "01 00 00 00 09 00 00 00"},
                         {47728, "02 00 00 00"}}}}, "ver 1001 num = 1", info},
        {"response two", 3072, "06 00 00 00 02 00 00 00 " + kCallV6 + kCallV6, {},
         "UNSOL_DATA_CALL_RESPONSE invalid num = 2", err},
        {"1009 ignored", 1009, "01 00 00 00 07 00 00 00", {}, nullptr, 0},
        // clang-format on
    };
    vopa_task_t sender = {};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        vopa_host::reset();
        ril_notify_t *row = ril_notifys;
        while (row->id != 0 && row->id != c.id) row++;
        ASSERT_NE(row->handler, nullptr);
        LogCapture logs;
        std::vector<uint8_t> payload = bytes(c.payload);
        android::Parcel parcel;
        parcel.setData(payload.data(), payload.size());
        EXPECT_EQ(row->handler(&sender, parcel, nullptr), 0);
        expectEvents(deliveriesTo(vopa_host::DeliveryKind::Send, TASK_ID_DATAMNGR), c.events);
        int hits = 0;
        for (const LogLine &l : logs.lines())
            hits += c.log && l.message == c.log && l.prio == c.level;
        EXPECT_TRUE(c.log ? hits > 0 : logs.lines().empty());
        EXPECT_TRUE(vopa_host::wait_no_live_events(1000));
    }
}

}  // namespace
