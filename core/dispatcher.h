// The entity's task handler: routes every event addressed to task 202 on the framework's task
// thread, holding the command channel's sock_mutex for the whole event.
#ifndef ZOK_CORE_DISPATCHER_H
#define ZOK_CORE_DISPATCHER_H

#include "rilproxy.h"

// `user` is the rilproxy_entity_priv_t. Frees `event` unless it was parked. Returns null.
void *rilproxy_task_hdl(task_ptr_t task, event_ptr_t event, void *user);

#endif  // ZOK_CORE_DISPATCHER_H
