// The handler rows, first called directly for what a whole-entity run cannot reach (request
// guards on missing and short payloads, the TLV SIM slot and serial, responses the reader never
// hands over, error replies byte for byte), then each row through the whole entity: a request
// event posted to task 202 becomes the exact Parcel at the simulated daemon (on a real local
// socket), and the daemon's scripted answer becomes the exact reply the requester gets; TLV
// requests refused by the daemon are re-sent in their plain form. Rows whose bytes the demo's
// and the golden flow already pin (set-up and P-CSCF retried plain, modify) are not repeated,
// nor the handover, whose request and answered reply the dissector's run of more_frames.script
// pins; an accepted TLV request waiting for the framework's result is reader_test's and
// dispatcher_test's.
#include "handlers/handlers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/handler_lookup.h"
#include "rilproxy_entity.h"
#include "support/bytes.h"
#include "support/entity_daemon.h"
#include "support/event_bytes.h"
#include "support/log_capture.h"
#include "vopa_host.h"

namespace {

vopa_task_t gTask;  // replies only need a non-null task; the host routes them by requester
constexpr uint32_t kRequester = 31;

class HandlersTest : public testing::Test {
protected:
    void SetUp() override { vopa_host::reset(); }
    void TearDown() override {
        for (event_ptr_t e : mEvents) vopa_event_free(e);
        EXPECT_EQ(vopa_host::counters().live, 0u);
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
    }
    event_ptr_t event(event_id_t id, const std::vector<uint8_t> &payload) {
        mEvents.push_back(vopa_host::new_event(id, payload.empty() ? nullptr : payload.data(),
                                               static_cast<int>(payload.size()), kRequester));
        return mEvents.back();
    }
    // Through the row of `id` in the TLV or the plain table.
    int request(bool tlv, event_id_t id, const std::vector<uint8_t> &payload,
                rilproxy_ril_requset_param_t *p) {
        event_ptr_t e = event(id, payload);
        if (tlv) return rilproxy_find_handler_tlv(ril_handlers_tlv, id)->req(e, p->parcel, p);
        auto *feature = reinterpret_cast<ril_supported_feature_t *>(p);
        return rilproxy_find_handler(ril_handlers, id)->req(e, p->parcel, feature);
    }
    std::vector<event_ptr_t> mEvents;
};

// Every request function but the plain fail cause refuses an event without payload, writes
// nothing and says why (the PDN information's text ends in a newline); every row answers its
// failures through the one error function.
TEST_F(HandlersTest, RequestsWithoutPayloadFail) {
    for (ril_handler_t *r = ril_handlers; r->req_event_id != 0; r++) {
        SCOPED_TRACE(r->req_event_id);
        LogCapture logs;
        rilproxy_ril_requset_param_t param;
        bool optional = r->req_event_id == EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ;
        EXPECT_EQ(request(false, r->req_event_id, {}, &param), optional ? 0 : -1);
        EXPECT_EQ(param.parcel.dataSize(), 0u);
        const char *why = r->req_event_id == EVENT_RB_DM_PDN_INFO_IND ? "can't get the data\n"
                                                                      : "can't get the data";
        EXPECT_EQ(logs.containsMessage(why), !optional);
        EXPECT_TRUE(r->resp && r->err == rilproxy_DATAMNGR_error);
    }
    for (ril_handler_tlv_t *r = ril_handlers_tlv; r->req_event_id != 0; r++) {
        rilproxy_ril_requset_param_t param;
        EXPECT_EQ(request(true, r->req_event_id, {}, &param), -1);
        EXPECT_EQ(param.parcel.dataSize(), 0u);
        EXPECT_TRUE(r->resp && r->err == rilproxy_DATAMNGR_error);
    }
}

// What the end-to-end rows do not show: a payload too short for its length reads as the empty
// text, and the TLV forms take the SIM slot from the payload (the fail cause keeps the tracker's)
// and end with the serial as an int32, bit 30 included.
TEST_F(HandlersTest, RequestParcels) {
    const struct {
        bool tlv;
        event_id_t id;
        std::vector<uint8_t> payload;
        int32_t sim;
        std::string parcel;
    } cases[] = {
        // clang-format off
        {false, 7004, bytes("00 00 00"), 3, "00 00 00 00 00 00 00 00"},
        {true, 4015, bytes("05 00 00 00 02 00 00 00 01 00 00 00"), 1,
         "02 00 00 00 01 00 00 00 35 00 00 00 01 02 00 40"},
        {true, 4017, bytes("00"), 3, "01 00 00 00 01 02 00 40"},
        // clang-format on
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.id);
        LogCapture logs;
        rilproxy_ril_requset_param_t param;
        param.sim_id = 3;
        param.serial_no = 0x40000201u;
        ASSERT_EQ(request(c.tlv, c.id, c.payload, &param), 0);
        EXPECT_EQ(param.sim_id, c.sim);
        EXPECT_EQ(hex(param.parcel.data(), param.parcel.dataSize()), c.parcel);
        EXPECT_EQ(logs.containsMessage("SIM ID = " + std::to_string(c.sim) + "\n"), c.tlv);
    }
}

