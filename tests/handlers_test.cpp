// The handler functions called directly, for what the end-to-end rows in handlers_e2e_test.cpp
// cannot reach: request guards on missing, short and unterminated payloads, responses the reader
// never hands over, and the set-up error reply byte for byte.
#include "handlers/handlers.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/handler_lookup.h"
#include "rilproxy_entity.h"
#include "support/bytes.h"
#include "support/log_capture.h"
#include "vopa_host.h"

namespace {

vopa_task_t gTask;  // replies only need a non-null task; the host routes them by requester
constexpr uint32_t kRequester = 31;

struct Reply {
    event_id_t id;
    size_t size;
    std::string head;  // hex of the first bytes
};

std::vector<vopa_host::Delivery> replies() {
    std::vector<vopa_host::Delivery> out;
    for (const vopa_host::Delivery &d : vopa_host::deliveries()) {
        if (d.kind == vopa_host::DeliveryKind::Reply && d.to == static_cast<int32_t>(kRequester))
            out.push_back(d);
    }
    return out;
}

void expectReplies(const std::vector<Reply> &want) {
    std::vector<vopa_host::Delivery> got = replies();
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < want.size(); i++) {
        EXPECT_EQ(got[i].id, want[i].id) << i;
        ASSERT_EQ(got[i].data.size(), want[i].size) << i;
        size_t n = bytes(want[i].head).size();
        EXPECT_EQ(hex(got[i].data.data(), n), want[i].head) << i;
    }
}

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
    std::vector<event_ptr_t> mEvents;
};

TEST_F(HandlersTest, TablesEndWithZeroRowAndEveryRowHasTheErrorFunction) {
    int plain = 0, tlv = 0;
    for (ril_handler_t *r = ril_handlers; r->req_event_id != 0; r++, plain++) {
        EXPECT_EQ(r->reserved, 0);
        EXPECT_TRUE(r->req && r->resp && r->err == rilproxy_DATAMNGR_error) << r->req_event_id;
    }
    for (ril_handler_tlv_t *r = ril_handlers_tlv; r->req_event_id != 0; r++, tlv++) {
        EXPECT_EQ(r->reserved, 0);
        EXPECT_TRUE(r->req && r->resp && r->err == rilproxy_DATAMNGR_error) << r->req_event_id;
        // The reader's fallback finds the plain row by the same event ids.
        ril_handler_t *pair = rilproxy_find_handler(ril_handlers, r->req_event_id);
        ASSERT_NE(pair, nullptr);
        EXPECT_EQ(pair->resp_event_id, r->resp_event_id);
    }
    EXPECT_EQ(plain, 14);
    EXPECT_EQ(tlv, 3);
    EXPECT_EQ(ril_handlers[14].resp_event_id | ril_handlers[14].ril_request_id, 0);
    EXPECT_EQ(ril_handlers_tlv[3].resp, nullptr);
}

// Every request function but the plain fail cause refuses an event without payload, writes
// nothing and says why; the PDN information's text ends in a newline.
TEST_F(HandlersTest, RequestsWithoutPayloadFail) {
    for (ril_handler_t *r = ril_handlers; r->req_event_id != 0; r++) {
        LogCapture logs;
        rilproxy_ril_requset_param_t param;
        int rc = r->req(event(r->req_event_id, {}), param.parcel,
                        reinterpret_cast<ril_supported_feature_t *>(&param));
        bool optional = r->req_event_id == EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ;
        EXPECT_EQ(rc, optional ? 0 : -1) << r->req_event_id;
        EXPECT_EQ(param.parcel.dataSize(), 0u) << r->req_event_id;
        const char *why = r->req_event_id == EVENT_RB_DM_PDN_INFO_IND ? "can't get the data\n"
                                                                      : "can't get the data";
        EXPECT_EQ(logs.containsMessage(why), !optional) << r->req_event_id;
    }
    for (ril_handler_tlv_t *r = ril_handlers_tlv; r->req_event_id != 0; r++) {
        rilproxy_ril_requset_param_t param;
        EXPECT_EQ(r->req(event(r->req_event_id, {}), param.parcel, &param), -1);
        EXPECT_EQ(param.parcel.dataSize(), 0u);
    }
}

