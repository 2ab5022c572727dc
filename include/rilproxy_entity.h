// What libzok_rilproxy.so exports to the framework: the three entry points under their plain
// names, rilproxy_reply_response under its C++ signature, and the three tables.
#ifndef ZOK_RILPROXY_ENTITY_H
#define ZOK_RILPROXY_ENTITY_H

#include "rilproxy.h"
#include "vopa.h"

// The entity is built with hidden visibility; this marks what the framework may bind to. The
// version script then keeps the export list exact.
#define RILPROXY_EXPORT __attribute__((visibility("default")))

extern "C" {
// Never returns on failure: the process exits with -1 after logging.
RILPROXY_EXPORT entity_ptr_t rilproxy_entity_init(entity_ptr_t entity,
                                                  const entity_init_arg_ptr_t arg);
RILPROXY_EXPORT void rilproxy_entity_version(void);
// Ends the task and frees the context; the reader thread, its channel (socket and pipes) and the
// parked events are left as they are (the reader's teardown is the real end of the entity).
RILPROXY_EXPORT entity_ptr_t rilproxy_entity_exit(entity_ptr_t entity);

RILPROXY_EXPORT extern ril_handler_t ril_handlers[];
RILPROXY_EXPORT extern ril_handler_tlv_t ril_handlers_tlv[];
RILPROXY_EXPORT extern ril_notify_t ril_notifys[];
}

// Replies to `event` with `len` bytes at `data` as event `id`. Always 0.
RILPROXY_EXPORT int rilproxy_reply_response(task_ptr_t task, event_ptr_t event, event_id_t id,
                                            void *data, int len);

#endif  // ZOK_RILPROXY_ENTITY_H
