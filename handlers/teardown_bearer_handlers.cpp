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

// Id and cause travel as decimal texts, never as int32 values.
static void writeIdCause(android::Parcel &parcel, const CallIdCauseRequest &req) {
    parcel.writeInt32(kIdCauseStrings);
    writeIntAsStringToParcel(parcel, req.id);
    writeIntAsStringToParcel(parcel, req.cause);
}

// The teardown family differs only by its log texts. Each function is still its own (the log
// prefix names the writing function), so they are stamped out by macro rather than sharing a body.
#define RILPROXY_ID_CAUSE_HANDLERS(name, reqText, respText)                      \
    RILPROXY_REQ(name) {                                                         \
        RLOGI(reqText);                                                          \
        CallIdCauseRequest req;                                                  \
        if (!rilproxy_read_payload(event, &req, sizeof(req))) {                  \
            RLOGE("can't get the data");                                         \
            return -1;                                                           \
        }                                                                        \
        RLOGI("id = %d, cause = %d", req.id, req.cause);                         \
        writeIdCause(parcel, req);                                               \
        return 0;                                                                \
    }                                                                            \
    RILPROXY_RESP(name) {                                                        \
        RLOGI(respText);                                                         \
        rilproxy_reply_response_only_status(task, event, resp_event_id, result); \
        return 0;                                                                \
    }

RILPROXY_ID_CAUSE_HANDLERS(DEACTIVATE_DATA_CALL, "EVENT_DEACTIVATE_DATA_CALL_REQ",
                           "EVENT_DEACTIVATE_DATA_CALL_RESP")
RILPROXY_ID_CAUSE_HANDLERS(DEACTIVATE_DEDICATE_DATA_CALL, "EVENT_DEACTIVATE_DEDICATE_DATA_CALL_REQ",
                           "EVENT_DEACTIVATE_DEDICATE_DATA_CALL_RESP")
RILPROXY_ID_CAUSE_HANDLERS(ABORT_SETUP_DATA_CALL, "EVENT_ABORT_SETUP_DATA_CALL_REQ",
                           "EVENT_ABORT_SETUP_DATA_CALL_RESP")

// Logged from each request function itself, so the line names it.
#define RILPROXY_LOG_BEARER_REQUEST(bearer)                                                   \
    do {                                                                                      \
        RLOGI("ddcId = %d, interfaceId = %d, primaryCid = %d, cid = %d, active = %d",         \
              (bearer).ddcId, (bearer).interfaceId, (bearer).primaryCid, (bearer).cid,        \
              (bearer).active);                                                               \
        RLOGI("signalingFlag = %d, bearerId = %d, failCause = %d, hasQos = %d, hasTft = %d",  \
              (bearer).signalingFlag, (bearer).bearerId, (bearer).failCause, (bearer).hasQos, \
              (bearer).hasTft);                                                               \
    } while (0)

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
    RLOGI("EVENT_SETUP_DEDICATE_DATA_CALL_REQ");
    ZOK_Dedicate_Data_Call_Struct bearer;
    if (!rilproxy_read_payload(event, &bearer, sizeof(bearer))) {
        RLOGE("can't get the data");
        return -1;
    }
    RILPROXY_LOG_BEARER_REQUEST(bearer);
    parcel.writeInt32(kBearerParcelLead);
    parcel.writeInt32(bearer.ddcId);
    parcel.writeInt32(bearer.interfaceId);
    parcel.writeInt32(bearer.signalingFlag != 0 ? 1 : 0);
    writeQosTft(parcel, &bearer);
    return 0;
}

RILPROXY_REQ(MODIFY_DATA_CALL) {
    RLOGI("EVENT_MODIFY_DATA_CALL_REQ");
    ZOK_Dedicate_Data_Call_Struct bearer;
    if (!rilproxy_read_payload(event, &bearer, sizeof(bearer))) {
        RLOGE("can't get the data");
        return -1;
    }
    RILPROXY_LOG_BEARER_REQUEST(bearer);
    parcel.writeInt32(kBearerParcelLead);
    parcel.writeInt32(bearer.cid);
    writeQosTft(parcel, &bearer);
    return 0;
}

// One reply per bearer, all for the same pending event and told apart by index: the framework
// waits for num of them, so bearers the payload lacks go out as zeros. One record serves every
// bearer; it is cleared before each one so that the fields the bearer reader leaves alone (ddcId)
// are zero rather than the previous bearer's.
static void replyPerBearer(task_ptr_t task, event_ptr_t event, event_id_t resp_event_id,
                           android::Parcel &parcel, int result, int num) {
    DedicateBearerReply reply;
    int count = listEntriesToSend(num);
    for (int index = 0; index < count; index++) {
        memset(&reply, 0, sizeof(reply));
        reply.status = result;
        reply.num = static_cast<uint16_t>(num);
        reply.index = static_cast<uint16_t>(index);
        readDedicateDataFromParcel(parcel, &reply.bearer);
        rilproxy_reply_response(task, event, resp_event_id, &reply, sizeof(reply));
    }
}

// The two bearer responses differ only by their first log line; stamped out like the teardown
// family so that each keeps its own log site.
#define RILPROXY_BEARER_RESP(name, text)                                            \
    RILPROXY_RESP(name) {                                                           \
        RLOGI(text);                                                                \
        int num = parcel.readInt32();                                               \
        RLOGI("num = %d", num);                                                     \
        replyPerBearer(task, event, resp_event_id, parcel, result, num);            \
        return 0;                                                                   \
    }

RILPROXY_BEARER_RESP(SETUP_DEDICATE_DATA_CALL, "EVENT_SETUP_DEDICATE_DATA_CALL_RESP")
RILPROXY_BEARER_RESP(MODIFY_DATA_CALL, "EVENT_MODIFY_DATA_CALL_RESP")
