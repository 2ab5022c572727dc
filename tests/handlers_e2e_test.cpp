// Every handler row through the whole entity: a request event posted to task 202 becomes the
// exact Parcel at the simulated daemon (on a real local socket), and the daemon's scripted answer
// becomes the exact reply the requester gets; TLV requests refused by the daemon are re-sent in
// their plain form. (An accepted TLV request waits for the framework's result event: reader_test
// and dispatcher_test.)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rilproxy_entity.h"
#include "support/bytes.h"
#include "support/entity_daemon.h"
#include "support/event_bytes.h"
#include "vopa_host.h"

namespace {

constexpr uint32_t kRequester = 77;

std::string repeat(const std::string &s, int n) {
    std::string out;
    while (n-- > 0) out += s;
    return out;
}

// The frame's own serial ends a TLV Parcel: "TEXT" as a decimal String16 (ten digits, since bit
// 30 is set), "INT" as an int32.
std::string withSerial(std::string parcel, uint32_t serial) {
    size_t at = parcel.find("SERIAL_");
    if (at == std::string::npos) return parcel;
    std::string tail = hex(&serial, 4);
    if (parcel.compare(at, 11, "SERIAL_TEXT") == 0) {
        tail = "0a 00 00 00";
        for (char c : std::to_string(serial)) tail += " " + hex(&c, 1) + " 00";
        tail += " 00 00 00 00";
    }
    return parcel.replace(at, std::string::npos, tail);
}

// clang-format off
// Strings 1-5 ("ims" and four empty ones), authType "1", then the protocol text, cid "1" and the
// ten values 1, 0 x8, 9; the int32 at 652 is never sent.
std::vector<uint8_t> setupPayload(const char *protocol) {
    return bytesAt(704, {{0, "69 6d 73"}, {640, "01"}, {644, protocol}, {648, "01"}, {652, "7f"},
                         {656, "01"}, {692, "09"}, {700, "01"}});
}
// clang-format on
const std::string kSetupTexts = "03 00 00 00 69 00 6d 00 73 00 00 00 " +
                                repeat("00 00 00 00 00 00 00 00 ", 4) + "01 00 00 00 31 00 00 00 ";
const std::string kSetupTail = "01 00 00 00 31 00 00 00 01 00 00 00 31 00 00 00 " +
                               repeat("01 00 00 00 30 00 00 00 ", 8) + "01 00 00 00 39 00 00 00";
const std::string kIpv4v6 = "06 00 00 00 49 00 50 00 56 00 34 00 56 00 36 00 00 00 00 00 ";
const std::string kIp = "02 00 00 00 49 00 50 00 00 00 00 00 ";

// clang-format off
// ddcId 4, interfaceId 5, cid 6, QoS 1..5, TFT operation 1 with linked filters 5 and 6.
std::vector<uint8_t> bearerPayload(const char *signalingFlag, const char *hasQos,
                                   const char *hasTft) {
    return bytesAt(3956, {{0, "04 00 00 00 05 00 00 00 00 00 00 00 06"}, {20, signalingFlag},
                          {32, hasQos}, {36, "01 00 00 00 02 00 00 00 03 00 00 00 04 00 00 00 05"},
                          {56, hasTft}, {60, "01"}, {3076, "02 00 00 00 05 00 00 00 06"}});
}
// clang-format on
// A bearer on the wire with interfaceId `i`, cid 3, active 1, bearerId 5, no QoS/TFT/P-CSCF.
std::string bearerWire(const char *i) {
    return std::string(i) + " 00 00 00 00 00 00 00 03 00 00 00 01 00 00 00 00 00 00 00 05 00 00 " +
           "00 " + repeat("00 00 00 00 ", 4);
}

// A version-11 data call: cid 3, active 2, "IP" 10.0.0.2 on "rmnet0", mtu 1400.
const char *kDataCallV11 =
    "0b 00 00 00 01 00 00 00 00 00 00 00 ff ff ff ff 03 00 00 00 02 00 00 00 "
    "02 00 00 00 49 00 50 00 00 00 00 00 06 00 00 00 72 00 6d 00 6e 00 65 00 74 00 30 00 00 00 "
    "00 00 08 00 00 00 31 00 30 00 2e 00 30 00 2e 00 30 00 2e 00 32 00 00 00 00 00 00 00 00 00 "
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 78 05 00 00";
const char *kPcscfText = "08 00 00 00 31 00 30 00 2e 00 30 00 2e 00 30 00 2e 00 31 00 00 00 00 00";
const std::vector<uint8_t> kId5Cause2 = bytes("05 00 00 00 02 00 00 00");
const std::vector<uint8_t> kPcscfPayload = bytes("05 00 00 00 02 00 00 00 01 00 00 00");
const std::string kId5Cause2Texts = "02 00 00 00 01 00 00 00 35 00 00 00 01 00 00 00 32 00 00 00";
const HexSlices kStatus0 = {{0, "00 00 00 00"}}, kStatus2 = {{0, "02 00 00 00"}};

struct Frame {
    int32_t request;
    std::string parcel;  // may end in a serial stand-in
    int32_t result;
    std::string answer;
};

bool post(event_id_t id, const std::vector<uint8_t> &payload) {
    return vopa_host::post(TASK_ID_RILPROXY, id, payload.empty() ? nullptr : payload.data(),
                           static_cast<int>(payload.size()), kRequester);
}

std::vector<vopa_host::Delivery> repliesAfter(uint64_t start) {
    return deliveriesTo(vopa_host::DeliveryKind::Reply, kRequester, start);
}

TEST(HandlersE2eTest, EveryRowFromRequestParcelToReply) {
    rild_sim::RildSim *daemon = startEntityWithDaemon();
    ASSERT_NE(daemon, nullptr);
    const struct {
        const char *name;
        event_id_t id;
        std::vector<uint8_t> payload;
        std::vector<Frame> frames;
        std::vector<ExpectedEvent> replies;
    } rows[] = {
        // clang-format off
        // A short payload reads as zeros past its end: id 5, cause 0.
        {"Deactivate", 4005, bytes("05"),
         {{41, "02 00 00 00 01 00 00 00 35 00 00 00 01 00 00 00 30 00 00 00", 0, ""}},
         {{4006, 8, kStatus0}}},
        {"SecondDeactivate", 9322, kId5Cause2, {{2124, kId5Cause2Texts, 0, ""}},
         {{4006, 8, kStatus0}}},
        {"Abort", 4013, kId5Cause2, {{2080, kId5Cause2Texts, 0, ""}}, {{4014, 8, kStatus0}}},
        {"DeactivateDedicatedRilError", 4011, bytes("0c 00 00 00 00 00 00 00"),
         {{2078, "02 00 00 00 02 00 00 00 31 00 32 00 00 00 00 00 01 00 00 00 30 00 00 00", 14,
           ""}}, {{4012, 8, {{0, "0e 00 00 00"}}}}},
        {"BearerBare", 4007, bearerPayload("00", "00", "00"),
         {{2077, "07 00 00 00 04 00 00 00 05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", 0,
           "00 00 00 00"}}, {}},
        {"BearerQosTftThreeReplies", 4007, bearerPayload("09", "01", "01"),
         {{2077, "07 00 00 00 04 00 00 00 05 00 00 00 01 00 00 00 01 00 00 00 01 00 00 00 02 00 "
                 "00 00 03 00 00 00 04 00 00 00 05 00 00 00 01 00 00 00 01 00 00 00 00 00 00 00 "
                 "02 00 00 00 05 00 00 00 06 00 00 00 00 00 00 00",
           0, "03 00 00 00 " + bearerWire("0a") + bearerWire("0b") + bearerWire("0c")}},
         {{4008, 3964, {{0, "00 00 00 00 03 00 00 00 00 00 00 00 0a"}}},
          {4008, 3964, {{0, "00 00 00 00 03 00 01 00 00 00 00 00 0b"}}},
          {4008, 3964, {{0, "00 00 00 00 03 00 02 00 00 00 00 00 0c"}}}}},
        {"ModifyQos", 4009, bearerPayload("01", "03", "00"),
         {{2079, "07 00 00 00 06 00 00 00 01 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00 04 00 "
                 "00 00 05 00 00 00 00 00 00 00", 0, "01 00 00 00 " + bearerWire("0d")}},
         {{4010, 3964, {{0, "00 00 00 00 01 00 00 00 00 00 00 00 0d 00 00 00 00"}}}}},
        // The further text fills its field without a NUL; the flag 5 follows it at once.
        {"AttachApn", 4030, bytesAt(524, {{0, "69 6d 73"}, {128, "01"}, {132, "03"}, {136, "75"},
                                          {392, repeat("78 ", 128)}, {520, "05"}}),
         {{111, "03 00 00 00 69 00 6d 00 73 00 00 00 04 00 00 00 49 00 50 00 56 00 36 00 00 00 "
                "00 00 03 00 00 00 01 00 00 00 75 00 00 00 00 00 00 00 00 00 00 00 80 00 00 00 " +
                repeat("78 00 ", 128) + "00 00 00 00 01 00 00 00", 0, ""}},
         {{4031, 8, kStatus0}}},
        {"RadioPower", 4032, bytes("00 01"), {{23, "01 00 00 00 01 00 00 00", 0, ""}},
         {{4034, 8, kStatus0}}},
        {"Handover", 9318, bytes("00 ff 01 02 03 04"),
         {{2112, "05 00 00 00 ff 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00 04 00 00 00", 0,
           ""}}, {{4053, 8, kStatus0}}},
        {"PsRegStateOneWay", 7004, bytes("01 00 00 00 49 4e 00 ff"),
         {{2125, "02 00 00 00 49 00 4e 00 00 00 00 00", 0, ""}}, {}},
        {"PdnInfoOneWayRilError", 9332,
         bytesAt(24, {{12, "03"}, {20, "78 05"}}),
         {{2127, "07 00 00 00 02 00 00 00 01 00 00 00 04 00 00 00 03 00 00 00 02 00 00 00 04 00 "
                 "00 00 78 05 00 00", 14, ""}}, {}},
        {"SetupTlvRilError", 4003, setupPayload("02"),
         {{2157, "13 00 00 00 " + kSetupTexts + kIpv4v6 + kSetupTail + " SERIAL_TEXT", 14, ""}},
         {{4004, 47876, {{0, "0e 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 00"},
                         {47868, "01"}}}}},
        {"SetupRetriedPlain", 4003, setupPayload("03"),
         {{2157, "13 00 00 00 " + kSetupTexts + kIp + kSetupTail + " SERIAL_TEXT", 6, ""},
          {27, "12 00 00 00 " + kSetupTexts + kIp + kSetupTail, 0, kDataCallV11}},
         {{4004, 47876, {{0, "00 00 00 00 00 00 00 00 ff ff ff ff 03 00 00 00 02 00 00 00 78 05"},
                         {156, "0a 00 00 02"}, {47868, "00"}}}}},
        {"PcscfRetriedPlain", 4015, kPcscfPayload,
         {{2159, "02 00 00 00 01 00 00 00 35 00 00 00 SERIAL_INT", 6, ""},
          {2081, "01 00 00 00 01 00 00 00 35 00 00 00", 0, kPcscfText}},
         {{4016, 264, {{0, "00 00 00 00 01 00 00 00 0a 00 00 01 00 00 00 00"}}}}},
        {"PcscfTlvRilError", 4015, kPcscfPayload,
         {{2159, "02 00 00 00 01 00 00 00 35 00 00 00 SERIAL_INT", 14, ""}},
         {{4016, 264, {{0, "0e 00 00 00 00 00 00 00 00 00 00 00"}}}}},
        {"FailCauseRetriedPlain", 4017, bytes("00"),
         {{2158, "01 00 00 00 SERIAL_INT", 6, ""}, {56, "", 0, "01 00 00 00 21 00 00 00"}},
         {{4018, 8, {{0, "00 00 00 00 21 00 00 00"}}}}},
        {"FailCauseEmptyAnswer", 4017, bytes("00"),
         {{2158, "01 00 00 00 SERIAL_INT", 6, ""}, {56, "", 0, "00 00 00 00"}},
         {{4018, 8, kStatus2}}},
        {"FailCauseTlvRilError", 4017, bytes("00"), {{2158, "01 00 00 00 SERIAL_INT", 33, ""}},
         {{4018, 8, {{0, "21 00 00 00 21 00 00 00"}}}}},
        // Without a payload nothing is sent; the tracker answers with 2 through the error function.
        {"DeactivateNoPayload", 4005, {}, {}, {{4006, 8, kStatus2}}},
        {"SetupNoPayload", 4003, {}, {},
         {{4004, 47876, {{0, "02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
                         {47868, "00"}}}}},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        uint64_t start = lastDeliverySeq();
        ASSERT_TRUE(post(row.id, row.payload));
        for (const Frame &f : row.frames) {
            rild_sim::RequestFrame req;
            ASSERT_TRUE(daemon->readRequest(&req, 5000));
            EXPECT_EQ(req.request_id, f.request);
            bool tlv = f.parcel.find("SERIAL_") != std::string::npos;
            EXPECT_EQ((req.serial & RIL_SERIAL_RETRY_FLAG) != 0, tlv);
            EXPECT_EQ(hex(req.payload), withSerial(f.parcel, req.serial));
            ASSERT_TRUE(daemon->writeResponse(req.serial, f.result, bytes(f.answer)));
        }
        ASSERT_TRUE(vopa_host::wait_no_live_events(5000));
        expectEvents(repliesAfter(start), row.replies);
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
    }
    rild_sim::RequestFrame stray;
    EXPECT_FALSE(daemon->readRequest(&stray, 300));
}

}  // namespace
