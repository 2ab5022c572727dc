// The entity's task handler (placeholder until the dispatcher lands): logs and frees every event.
// Framework task thread.
#include "core/dispatcher.h"

#include "core/log.h"

void *rilproxy_task_hdl(task_ptr_t, event_ptr_t event, void *) {
    event_id_t id = event_get_id(event);
    RLOGI("rilproxy_task_hdl(), receive event ID %s(%d)\n", event_get_name(id), id);
    RLOGE("rilproxy_task_hdl(): an unknown event");
    vopa_event_free(event);
    return nullptr;
}
