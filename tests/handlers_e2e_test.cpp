// Every handler row through the whole entity: a request event posted to task 202 becomes the
// exact Parcel at the simulated daemon (on a real local socket), and the daemon's scripted answer
// becomes the exact reply the requester gets; TLV requests refused by the daemon are re-sent in
// their plain form, accepted ones wait for the framework's result event.
//
// The connected reader ends the process when its socket closes, so the daemon is never deleted.
#include <cutils/properties_host.h>
#include <gtest/gtest.h>
#include <string.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "rilproxy_entity.h"
#include "support/bytes.h"
#include "support/log_capture.h"
#include "support/socket_dir.h"
#include "tools/sim/rild_sim.h"
#include "vopa_host.h"

namespace {

constexpr uint32_t kRequester = 77;

// Stand-ins in an expected Parcel for the frame's own serial number, which depends on what the
// pool handed out before: as a decimal String16, or as an int32.
const std::string kSerialText = "SERIAL_TEXT", kSerialInt = "SERIAL_INT";

std::string serialHex(const std::string &expected, uint32_t serial) {
    std::string out = expected;
    size_t at = out.find(kSerialText);
    if (at != std::string::npos) {
        std::string digits = std::to_string(serial), units;
        for (char c : digits) units += hex(&c, 1) + " 00 ";
        units += digits.size() % 2 ? "00 00" : "00 00 00 00";
        out.replace(
            at, kSerialText.size(),
            hex(std::vector<uint8_t>{static_cast<uint8_t>(digits.size()), 0, 0, 0}) + " " + units);
    }
    at = out.find(kSerialInt);
    if (at != std::string::npos) out.replace(at, kSerialInt.size(), hex(&serial, 4));
    return out;
}

std::string repeat(const std::string &s, int n) {
    std::string out;
    while (n-- > 0) out += s;
    return out;
}

// Strings 1-5, authType "1", then the protocol text, cid "1" and the ten values 1, 0 x8, 9.
const std::string kSetupTexts = "03 00 00 00 69 00 6d 00 73 00 00 00 " +
                                repeat("00 00 00 00 00 00 00 00 ", 4) + "01 00 00 00 31 00 00 00 ";
const std::string kSetupTail = "01 00 00 00 31 00 00 00 01 00 00 00 31 00 00 00 " +
                               repeat("01 00 00 00 30 00 00 00 ", 8) + "01 00 00 00 39 00 00 00";
const std::string kIpv4v6 = "06 00 00 00 49 00 50 00 56 00 34 00 56 00 36 00 00 00 00 00 ";
const std::string kIp = "02 00 00 00 49 00 50 00 00 00 00 00 ";

std::vector<uint8_t> setupPayload(int32_t protocol) {
    DataCallSetupRequest r = {};
    strcpy(r.strings[0], "ims");
    r.authType = 1;
    r.protocol = protocol;
    r.cid = 1;
    r.reserved0 = 0x7f;  // never sent
    r.mIsValid[0] = 1;
    r.mIsValid[9] = 9;
    r.simId = 1;
    const uint8_t *p = reinterpret_cast<const uint8_t *>(&r);
    return std::vector<uint8_t>(p, p + sizeof(r));
}

std::vector<uint8_t> apnPayload() {
    InitialAttachApnRequest r = {};
    strcpy(r.apn, "ims");
    r.protocol = 1;
    r.authType = 3;
    strcpy(r.username, "u");
    memset(r.extra, 'x', sizeof(r.extra));  // no NUL: the flag follows at once
    r.flag = 5;
    const uint8_t *p = reinterpret_cast<const uint8_t *>(&r);
    return std::vector<uint8_t>(p, p + sizeof(r));
}

std::vector<uint8_t> bearerPayload(int32_t signalingFlag, int32_t hasQos, int32_t hasTft) {
    ZOK_Dedicate_Data_Call_Struct b = {};
    b.ddcId = 4;
    b.interfaceId = 5;
    b.cid = 6;
    b.signalingFlag = signalingFlag;
    b.hasQos = hasQos;
    b.qos = {{1, 2, 3, 4, 5}};
    b.hasTft = hasTft;
    b.tft.operation = 1;
    b.tft.linkedPfNumber = 2;
    b.tft.linkedPfList[0] = 5;
    b.tft.linkedPfList[1] = 6;
    const uint8_t *p = reinterpret_cast<const uint8_t *>(&b);
    return std::vector<uint8_t>(p, p + sizeof(b));
}

// A bearer on the wire with interfaceId `i`, cid 3, active 1, bearerId 5, no QoS/TFT/P-CSCF.
std::string bearerWire(const char *i) {
    return std::string(i) + " 00 00 00 00 00 00 00 03 00 00 00 01 00 00 00 00 00 00 00 05 00 00 " +
           "00 " + repeat("00 00 00 00 ", 4);
}

const char *kDataCallV11 =
    "0b 00 00 00 01 00 00 00 00 00 00 00 ff ff ff ff 03 00 00 00 02 00 00 00 "
    "02 00 00 00 49 00 50 00 00 00 00 00 06 00 00 00 72 00 6d 00 6e 00 65 00 74 00 30 00 00 00 "
    "00 00 08 00 00 00 31 00 30 00 2e 00 30 00 2e 00 30 00 2e 00 32 00 00 00 00 00 00 00 00 00 "
    "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 78 05 00 00";
const char *kPcscfText = "08 00 00 00 31 00 30 00 2e 00 30 00 2e 00 30 00 2e 00 31 00 00 00 00 00";

struct Frame {
    int32_t request;
    std::string parcel;  // may hold a serial stand-in
    int32_t result;
    std::string answer;
};

struct Reply {
    event_id_t id;
    size_t size;
    std::vector<std::pair<size_t, std::string>> slices;  // offset, hex
};

struct RowCase {
    const char *name;
    event_id_t id;
    std::vector<uint8_t> payload;
    std::vector<Frame> frames;
    std::vector<Reply> replies;
};

void PrintTo(const RowCase &c, std::ostream *os) {
    *os << c.name;
}

rild_sim::RildSim *gDaemon = nullptr;

std::vector<vopa_host::Delivery> repliesAfter(uint64_t start) {
    std::vector<vopa_host::Delivery> out;
    for (const vopa_host::Delivery &d : vopa_host::deliveries()) {
        if (d.seq > start && d.kind == vopa_host::DeliveryKind::Reply &&
            d.to == static_cast<int32_t>(kRequester))
            out.push_back(d);
    }
    return out;
}

void expectReplies(uint64_t start, const std::vector<Reply> &want) {
    std::vector<vopa_host::Delivery> got = repliesAfter(start);
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); i++) {
        EXPECT_EQ(got[i].id, want[i].id);
        ASSERT_EQ(got[i].data.size(), want[i].size);
        for (const auto &s : want[i].slices) {
            EXPECT_EQ(hex(got[i].data.data() + s.first, bytes(s.second).size()), s.second)
                << "reply " << i << " @" << s.first;
        }
    }
}