// What the end-to-end rows cannot reach: set-up versions around the oldest accepted, a bearer count
// beyond the payload, the TLV responses' guard (the reader never hands them a failure), and error
// replies in full: every byte not named is zero, and a short set-up payload reads as zeros past its
// end.
TEST_F(HandlersTest, ResponsesAndErrorsBecomeReplies) {
    const std::string kStatus2 = "02 00 00 00";
    const struct {
        ril_resp_fn_t resp;  // null: the error function
        event_id_t id;       // the response event
        std::vector<uint8_t> payload;
        std::string parcel;
        int result;
        std::vector<ExpectedEvent> want;
        int nonzero;  // bytes of the reply that are not zero, -1: not counted
        const char *log;
    } cases[] = {
        // clang-format off
        {rilproxy_SETUP_DATA_CALL_resp, 4004, {}, "04 00 00 00 01 00 00 00", 0,
         {{4004, 8, {{0, kStatus2}}}}, -1, "version (4) < 5"},
        // Version 5 is the oldest accepted: status 0, retry -1, cid 7, active 2, rest absent.
        {rilproxy_SETUP_DATA_CALL_resp, 4004, {},
         "05 00 00 00 01 00 00 00 00 00 00 00 ff ff ff ff 07 00 00 00 02 00 00 00", 0,
         {{4004, 47876, {{0, "00 00 00 00 00 00 00 00 ff ff ff ff 07 00 00 00 02 00 00 00"}}}}, -1,
         "version = 5, num = 1"},
        // One bearer (interfaceId 10, cid 3, active 1, bearerId 5) where 3 are announced: the
        // two the payload lacks are zeros under their own index.
        {rilproxy_MODIFY_DATA_CALL_resp, 4010, {},
         "03 00 00 00 0a 00 00 00 00 00 00 00 03 00 00 00 01 00 00 00 00 00 00 00 05 00 00 00 "
         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
         0, {{4010, 3964, {{0, "00 00 00 00 03 00 00 00 00 00 00 00 0a"}}},
             {4010, 3964, {{0, "00 00 00 00 03 00 01 00 00 00 00 00 00 00 00 00"}}},
             {4010, 3964, {{0, "00 00 00 00 03 00 02 00 00 00 00 00 00 00 00 00"}}}}, -1,
         "num = 3"},
        // 1000 announced, none carried: the replies stop at the ceiling.
        {rilproxy_SETUP_DEDICATE_DATA_CALL_resp, 4008, {}, "e8 03 00 00", 0,
         std::vector<ExpectedEvent>(256, {4008, 3964, {{0, "00 00 00 00 e8 03"}}}), -1,
         "num = 1000, only the first 256 entries are sent"},
        {rilproxy_SETUP_DATA_CALL_TLV_resp, 4004, {}, "", 3, {{4004, 8, {{0, kStatus2}}}}, -1,
         "resp_result (3) != ZOKRIL_E_SUCCESS"},
        {rilproxy_PCSCF_DISCOVERY_PCO_TLV_resp, 4016, {}, "", 7, {{4016, 8, {{0, kStatus2}}}}, -1,
         "resp_result (7) != ZOKRIL_E_SUCCESS"},
        {rilproxy_LAST_DATA_CALL_FAIL_CAUSE_TLV_resp, 4018, {}, "", 0, {}, -1, "SIM ID = 2\n"},
        {nullptr, 4004, bytesAt(704, {{648, "09"}, {700, "01"}}), "", 14,
         {{4004, 47876, {{0, "0e 00 00 00 00 00 00 00 00 00 00 00 09 00"}, {47868, "01"}}}}, 3,
         "SIM ID = 1\n"},
        {nullptr, 4004, bytesAt(650, {{648, "09"}}), "", 2,
         {{4004, 47876, {{0, "02 00 00 00 00 00 00 00 00 00 00 00 09 00"}}}}, 2,
         "ERROR EVENT_SETUP_DATA_CALL_RESP\n"},
        {nullptr, 4018, {}, "", 14, {{4018, 8, {{0, "0e 00 00 00 0e 00 00 00"}}}}, 2,
         "ERROR EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP\n"},
        {nullptr, 9332, {}, "", 14, {}, -1, "ERROR EVENT_RB_DM_PDN_INFO_IND_RESP"},
        // clang-format on
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.log);
        vopa_host::clear_deliveries();
        LogCapture logs;
        std::vector<uint8_t> wire = bytes(c.parcel);
        android::Parcel parcel;
        parcel.setData(wire.data(), wire.size());
        ril_supported_feature_t feature = {2};
        event_ptr_t e = event(c.id, c.payload);
        EXPECT_EQ(c.resp ? c.resp(&gTask, e, c.id, parcel, c.result, &feature)
                         : rilproxy_DATAMNGR_error(&gTask, e, c.id, c.result),
                  0);
        std::vector<vopa_host::Delivery> got =
            deliveriesTo(vopa_host::DeliveryKind::Reply, kRequester);
        expectEvents(got, c.want);
        EXPECT_TRUE(logs.containsMessage(c.log));
        if (c.nonzero < 0 || got.empty()) continue;
        EXPECT_EQ(c.nonzero, std::count_if(got[0].data.begin(), got[0].data.end(),
                                           [](uint8_t b) { return b != 0; }));
    }
}

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