// Short payloads read as zeros past their end; texts without a NUL end at the payload's end.
TEST_F(HandlersTest, ShortPayloadsAreNotOverRead) {
    const struct {
        event_id_t id;
        std::string payload, parcel;
    } cases[] = {
        {EVENT_DEACTIVATE_DATA_CALL_REQ, "05",
         "02 00 00 00 01 00 00 00 35 00 00 00 01 00 00 00 30 00 00 00"},
        {EVENT_RADIO_POWER_REQ, "00 01", "01 00 00 00 01 00 00 00"},
        {EVENT_RB_DM_HO_REQ, "00 FF",
         "05 00 00 00 ff 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
        {EVENT_NWMNGR_NOTIFY_PS_REG_STATE, "00 00 00 00 6f 6b",
         "02 00 00 00 6f 00 6b 00 00 00 00 00"},
        {EVENT_NWMNGR_NOTIFY_PS_REG_STATE, "00 00 00", "00 00 00 00 00 00 00 00"},
    };
    for (const auto &c : cases) {
        rilproxy_ril_requset_param_t param;
        ril_handler_t *row = rilproxy_find_handler(ril_handlers, c.id);
        ASSERT_NE(row, nullptr);
        ASSERT_EQ(row->req(event(c.id, bytes(c.payload)), param.parcel,
                           reinterpret_cast<ril_supported_feature_t *>(&param)),
                  0);
        EXPECT_EQ(hex(param.parcel.data(), param.parcel.dataSize()), c.parcel) << c.id;
    }
}

TEST_F(HandlersTest, TlvRequestsTakeSimAndSerial) {
    LogCapture logs;
    std::vector<uint8_t> setup(sizeof(DataCallSetupRequest));
    setup[700] = 1;
    const struct {
        event_id_t id;
        std::vector<uint8_t> payload;
        int32_t sim_before, sim_after;
        std::string head, tail;
    } cases[] = {
        // 0x40000201 as the text "1073742337", after 19 strings.
        {EVENT_SETUP_DATA_CALL_REQ, setup, 0, 1, "13 00 00 00",
         "0a 00 00 00 31 00 30 00 37 00 33 00 37 00 34 00 32 00 33 00 33 00 37 00 00 00 00 00"},
        {EVENT_PCSCF_DISCOVERY_PCO_REQ, bytes("05 00 00 00 02 00 00 00 01 00 00 00"), 0, 1,
         "02 00 00 00 01 00 00 00 35 00 00 00", "01 02 00 40"},
        {EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ, bytes("00"), 3, 3, "01 00 00 00", "01 02 00 40"},
    };
    for (const auto &c : cases) {
        rilproxy_ril_requset_param_t param;
        param.sim_id = c.sim_before;
        param.serial_no = 0x40000201u;
        ril_handler_tlv_t *row = rilproxy_find_handler_tlv(ril_handlers_tlv, c.id);
        logs.clear();
        ASSERT_EQ(row->req(event(c.id, c.payload), param.parcel, &param), 0);
        EXPECT_EQ(param.sim_id, c.sim_after);
        EXPECT_TRUE(logs.containsMessage("SIM ID = " + std::to_string(c.sim_after) + "\n"));
        std::string all = hex(param.parcel.data(), param.parcel.dataSize());
        EXPECT_EQ(all.substr(0, c.head.size()), c.head) << c.id;
        EXPECT_EQ(all.substr(all.size() - c.tail.size()), c.tail) << c.id;
    }
}

// Ten int32: interfaceId, primaryCid, cid 3, active 1, signalingFlag, bearerId 5, failCause, and
// the QoS, TFT and P-CSCF flags all 0.
std::string bearerWire(const char *interfaceId) {
    return std::string(interfaceId) +
           " 00 00 00 00 00 00 00 03 00 00 00 01 00 00 00 00 00 00 00 05 00 00 00 00 00 00 00 00 "
           "00 00 00 00 00 00 00 00 00 00 00 ";
}

struct RespCase {
    bool tlv;
    event_id_t id;
    std::string parcel;
    int result;
    std::vector<Reply> want;
    const char *log;
};

// What the end-to-end rows cannot reach: old set-up versions, a bearer count beyond the payload,
// and the TLV responses' guard (the reader never hands them a failure).
TEST_F(HandlersTest, ResponsesBecomeReplies) {
    const RespCase cases[] = {
        {false, 4003, "04 00 00 00 01 00 00 00", 0, {{4004, 8, "02 00 00 00"}}, "version (4) < 5"},
        {false, 4003, "ff ff ff ff", 0, {{4004, 8, "02 00 00 00"}}, "version (-1) < 5"},
        {false,
         4009,
         "e8 03 00 00 " + bearerWire("0a"),
         0,
         {{4010, 3964, "00 00 00 00 e8 03 00 00 00 00 00 00 0a"}},
         "num = 1000, but the response holds 1"},
        {true, 4003, "", 0, {}, "EVENT_SETUP_DATA_CALL_RESP"},
        {true, 4003, "", 3, {{4004, 8, "02 00 00 00"}}, "resp_result (3) != ZOKRIL_E_SUCCESS"},
        {true, 4015, "", 7, {{4016, 8, "02 00 00 00"}}, "resp_result (7) != ZOKRIL_E_SUCCESS"},
        {true, 4017, "", 0, {}, "SIM ID = 2\n"},
    };
    for (const RespCase &c : cases) {
        SCOPED_TRACE(c.log);
        vopa_host::clear_deliveries();
        LogCapture logs;
        ril_resp_fn_t resp;
        event_id_t resp_id;
        if (c.tlv) {
            ril_handler_tlv_t *row = rilproxy_find_handler_tlv(ril_handlers_tlv, c.id);
            resp = row->resp, resp_id = row->resp_event_id;
        } else {
            ril_handler_t *row = rilproxy_find_handler(ril_handlers, c.id);
            resp = row->resp, resp_id = row->resp_event_id;
        }
        std::vector<uint8_t> wire = bytes(c.parcel);
        android::Parcel parcel;
        parcel.setData(wire.data(), wire.size());
        ril_supported_feature_t feature = {2};
        EXPECT_EQ(resp(&gTask, event(c.id, {}), resp_id, parcel, c.result, &feature), 0);
        expectReplies(c.want);
        EXPECT_TRUE(*c.log == '\0' || logs.containsMessage(c.log));
    }
}

TEST_F(HandlersTest, ErrorFunctionAnswersByResponseEvent) {
    std::vector<uint8_t> setup(sizeof(DataCallSetupRequest)), shortSetup(650);
    setup[648] = shortSetup[648] = 9;  // cid
    setup[700] = 1;                    // simId
    const struct {
        event_id_t resp_id;
        std::vector<uint8_t> payload;
        int error;
        std::vector<Reply> want;
        int nonzero;  // bytes of the reply that are not zero
        const char *log;
    } cases[] = {
        {4004,
         setup,
         14,
         {{4004, 47876, "0e 00 00 00 00 00 00 00 00 00 00 00 09 00 00 00 00"}},
         3,
         "SIM ID = 1\n"},
        {4004, {}, 2, {{4004, 47876, "02 00 00 00"}}, 1, "SIM ID = 0\n"},
        {4004,
         shortSetup,
         2,
         {{4004, 47876, "02 00 00 00 00 00 00 00 00 00 00 00 09 00"}},
         2,
         "ERROR EVENT_SETUP_DATA_CALL_RESP\n"},
        {4016, {}, 2, {{4016, 264, "02 00 00 00"}}, 1, "ERROR EVENT_PCSCF_DISCOVERY_PCO_RESP"},
        {9332, {}, 14, {}, 0, "ERROR EVENT_RB_DM_PDN_INFO_IND_RESP"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.resp_id);
        vopa_host::clear_deliveries();
        LogCapture logs;
        EXPECT_EQ(rilproxy_DATAMNGR_error(&gTask, event(c.resp_id, c.payload), c.resp_id, c.error),
                  0);
        expectReplies(c.want);
        EXPECT_TRUE(*c.log == '\0' || logs.containsMessage(c.log));
        if (c.want.empty()) continue;
        std::vector<uint8_t> data = replies()[0].data;
        EXPECT_EQ(c.nonzero, std::count_if(data.begin(), data.end(), [](uint8_t b) { return b; }));
        if (c.resp_id == 4004) {
            EXPECT_EQ(data[47868], c.payload.size() > 700 ? c.payload[700] : 0);
        }
    }
}

}  // namespace
