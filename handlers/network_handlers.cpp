// P-CSCF discovery, last fail cause, initial attach APN, radio power, handover, PS registration
// state and PDN information. Requests run on the framework task thread, responses on the reader
// thread. The PS registration state and the PDN information are one-way: their responses only log.
#include <stdlib.h>
#include <string.h>

#include "codec/bearer_record.h"
#include "codec/parcel_strings.h"
#include "core/log.h"
#include "core/replies.h"
#include "handlers/handler_support.h"
#include "handlers/handlers.h"
#include "rilproxy_entity.h"

constexpr int32_t kPcscfStrings = 1;
constexpr int32_t kRadioPowerInts = 1;
constexpr int32_t kHandoverInts = 5;

// The PDN information Parcel: an int32 array of seven entries holding two type-length-value
// items (interface id, mtu), announced by its entry count.
constexpr int32_t kPdnInfoEntries = 7;
constexpr int32_t kPdnInfoItems = 2;
constexpr int32_t kPdnInfoTypeInterfaceId = 1;
constexpr int32_t kPdnInfoTypeMtu = 2;
constexpr int32_t kPdnInfoItemLength = 4;

RILPROXY_REQ(PCSCF_DISCOVERY_PCO) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(PCSCF_DISCOVERY_PCO));
    RLOGI("EVENT_PCSCF_DISCOVERY_PCO_REQ");
    CallIdCauseRequest req;
    if (!rilproxy_read_payload(event, &req, sizeof(req))) {
        RLOGE("can't get the data");
        return -1;
    }
    RLOGI("id = %d, cause = %d", req.id, req.cause);
    parcel.writeInt32(kPcscfStrings);
    writeIntAsStringToParcel(parcel, req.id);
    return 0;
}

RILPROXY_RESP(PCSCF_DISCOVERY_PCO) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(PCSCF_DISCOVERY_PCO));
    RLOGI("EVENT_PCSCF_DISCOVERY_PCO_RESP");
    // Cleared: the address slots the list does not fill reach the framework as zeros.
    PcscfDiscoveryReply reply;
    memset(&reply, 0, sizeof(reply));
    reply.status = result;
    readPcscfFromParcel(parcel, &reply.pcscf);
    rilproxy_reply_response(task, event, resp_event_id, &reply, sizeof(reply));
    return 0;
}

// The request has no parameters, so a missing payload is no failure here.
RILPROXY_REQ(LAST_DATA_CALL_FAIL_CAUSE) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(LAST_DATA_CALL_FAIL_CAUSE));
    RLOGI("EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ");
    return 0;
}

RILPROXY_RESP(LAST_DATA_CALL_FAIL_CAUSE) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(LAST_DATA_CALL_FAIL_CAUSE));
    RLOGI("EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP");
    FailCauseReply reply;
    memset(&reply, 0, sizeof(reply));
    int count = parcel.readInt32();
    if (count < 1) {
        // An empty answer is the entity's own failure, not the daemon's.
        reply.status = ZOKRIL_E_GENERIC_FAILURE;
    } else {
        reply.cause = parcel.readInt32();
        reply.status = result;
    }
    rilproxy_reply_response(task, event, resp_event_id, &reply, sizeof(reply));
    return 0;
}

// No count precedes the APN: unlike the set-up request, this Parcel starts with the text.
RILPROXY_REQ(SET_INITIAL_ATTACH_APN) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(SET_INITIAL_ATTACH_APN));
    RLOGI("EVENT_SET_INITIAL_ATTACH_APN_REQ");
    InitialAttachApnRequest req;
    if (!rilproxy_read_payload(event, &req, sizeof(req))) {
        RLOGE("can't get the data");
        return -1;
    }
    writeUtf8StringToParcel(parcel, rilproxy_field_text(req.apn).text);
    writeUtf8StringToParcel(parcel, rilproxy_protocol_text(req.protocol));
    parcel.writeInt32(req.authType);
    writeUtf8StringToParcel(parcel, rilproxy_field_text(req.username).text);
    writeUtf8StringToParcel(parcel, rilproxy_field_text(req.password).text);
    writeUtf8StringToParcel(parcel, rilproxy_field_text(req.extra).text);
    parcel.writeInt32(req.flag != 0 ? 1 : 0);
    return 0;
}

RILPROXY_RESP(SET_INITIAL_ATTACH_APN) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(SET_INITIAL_ATTACH_APN));
    RLOGI("EVENT_SET_INITIAL_ATTACH_APN_RESP");
    rilproxy_reply_response_only_status(task, event, resp_event_id, result);
    return 0;
}

