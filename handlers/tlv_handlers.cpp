// The TLV forms of set-up, P-CSCF discovery and last fail cause: the request carries its own
// serial number, so that the framework's later result event (2006..2008) finds the parked
// request. Requests run on the framework task thread, responses on the reader thread.
#include "codec/parcel_strings.h"
#include "core/log.h"
#include "core/replies.h"
#include "handlers/handler_support.h"
#include "handlers/handlers.h"
#include "rilproxy_entity.h"

constexpr int32_t kPcscfTlvEntries = 2;
constexpr int32_t kFailCauseTlvEntries = 1;

RILPROXY_REQ_TLV(SETUP_DATA_CALL_TLV) {
    ZOK_LOG_SELF(RILPROXY_REQ_TLV_SIGNATURE(SETUP_DATA_CALL_TLV));
    RLOGI("EVENT_SETUP_DATA_CALL_REQ");
    DataCallSetupRequest req;
    if (!rilproxy_read_payload(event, &req, sizeof(req))) {
        RLOGE("can't get the data");
        return -1;
    }
    // The sender writes the frame's SIM field itself; this one shows only in the logs.
    param->sim_id = req.simId;
    RLOGI("SIM ID = %d\n", param->sim_id);
    // The text says 18 although this form sends 19 strings; the log keeps the plain form's line.
    RLOGI("Phone mode, parameter = 18 (WFC handover & ran type)");
    parcel.writeInt32(RILPROXY_SETUP_TLV_PARCEL_STRINGS);
    rilproxy_write_setup_head(parcel, req);
    RLOGI("mIsValid = %d, %d/%d/%d/%d/%d/%d/%d/%d", req.mIsValid[0], req.mIsValid[1],
          req.mIsValid[2], req.mIsValid[3], req.mIsValid[4], req.mIsValid[5], req.mIsValid[6],
          req.mIsValid[7], req.mIsValid[8]);
    rilproxy_write_setup_wfc(parcel, req);
    // Bit 30 included; serials stay below 2^31, so the signed text is the serial's own.
    writeIntAsStringToParcel(parcel, static_cast<int>(param->serial_no));
    return 0;
}

RILPROXY_RESP(SETUP_DATA_CALL_TLV) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(SETUP_DATA_CALL_TLV));
    RLOGI("EVENT_SETUP_DATA_CALL_RESP");
    RLOGI("SIM ID = %d\n", feature->sim_id);
    // The reader never hands a failure here (and drops a TLV success before any row); kept as a
    // guard so that every row has all three functions.
    if (result != ZOKRIL_E_SUCCESS) {
        RLOGE("resp_result (%d) != ZOKRIL_E_SUCCESS", result);
        rilproxy_reply_response_only_status(task, event, resp_event_id, ZOKRIL_E_GENERIC_FAILURE);
    }
    return 0;
}

RILPROXY_REQ_TLV(PCSCF_DISCOVERY_PCO_TLV) {
    ZOK_LOG_SELF(RILPROXY_REQ_TLV_SIGNATURE(PCSCF_DISCOVERY_PCO_TLV));
    RLOGI("EVENT_PCSCF_DISCOVERY_PCO_REQ");
    CallIdCauseRequest req;
    if (!rilproxy_read_payload(event, &req, sizeof(req))) {
        RLOGE("can't get the data");
        return -1;
    }
    param->sim_id = req.simId;
    RLOGI("SIM ID = %d\n", param->sim_id);
    RLOGI("id = %d, cause = %d", req.id, req.cause);
    parcel.writeInt32(kPcscfTlvEntries);
    writeIntAsStringToParcel(parcel, req.id);
    // An int32 here, unlike the set-up form's text.
    parcel.writeInt32(static_cast<int32_t>(param->serial_no));
    return 0;
}

RILPROXY_RESP(PCSCF_DISCOVERY_PCO_TLV) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(PCSCF_DISCOVERY_PCO_TLV));
    RLOGI("EVENT_PCSCF_DISCOVERY_PCO_RESP");
    RLOGI("SIM ID = %d\n", feature->sim_id);
    if (result != ZOKRIL_E_SUCCESS) {
        RLOGE("resp_result (%d) != ZOKRIL_E_SUCCESS", result);
        rilproxy_reply_response_only_status(task, event, resp_event_id, ZOKRIL_E_GENERIC_FAILURE);
    }
    return 0;
}

// Unlike the plain form, a missing payload fails this request.
RILPROXY_REQ_TLV(LAST_DATA_CALL_FAIL_CAUSE_TLV) {
    ZOK_LOG_SELF(RILPROXY_REQ_TLV_SIGNATURE(LAST_DATA_CALL_FAIL_CAUSE_TLV));
    RLOGI("EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ");
    int len = 0;
    if (event_get_data(event, 0, &len) == nullptr) {
        RLOGE("can't get the data");
        return -1;
    }
    RLOGI("SIM ID = %d\n", param->sim_id);
    parcel.writeInt32(kFailCauseTlvEntries);
    parcel.writeInt32(static_cast<int32_t>(param->serial_no));
    return 0;
}

RILPROXY_RESP(LAST_DATA_CALL_FAIL_CAUSE_TLV) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(LAST_DATA_CALL_FAIL_CAUSE_TLV));
    RLOGI("EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP");
    RLOGI("SIM ID = %d\n", feature->sim_id);
    if (result != ZOKRIL_E_SUCCESS) {
        RLOGE("resp_result (%d) != ZOKRIL_E_SUCCESS", result);
        rilproxy_reply_response_only_status(task, event, resp_event_id, ZOKRIL_E_GENERIC_FAILURE);
    }
    return 0;
}
