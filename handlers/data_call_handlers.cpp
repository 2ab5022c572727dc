// The set-up data call request and response, and the one error function of every handler row.
// Requests run on the framework task thread, responses on the reader thread, the error function
// on either (reader: RIL error; task thread: request not sent).
#include <string.h>

#include "codec/data_call_record.h"
#include "core/log.h"
#include "core/replies.h"
#include "handlers/handler_support.h"
#include "handlers/handlers.h"
#include "rilproxy_entity.h"

// Older daemons answer with a record layout the reader does not know.
constexpr int kMinDataCallVersion = 5;

RILPROXY_REQ(SETUP_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_REQ_SIGNATURE(SETUP_DATA_CALL));
    RLOGI("EVENT_SETUP_DATA_CALL_REQ");
    DataCallSetupRequest req;
    if (!rilproxy_read_payload(event, &req, sizeof(req))) {
        RLOGE("can't get the data");
        return -1;
    }
    RLOGI("Phone mode, parameter = 18 (WFC handover & ran type)");
    parcel.writeInt32(RILPROXY_SETUP_PARCEL_STRINGS);
    rilproxy_write_setup_head(parcel, req);
    RLOGI("mIsValid = %d, %d/%d/%d/%d/%d/%d/%d/%d", req.mIsValid[0], req.mIsValid[1],
          req.mIsValid[2], req.mIsValid[3], req.mIsValid[4], req.mIsValid[5], req.mIsValid[6],
          req.mIsValid[7], req.mIsValid[8]);
    rilproxy_write_setup_wfc(parcel, req);
    return 0;
}

RILPROXY_RESP(SETUP_DATA_CALL) {
    ZOK_LOG_SELF(RILPROXY_RESP_SIGNATURE(SETUP_DATA_CALL));
    RLOGI("EVENT_SETUP_DATA_CALL_RESP");
    int version = parcel.readInt32();
    int num = parcel.readInt32();
    RLOGI("version = %d, num = %d", version, num);
    if (version < kMinDataCallVersion) {
        RLOGE("version (%d) < 5", version);
        rilproxy_reply_response_only_status(task, event, resp_event_id, ZOKRIL_E_GENERIC_FAILURE);
        return 0;
    }
    // Cleared so that the fields a given version does not carry reach the framework as zeros
    // rather than as whatever the reader thread's stack held. Only the first entry is decoded,
    // whatever num says.
    DataCallSetupReply reply;
    memset(&reply, 0, sizeof(reply));
    reply.status = result;
    readDataCallFromParcel(parcel, &reply.dcall, version, 1);
    rilproxy_reply_response(task, event, resp_event_id, &reply, sizeof(reply));
    return 0;
}

int rilproxy_DATAMNGR_error(task_ptr_t task, event_ptr_t event, event_id_t resp_event_id,
                            int error) {
    ZOK_LOG_SELF(kSigDatamngrError);
    switch (resp_event_id) {
        case EVENT_SETUP_DATA_CALL_RESP: {
            RLOGI("ERROR EVENT_SETUP_DATA_CALL_RESP\n");
            // The request's cid and SIM slot are echoed from the pending event. It normally
            // still holds its set-up payload, but this path also answers a request that failed
            // for want of one: a missing or short payload reads as zeros (cid 0, simId 0)
            // instead of being dereferenced.
            DataCallSetupRequest req;
            rilproxy_read_payload(event, &req, sizeof(req));
            RLOGI("SIM ID = %d\n", req.simId);
            DataCallSetupReply reply;
            memset(&reply, 0, sizeof(reply));
            reply.status = error;
            reply.dcall.cid = req.cid;
            reply.dcall.active = 0;
            reply.dcall.simId = req.simId;
            rilproxy_reply_response(task, event, resp_event_id, &reply, sizeof(reply));
            break;
        }
        case EVENT_PCSCF_DISCOVERY_PCO_RESP: {
            RLOGI("ERROR EVENT_PCSCF_DISCOVERY_PCO_RESP");
            PcscfDiscoveryReply reply;
            memset(&reply, 0, sizeof(reply));
            reply.status = error;
            rilproxy_reply_response(task, event, resp_event_id, &reply, sizeof(reply));
            break;
        }
        case EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP: {
            RLOGI("ERROR EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP\n");
            FailCauseReply reply;
            memset(&reply, 0, sizeof(reply));
            reply.status = error;
            reply.cause = error;
            rilproxy_reply_response(task, event, resp_event_id, &reply, sizeof(reply));
            break;
        }
        case EVENT_RB_DM_PDN_INFO_IND:
            // The PDN information indication is one-way: nobody waits for an answer.
            RLOGI("ERROR EVENT_RB_DM_PDN_INFO_IND_RESP");
            break;
        default:
            rilproxy_reply_response_only_status(task, event, resp_event_id, error);
            break;
    }
    return 0;
}