const std::vector<uint8_t> kId5Cause2 = bytes("05 00 00 00 02 00 00 00");
const std::string kId5Cause2Texts = "02 00 00 00 01 00 00 00 35 00 00 00 01 00 00 00 32 00 00 00";
const HexSlices kStatus0 = {{0, "00 00 00 00"}}, kStatus2 = {{0, "02 00 00 00"}};

struct Frame {
    int32_t request;
    std::string parcel;  // may end in a serial stand-in
    int32_t result;
    std::string answer;
};

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
        // The further text fills its field without a NUL; the flag 5 follows it at once.
        {"AttachApn", 4030, bytesAt(524, {{0, "69 6d 73"}, {128, "01"}, {132, "03"}, {136, "75"},
                                          {392, repeat("78 ", 128)}, {520, "05"}}),
         {{111, "03 00 00 00 69 00 6d 00 73 00 00 00 04 00 00 00 49 00 50 00 56 00 36 00 00 00 "
                "00 00 03 00 00 00 01 00 00 00 75 00 00 00 00 00 00 00 00 00 00 00 80 00 00 00 " +
                repeat("78 00 ", 128) + "00 00 00 00 01 00 00 00", 0, ""}},
         {{4031, 8, kStatus0}}},
        {"RadioPower", 4032, bytes("00 01"), {{23, "01 00 00 00 01 00 00 00", 0, ""}},
         {{4034, 8, kStatus0}}},
        // A text without a NUL ends at the payload's end.
        {"PsRegStateOneWay", 7004, bytes("01 00 00 00 49 4e"),
         {{2125, "02 00 00 00 49 00 4e 00 00 00 00 00", 0, ""}}, {}},
        {"PdnInfoOneWayRilError", 9332,
         bytesAt(24, {{12, "03"}, {20, "78 05"}}),
         {{2127, "07 00 00 00 02 00 00 00 01 00 00 00 04 00 00 00 03 00 00 00 02 00 00 00 04 00 "
                 "00 00 78 05 00 00", 14, ""}}, {}},
        {"SetupTlvRilError", 4003, setupPayload("02"),
         {{2157, "13 00 00 00 " + kSetupTexts + kIpv4v6 + kSetupTail + " SERIAL_TEXT", 14, ""}},
         {{4004, 47876, {{0, "0e 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 00"},
                         {47868, "01"}}}}},
        {"PcscfTlvRilError", 4015, bytes("05 00 00 00 02 00 00 00 01 00 00 00"),
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
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        uint64_t start = lastDeliverySeq();
        const std::vector<uint8_t> &payload = row.payload;
        ASSERT_TRUE(vopa_host::post(TASK_ID_RILPROXY, row.id,
                                    payload.empty() ? nullptr : payload.data(),
                                    static_cast<int>(payload.size()), kRequester));
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
        expectEvents(deliveriesTo(vopa_host::DeliveryKind::Reply, kRequester, start), row.replies);
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
    }
    rild_sim::RequestFrame stray;
    EXPECT_FALSE(daemon->readRequest(&stray, 300));
}

}  // namespace