class HandlersE2eTest : public testing::Test {
protected:
    // One entity for the whole process (both suites share it): its reader keeps the socket
    // until the process ends.
    static void SetUpTestSuite() {
        if (gDaemon != nullptr) return;
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
    void SetUp() override {
        ASSERT_NE(gDaemon, nullptr);
        std::vector<vopa_host::Delivery> before = vopa_host::deliveries();
        start = before.empty() ? 0 : before.back().seq;
    }
    void TearDown() override {
        EXPECT_TRUE(vopa_host::wait_no_live_events(5000));
        EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
    }
    static bool post(event_id_t id, const std::vector<uint8_t> &payload) {
        return vopa_host::post(TASK_ID_RILPROXY, id, payload.empty() ? nullptr : payload.data(),
                               static_cast<int>(payload.size()), kRequester);
    }
    uint64_t start = 0;
};

class HandlerRowTest : public HandlersE2eTest, public testing::WithParamInterface<RowCase> {};

TEST_P(HandlerRowTest, RequestParcelAndReply) {
    const RowCase &c = GetParam();
    ASSERT_TRUE(post(c.id, c.payload));
    for (const Frame &f : c.frames) {
        rild_sim::RequestFrame req;
        ASSERT_TRUE(gDaemon->readRequest(&req, 5000));
        EXPECT_EQ(req.request_id, f.request);
        bool tlv = f.parcel.find("SERIAL") != std::string::npos;
        EXPECT_EQ((req.serial & RIL_SERIAL_RETRY_FLAG) != 0, tlv);
        EXPECT_EQ(hex(req.payload), serialHex(f.parcel, req.serial));
        ASSERT_TRUE(gDaemon->writeResponse(req.serial, f.result, bytes(f.answer)));
    }
    ASSERT_TRUE(vopa_host::wait_no_live_events(5000));
    expectReplies(start, c.replies);
}

const std::string kStatus0 = "00 00 00 00";

INSTANTIATE_TEST_SUITE_P(
    Rows, HandlerRowTest,
    testing::Values(
        RowCase{"Deactivate",
                4005,
                bytes("05 00 00 00 02 00 00 00"),
                {{41, "02 00 00 00 01 00 00 00 35 00 00 00 01 00 00 00 32 00 00 00", 0, ""}},
                {{4006, 8, {{0, kStatus0}}}}},
        RowCase{"SecondDeactivate",
                9322,
                bytes("05 00 00 00 02 00 00 00"),
                {{2124, "02 00 00 00 01 00 00 00 35 00 00 00 01 00 00 00 32 00 00 00", 0, ""}},
                {{4006, 8, {{0, kStatus0}}}}},
        RowCase{"DeactivateDedicatedRilError",
                4011,
                bytes("0c 00 00 00 00 00 00 00"),
                {{2078, "02 00 00 00 02 00 00 00 31 00 32 00 00 00 00 00 01 00 00 00 30 00 00 00",
                  14, ""}},
                {{4012, 8, {{0, "0e 00 00 00"}}}}},
        RowCase{"Abort",
                4013,
                bytes("05 00 00 00 02 00 00 00"),
                {{2080, "02 00 00 00 01 00 00 00 35 00 00 00 01 00 00 00 32 00 00 00", 0, ""}},
                {{4014, 8, {{0, kStatus0}}}}},
        RowCase{"BearerBare",
                4007,
                bearerPayload(0, 0, 0),
                {{2077, "07 00 00 00 04 00 00 00 05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
                  0, "00 00 00 00"}},
                {}},
        RowCase{"BearerQosTftThreeReplies",
                4007,
                bearerPayload(9, 1, 1),
                {{2077,
                  "07 00 00 00 04 00 00 00 05 00 00 00 01 00 00 00 01 00 00 00 01 00 00 00 02 00 "
                  "00 00 03 00 00 00 04 00 00 00 05 00 00 00 01 00 00 00 01 00 00 00 00 00 00 00 "
                  "02 00 00 00 05 00 00 00 06 00 00 00 00 00 00 00",
                  0, "03 00 00 00 " + bearerWire("0a") + bearerWire("0b") + bearerWire("0c")}},
                {{4008, 3964, {{0, "00 00 00 00 03 00 00 00 00 00 00 00 0a"}}},
                 {4008, 3964, {{0, "00 00 00 00 03 00 01 00 00 00 00 00 0b"}}},
                 {4008, 3964, {{0, "00 00 00 00 03 00 02 00 00 00 00 00 0c"}}}}},
        RowCase{"ModifyQos",
                4009,
                bearerPayload(1, 3, 0),
                {{2079,
                  "07 00 00 00 06 00 00 00 01 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00 04 00 "
                  "00 00 05 00 00 00 00 00 00 00",
                  0, "01 00 00 00 " + bearerWire("0d")}},
                {{4010, 3964, {{0, "00 00 00 00 01 00 00 00 00 00 00 00 0d 00 00 00 00"}}}}},
        RowCase{"AttachApn",
                4030,
                apnPayload(),
                {{111,
                  "03 00 00 00 69 00 6d 00 73 00 00 00 04 00 00 00 49 00 50 00 56 00 36 00 00 00 "
                  "00 00 03 00 00 00 01 00 00 00 75 00 00 00 00 00 00 00 00 00 00 00 80 00 00 00 " +
                      repeat("78 00 ", 128) + "00 00 00 00 01 00 00 00",
                  0, ""}},
                {{4031, 8, {{0, kStatus0}}}}},
        RowCase{"RadioPower",
                4032,
                bytes("07 00 00 00"),
                {{23, "01 00 00 00 01 00 00 00", 0, ""}},
                {{4034, 8, {{0, kStatus0}}}}},
        RowCase{"Handover",
                9318,
                bytes("00 ff 01 02 03 04"),
                {{2112, "05 00 00 00 ff 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00 04 00 00 00",
                  0, ""}},
                {{4053, 8, {{0, kStatus0}}}}},
        RowCase{"PsRegStateOneWay",
                7004,
                bytes("01 00 00 00 49 4e 00 ff"),
                {{2125, "02 00 00 00 49 00 4e 00 00 00 00 00", 0, ""}},
                {}},
        RowCase{"PdnInfoOneWay",
                9332,
                bytes("00 00 00 00 00 00 00 00 00 00 00 00 03 00 00 00 00 00 00 00 78 05 00 00"),
                {{2127,
                  "07 00 00 00 02 00 00 00 01 00 00 00 04 00 00 00 03 00 00 00 02 00 00 00 04 00 "
                  "00 00 78 05 00 00",
                  14, ""}},
                {}},
        RowCase{"SetupTlvRilError",
                4003,
                setupPayload(2),
                {{2157, "13 00 00 00 " + kSetupTexts + kIpv4v6 + kSetupTail + " " + kSerialText, 14,
                  ""}},
                {{4004,
                  47876,
                  {{0, "0e 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 00"}, {47868, "01"}}}}},
        RowCase{"SetupRetriedPlain",
                4003,
                setupPayload(3),
                {{2157, "13 00 00 00 " + kSetupTexts + kIp + kSetupTail + " " + kSerialText, 6, ""},
                 {27, "12 00 00 00 " + kSetupTexts + kIp + kSetupTail, 0, kDataCallV11}},
                {{4004,
                  47876,
                  {{0, "00 00 00 00 00 00 00 00 ff ff ff ff 03 00 00 00 02 00 00 00 78 05 00 00"},
                   {156, "0a 00 00 02"},
                   {47868, "00"}}}}},
        RowCase{"PcscfRetriedPlain",
                4015,
                bytes("05 00 00 00 02 00 00 00 01 00 00 00"),
                {{2159, "02 00 00 00 01 00 00 00 35 00 00 00 " + kSerialInt, 6, ""},
                 {2081, "01 00 00 00 01 00 00 00 35 00 00 00", 0, kPcscfText}},
                {{4016, 264, {{0, "00 00 00 00 01 00 00 00 0a 00 00 01 00 00 00 00"}}}}},
        RowCase{"PcscfTlvRilError",
                4015,
                bytes("05 00 00 00 02 00 00 00 01 00 00 00"),
                {{2159, "02 00 00 00 01 00 00 00 35 00 00 00 " + kSerialInt, 14, ""}},
                {{4016, 264, {{0, "0e 00 00 00 00 00 00 00 00 00 00 00"}}}}},
        RowCase{
            "FailCauseRetriedPlain",
            4017,
            bytes("00"),
            {{2158, "01 00 00 00 " + kSerialInt, 6, ""}, {56, "", 0, "01 00 00 00 21 00 00 00"}},
            {{4018, 8, {{0, "00 00 00 00 21 00 00 00"}}}}},
        RowCase{"FailCauseEmptyAnswer",
                4017,
                bytes("00"),
                {{2158, "01 00 00 00 " + kSerialInt, 6, ""}, {56, "", 0, "00 00 00 00"}},
                {{4018, 8, {{0, "02 00 00 00"}}}}},
        RowCase{"FailCauseTlvRilError",
                4017,
                bytes("00"),
                {{2158, "01 00 00 00 " + kSerialInt, 33, ""}},
                {{4018, 8, {{0, "21 00 00 00 21 00 00 00"}}}}}),
    [](const testing::TestParamInfo<RowCase> &info) { return std::string(info.param.name); });

TEST_F(HandlersE2eTest, AcceptedTlvSetupWaitsForTheFrameworkResult) {
    LogCapture logs;
    ASSERT_TRUE(post(EVENT_SETUP_DATA_CALL_REQ, setupPayload(0)));
    rild_sim::RequestFrame req;
    ASSERT_TRUE(gDaemon->readRequest(&req, 5000));
    ASSERT_EQ(req.request_id, ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV);
    ASSERT_TRUE(gDaemon->writeResponse(req.serial, ZOKRIL_E_SUCCESS, {}));
    char ignored[96];
    snprintf(ignored, sizeof(ignored),
             "ignore new ril request with ZOKRIL_E_SUCCESS for serial_no %x\n", req.serial);
    for (int i = 0; i < 500 && !logs.containsMessage(ignored); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(logs.containsMessage(ignored));
    EXPECT_TRUE(repliesAfter(start).empty());
    EXPECT_EQ(vopa_host::counters().live, 1u);  // still parked

    std::vector<uint8_t> result(4 + sizeof(DataCallSetupReply));
    memcpy(result.data(), &req.serial, 4);
    result[4 + 12] = 0x2a;     // cid of the data-call record
    result[4 + 47868] = 0x01;  // simId
    ASSERT_TRUE(vopa_host::post(TASK_ID_RILPROXY, EVENT_RESP_DATA_CALL_INFO, result.data(),
                                static_cast<int>(result.size()), 5));
    ASSERT_TRUE(vopa_host::wait_no_live_events(5000));
    expectReplies(start,
                  {{4004, 47876, {{0, "00 00 00 00 00 00 00 00 00 00 00 00 2a"}, {47868, "01"}}}});
}

TEST_F(HandlersE2eTest, MissingPayloadIsAnsweredWithoutSending) {
    LogCapture logs;
    ASSERT_TRUE(post(EVENT_DEACTIVATE_DATA_CALL_REQ, {}));
    ASSERT_TRUE(post(EVENT_SETUP_DATA_CALL_REQ, {}));
    ASSERT_TRUE(vopa_host::wait_no_live_events(5000));
    ASSERT_TRUE(vopa_host::wait_task_idle(TASK_ID_RILPROXY, 5000));
    expectReplies(
        start,
        {{4006, 8, {{0, "02 00 00 00"}}},
         {4004, 47876, {{0, "02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"}, {47868, "00"}}}});
    EXPECT_EQ(logs.countMessage("can't get the data"), 2);
    EXPECT_TRUE(logs.containsMessage("SIM ID = 0\n"));
    rild_sim::RequestFrame req;
    EXPECT_FALSE(gDaemon->readRequest(&req, 300));
}

}  // namespace
