// Replies, notifications and broadcasts towards the framework; task thread and reader thread.
// Every payload is built zeroed on the caller's stack and copied by event_set_data, so no reply
// carries stale bytes in the fields the record does not define.
#include "core/replies.h"

#include <stdio.h>
#include <string.h>

#include "core/event_handle.h"
#include "core/log.h"

namespace {

// Without a task there is nobody to deliver to; the event is released rather than leaked.
bool keepFor(task_ptr_t task, event_ptr_t ev) {
    if (task != nullptr) return true;
    RilproxyEvent(ev).reset();
    return false;
}

}  // namespace

int rilproxy_reply_response(task_ptr_t task, event_ptr_t event, event_id_t id, void *data,
                            int len) {
    ZOK_LOG_SELF(kSigReplyResponse);
    event_ptr_t reply = vopa_event_alloc(event);
    if (reply == nullptr) {
        RLOGE("get memory fail");
        return 0;
    }
    event_set_id(reply, id);
    event_set_data(reply, 0, data, len);
    if (keepFor(task, reply)) vopa_context_common_reply(task, reply);
    return 0;
}

int rilproxy_reply_response_only_status(task_ptr_t task, event_ptr_t event, event_id_t id,
                                        int status) {
    ZOK_LOG_SELF(kSigReplyResponseOnlyStatus);
    event_ptr_t reply = vopa_event_alloc(event);
    if (reply == nullptr) {
        RLOGE("get memory fail");
        return 0;
    }
    StatusOnlyReply payload = {};
    payload.status = status;
    event_set_id(reply, id);
    event_set_data(reply, 0, &payload, sizeof(payload));
    if (keepFor(task, reply)) vopa_context_common_reply(task, reply);
    return 0;
}

int rilproxy_send_notify(task_ptr_t task, task_id_t to, event_id_t id, void *data, int len) {
    ZOK_LOG_SELF(kSigSendNotify);
    event_ptr_t ev = vopa_event_alloc(nullptr);
    if (ev == nullptr) {
        RLOGE("get memory fail");
        return 0;
    }
    event_set_id(ev, id);
    event_set_data(ev, 0, data, len);
    if (keepFor(task, ev)) vopa_context_common_send(task, ev, to);
    return 0;
}

int rilproxy_send_bcast_state_notify(task_ptr_t task, int state) {
    ZOK_LOG_SELF(kSigSendBcastStateNotify);
    event_ptr_t ev = vopa_event_alloc(nullptr);
    if (ev == nullptr) {
        RLOGE("get memory fail");
        return 0;
    }
    int32_t payload = state;
    event_set_id(ev, EVENT_RILPROXY_STATE_IND);
    event_set_data(ev, 0, &payload, sizeof(payload));
    if (keepFor(task, ev)) vopa_context_common_bcast(task, ev);
    return 0;
}

int rilproxy_send_data_notification_request(task_ptr_t task) {
    ZOK_LOG_SELF(kSigSendDataNotificationRequest);
    event_ptr_t ev = vopa_event_alloc(nullptr);
    if (ev == nullptr) {
        RLOGE("get memory fail");
        return 0;
    }
    char payload[RILPROXY_DATA_NOTIFICATION_SIZE];
    memset(payload, 0, sizeof(payload));
    snprintf(payload, sizeof(payload), "%s", RILPROXY_DATA_NOTIFICATION_TEXT);
    event_set_id(ev, EVENT_DATA_NOTIFICATION_REQ);
    event_set_data(ev, 0, payload, sizeof(payload));
    if (keepFor(task, ev)) vopa_context_common_send(task, ev, TASK_ID_DATAMNGR);
    return 0;
}

int rilproxy_send_atcmd_response(task_ptr_t task, event_ptr_t event, void *token,
                                 unsigned int status, char *text) {
    ZOK_LOG_SELF(kSigSendAtcmdResponse);
    event_ptr_t reply = vopa_event_alloc(event);
    if (reply == nullptr) {
        RLOGE("get memory fail");
        return 0;
    }
    AtCommandResponse payload;
    memset(&payload, 0, sizeof(payload));
    payload.token = token;
    payload.status = status;
    if (text != nullptr) snprintf(payload.text, sizeof(payload.text), "%s", text);
    event_set_id(reply, EVENT_RILPROXY_ATCMD_RESP);
    event_set_data(reply, 0, &payload, sizeof(payload));
    if (keepFor(task, reply)) vopa_context_common_reply(task, reply);
    return 0;
}
