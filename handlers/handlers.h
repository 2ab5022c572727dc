// Request, response and error functions of the handler tables. Request functions run on the
// framework task thread and build the request Parcel (0, or -1 when the event has no payload);
// response functions run on the reader thread for a RIL result of 0; the error function answers
// the framework for a RIL error (reader thread) or a request that could not be sent (task thread).
// Response and error functions always return 0. Reply records live on the caller's stack.
#ifndef ZOK_HANDLERS_HANDLERS_H
#define ZOK_HANDLERS_HANDLERS_H

#include "rilproxy.h"

// Parameters are [[maybe_unused]]: most functions of a kind leave one or another of them alone
// (plain requests never read the feature, status-only responses never read the Parcel).
#define RILPROXY_REQ(name)                                              \
    int rilproxy_##name##_req([[maybe_unused]] event_ptr_t event,       \
                              [[maybe_unused]] android::Parcel &parcel, \
                              [[maybe_unused]] ril_supported_feature_t *feature)
#define RILPROXY_REQ_TLV(name)                                          \
    int rilproxy_##name##_req([[maybe_unused]] event_ptr_t event,       \
                              [[maybe_unused]] android::Parcel &parcel, \
                              [[maybe_unused]] rilproxy_ril_requset_param_t *param)
#define RILPROXY_RESP(name)                                                                  \
    int rilproxy_##name##_resp(                                                              \
        [[maybe_unused]] task_ptr_t task, [[maybe_unused]] event_ptr_t event,                \
        [[maybe_unused]] event_id_t resp_event_id, [[maybe_unused]] android::Parcel &parcel, \
        [[maybe_unused]] int result, [[maybe_unused]] ril_supported_feature_t *feature)

RILPROXY_REQ(SETUP_DATA_CALL);
RILPROXY_RESP(SETUP_DATA_CALL);

RILPROXY_REQ(DEACTIVATE_DATA_CALL);
RILPROXY_RESP(DEACTIVATE_DATA_CALL);

RILPROXY_REQ(SETUP_DEDICATE_DATA_CALL);
RILPROXY_RESP(SETUP_DEDICATE_DATA_CALL);

RILPROXY_REQ(MODIFY_DATA_CALL);
RILPROXY_RESP(MODIFY_DATA_CALL);

RILPROXY_REQ(DEACTIVATE_DEDICATE_DATA_CALL);
RILPROXY_RESP(DEACTIVATE_DEDICATE_DATA_CALL);

RILPROXY_REQ(ABORT_SETUP_DATA_CALL);
RILPROXY_RESP(ABORT_SETUP_DATA_CALL);

RILPROXY_REQ(PCSCF_DISCOVERY_PCO);
RILPROXY_RESP(PCSCF_DISCOVERY_PCO);

RILPROXY_REQ(LAST_DATA_CALL_FAIL_CAUSE);
RILPROXY_RESP(LAST_DATA_CALL_FAIL_CAUSE);

RILPROXY_REQ(SET_INITIAL_ATTACH_APN);
RILPROXY_RESP(SET_INITIAL_ATTACH_APN);

RILPROXY_REQ(RADIO_POWER);
RILPROXY_RESP(RADIO_POWER);

RILPROXY_REQ(HANDOVER);
RILPROXY_RESP(HANDOVER);

RILPROXY_REQ(NOTIFY_PS_REG_STATE);
RILPROXY_RESP(NOTIFY_PS_REG_STATE);

RILPROXY_REQ(PDN_INFO_IND);
RILPROXY_RESP(PDN_INFO_IND);

RILPROXY_REQ_TLV(SETUP_DATA_CALL_TLV);
RILPROXY_RESP(SETUP_DATA_CALL_TLV);

RILPROXY_REQ_TLV(PCSCF_DISCOVERY_PCO_TLV);
RILPROXY_RESP(PCSCF_DISCOVERY_PCO_TLV);

RILPROXY_REQ_TLV(LAST_DATA_CALL_FAIL_CAUSE_TLV);
RILPROXY_RESP(LAST_DATA_CALL_FAIL_CAUSE_TLV);

int rilproxy_DATAMNGR_error(task_ptr_t task, event_ptr_t event, event_id_t resp_event_id,
                            int error);

#endif  // ZOK_HANDLERS_HANDLERS_H
