// Data-call teardown (deactivate, deactivate dedicated, abort) and dedicated-bearer set-up and
// modify. Requests run on the framework task thread, responses on the reader thread.
#include <string.h>

#include "codec/bearer_record.h"
#include "codec/parcel_strings.h"
#include "codec/wire_lists.h"
#include "core/log.h"
#include "core/replies.h"
#include "handlers/handler_support.h"
#include "handlers/handlers.h"
#include "rilproxy_entity.h"

// Both bearer requests open with 7, although the modify Parcel is shorter; the daemon expects
// exactly this value.
constexpr int32_t kBearerParcelLead = 7;
constexpr int32_t kIdCauseStrings = 2;

// Id and cause travel as decimal texts, never as int32 values. The three teardown requests share
// this body and differ only by their first line.
static int writeIdCauseRequest(const char *signature, event_ptr_t event, android::Parcel &parcel) {
    ZOK_LOG_AS(signature);
    CallIdCauseRequest req;
    if (!rilproxy_read_payload(event, &req, sizeof(req))) {
        RLOGE("can't get the data");
        return -1;
    }
    RLOGI("id = %d, cause = %d", req.id, req.cause);
    parcel.writeInt32(kIdCauseStrings);
    writeIntAsStringToParcel(parcel, req.id);
    writeIntAsStringToParcel(parcel, req.cause);
    return 0;
}

RILPROXY_REQ(DEACTIVATE_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(DEACTIVATE_DATA_CALL));
    RLOGI("EVENT_DEACTIVATE_DATA_CALL_REQ");
    return writeIdCauseRequest(zok_log_signature, event, parcel);
}

RILPROXY_RESP(DEACTIVATE_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(DEACTIVATE_DATA_CALL));
    RLOGI("EVENT_DEACTIVATE_DATA_CALL_RESP");
    rilproxy_reply_response_only_status(task, event, resp_event_id, result);
    return 0;
}

RILPROXY_REQ(DEACTIVATE_DEDICATE_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(DEACTIVATE_DEDICATE_DATA_CALL));
    RLOGI("EVENT_DEACTIVATE_DEDICATE_DATA_CALL_REQ");
    return writeIdCauseRequest(zok_log_signature, event, parcel);
}

RILPROXY_RESP(DEACTIVATE_DEDICATE_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(DEACTIVATE_DEDICATE_DATA_CALL));
    RLOGI("EVENT_DEACTIVATE_DEDICATE_DATA_CALL_RESP");
    rilproxy_reply_response_only_status(task, event, resp_event_id, result);
    return 0;
}

RILPROXY_REQ(ABORT_SETUP_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(ABORT_SETUP_DATA_CALL));
    RLOGI("EVENT_ABORT_SETUP_DATA_CALL_REQ");
    return writeIdCauseRequest(zok_log_signature, event, parcel);
}

RILPROXY_RESP(ABORT_SETUP_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(ABORT_SETUP_DATA_CALL));
    RLOGI("EVENT_ABORT_SETUP_DATA_CALL_RESP");
    rilproxy_reply_response_only_status(task, event, resp_event_id, result);
    return 0;
}

// The bearer as the framework sent it, logged; false when the event carries none.
static bool readBearerRequest(const char *signature, event_ptr_t event,
                              ZOK_Dedicate_Data_Call_Struct *bearer) {
    ZOK_LOG_AS(signature);
    if (!rilproxy_read_payload(event, bearer, sizeof(*bearer))) {
        RLOGE("can't get the data");
        return false;
    }
    RLOGI("ddcId = %d, interfaceId = %d, primaryCid = %d, cid = %d, active = %d", bearer->ddcId,
          bearer->interfaceId, bearer->primaryCid, bearer->cid, bearer->active);
    RLOGI("signalingFlag = %d, bearerId = %d, failCause = %d, hasQos = %d, hasTft = %d",
          bearer->signalingFlag, bearer->bearerId, bearer->failCause, bearer->hasQos,
          bearer->hasTft);
    return true;
}

// The optional QoS and TFT, each behind a 0/1 marker, shared by set-up and modify.
static void writeQosTft(android::Parcel &parcel, ZOK_Dedicate_Data_Call_Struct *bearer) {
    if (bearer->hasQos == 0) {
        parcel.writeInt32(0);
    } else {
        parcel.writeInt32(1);
        writeQosStructToParcel(parcel, &bearer->qos);
    }
    if (bearer->hasTft == 0) {
        parcel.writeInt32(0);
    } else {
        parcel.writeInt32(1);
        writeTftStructToParcel(parcel, &bearer->tft);
    }
}

RILPROXY_REQ(SETUP_DEDICATE_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(SETUP_DEDICATE_DATA_CALL));
    RLOGI("EVENT_SETUP_DEDICATE_DATA_CALL_REQ");
    ZOK_Dedicate_Data_Call_Struct bearer;
    if (!readBearerRequest(zok_log_signature, event, &bearer)) return -1;
    parcel.writeInt32(kBearerParcelLead);
    parcel.writeInt32(bearer.ddcId);
    parcel.writeInt32(bearer.interfaceId);
    parcel.writeInt32(bearer.signalingFlag != 0 ? 1 : 0);
    writeQosTft(parcel, &bearer);
    return 0;
}

RILPROXY_REQ(MODIFY_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(MODIFY_DATA_CALL));
    RLOGI("EVENT_MODIFY_DATA_CALL_REQ");
    ZOK_Dedicate_Data_Call_Struct bearer;
    if (!readBearerRequest(zok_log_signature, event, &bearer)) return -1;
    parcel.writeInt32(kBearerParcelLead);
    parcel.writeInt32(bearer.cid);
    writeQosTft(parcel, &bearer);
    return 0;
}

// One reply per bearer, all for the same pending event and told apart by index: the framework
// waits for num of them, so bearers the payload lacks go out as zeros. One record serves every
// bearer; it is cleared before each one so that the fields the bearer reader leaves alone (ddcId)
// are zero rather than the previous bearer's.
static void replyPerBearer(const char *signature, task_ptr_t task, event_ptr_t event,
                           event_id_t resp_event_id, android::Parcel &parcel, int result) {
    ZOK_LOG_AS(signature);
    int num = parcel.readInt32();
    RLOGI("num = %d", num);
    DedicateBearerReply reply;
    int count = listEntriesToSend(signature, num);
    for (int index = 0; index < count; index++) {
        memset(&reply, 0, sizeof(reply));
        reply.status = result;
        reply.num = static_cast<uint16_t>(num);
        reply.index = static_cast<uint16_t>(index);
        readDedicateDataFromParcel(parcel, &reply.bearer);
        rilproxy_reply_response(task, event, resp_event_id, &reply, sizeof(reply));
    }
}

RILPROXY_RESP(SETUP_DEDICATE_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(SETUP_DEDICATE_DATA_CALL));
    RLOGI("EVENT_SETUP_DEDICATE_DATA_CALL_RESP");
    replyPerBearer(zok_log_signature, task, event, resp_event_id, parcel, result);
    return 0;
}

RILPROXY_RESP(MODIFY_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(MODIFY_DATA_CALL));
    RLOGI("EVENT_MODIFY_DATA_CALL_RESP");
    replyPerBearer(zok_log_signature, task, event, resp_event_id, parcel, result);
    return 0;
}