RILPROXY_REQ(RADIO_POWER) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(RADIO_POWER));
    RLOGI("EVENT_RADIO_POWER_REQ");
    int32_t on_off;
    if (!rilproxy_read_payload(event, &on_off, sizeof(on_off))) {
        RLOGE("can't get the data");
        return -1;
    }
    RLOGI("on_off = %d", on_off);
    parcel.writeInt32(kRadioPowerInts);
    parcel.writeInt32(on_off != 0 ? 1 : 0);
    return 0;
}

RILPROXY_RESP(RADIO_POWER) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(RADIO_POWER));
    RLOGI("EVENT_RADIO_POWER_RESP");
    rilproxy_reply_response_only_status(task, event, resp_event_id, result);
    return 0;
}

// The fields are unsigned bytes: 0xFF travels as 255, never as -1.
RILPROXY_REQ(HANDOVER) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(HANDOVER));
    RLOGI("EVENT_RB_DM_HO_REQ");
    HandoverRequest req;
    if (!rilproxy_read_payload(event, &req, sizeof(req))) {
        RLOGE("can't get the data");
        return -1;
    }
    RLOGI("ho status = %d", req.hoStatus);
    RLOGI("ho result = %d", req.hoResult);
    RLOGI("cid = %d", req.cid);
    RLOGI("src ran type = %d", req.srcRanType);
    RLOGI("target ran type = %d", req.targetRanType);
    parcel.writeInt32(kHandoverInts);
    parcel.writeInt32(static_cast<int32_t>(req.hoStatus));
    parcel.writeInt32(static_cast<int32_t>(req.hoResult));
    parcel.writeInt32(static_cast<int32_t>(req.cid));
    parcel.writeInt32(static_cast<int32_t>(req.srcRanType));
    parcel.writeInt32(static_cast<int32_t>(req.targetRanType));
    return 0;
}

RILPROXY_RESP(HANDOVER) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(HANDOVER));
    RLOGI("EVENT_HANDOVER_RESP");
    rilproxy_reply_response_only_status(task, event, resp_event_id, result);
    return 0;
}

RILPROXY_REQ(NOTIFY_PS_REG_STATE) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(NOTIFY_PS_REG_STATE));
    RLOGI("EVENT_NWMNGR_NOTIFY_PS_REG_STATE");
    int len = 0;
    const char *data = static_cast<const char *>(event_get_data(event, 0, &len));
    if (data == nullptr) {
        RLOGE("can't get the data");
        return -1;
    }
    // The text runs from offset 4 to its NUL, which the payload need not hold: it is bounded by
    // the payload's length, and copied only when the NUL is missing. A payload of four bytes or
    // fewer carries an empty text.
    size_t room = len > RILPROXY_PS_STATE_TEXT_OFFSET
                      ? static_cast<size_t>(len) - RILPROXY_PS_STATE_TEXT_OFFSET
                      : 0;
    const char *text = room > 0 ? data + RILPROXY_PS_STATE_TEXT_OFFSET : "";
    char *copy = nullptr;
    if (room > 0 && strnlen(text, room) == room) {
        copy = static_cast<char *>(malloc(room + 1));
        if (copy == nullptr) {
            RLOGE("can't get the memory");
            return -1;
        }
        memcpy(copy, text, room);
        copy[room] = '\0';
        text = copy;
    }
    RLOGI("ps state str = (%s)", text);
    writeUtf8StringToParcel(parcel, text);
    free(copy);
    return 0;
}

RILPROXY_RESP(NOTIFY_PS_REG_STATE) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(NOTIFY_PS_REG_STATE));
    RLOGI("EVENT_NWMNGR_NOTIFY_PS_REG_STATE");
    return 0;
}

// Unlike the other handlers', these messages end in a newline.
RILPROXY_REQ(PDN_INFO_IND) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(PDN_INFO_IND));
    RLOGI("EVENT_RB_DM_PDN_INFO_IND\n");
    PdnInfoIndication req;
    if (!rilproxy_read_payload(event, &req, sizeof(req))) {
        RLOGE("can't get the data\n");
        return -1;
    }
    RLOGI("interface id = %d\n", req.interfaceId);
    RLOGI("mtu = %d\n", req.mtu);
    parcel.writeInt32(kPdnInfoEntries);
    parcel.writeInt32(kPdnInfoItems);
    parcel.writeInt32(kPdnInfoTypeInterfaceId);
    parcel.writeInt32(kPdnInfoItemLength);
    parcel.writeInt32(req.interfaceId);
    parcel.writeInt32(kPdnInfoTypeMtu);
    parcel.writeInt32(kPdnInfoItemLength);
    parcel.writeInt32(req.mtu);
    return 0;
}

RILPROXY_RESP(PDN_INFO_IND) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(PDN_INFO_IND));
    RLOGI("EVENT_RB_DM_PDN_INFO_IND_RESP");
    return 0;
}
