// The six ways the entity emits an event towards the framework. Each allocates an event (from the
// request being answered, or a new one), sets its id, copies a payload built on the caller's
// stack, and delivers it when `task` is non-null. All return 0: allocation failure is logged
// ("get memory fail") and the event is lost.
#ifndef ZOK_CORE_REPLIES_H
#define ZOK_CORE_REPLIES_H

#include "rilproxy.h"
#include "rilproxy_entity.h"

int rilproxy_reply_response_only_status(task_ptr_t task, event_ptr_t event, event_id_t id,
                                        int status);
int rilproxy_send_notify(task_ptr_t task, task_id_t to, event_id_t id, void *data, int len);
int rilproxy_send_bcast_state_notify(task_ptr_t task, int state);
int rilproxy_send_data_notification_request(task_ptr_t task);
// `text` null: the text field is left empty.
int rilproxy_send_atcmd_response(task_ptr_t task, event_ptr_t event, void *token,
                                 unsigned int status, char *text);

#endif  // ZOK_CORE_REPLIES_H
