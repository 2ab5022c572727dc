// The vopa framework interface as this entity is built against it: handles, the framework's
// objects that carry their operations as function pointers, the vopa_* services and the globals.
// The framework (libvopa) implements it; on a Linux PC platform/host/vopa does.
#ifndef ZOK_VOPA_H
#define ZOK_VOPA_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "thread_annotations.h"

struct vopa_task;
struct vopa_event;

typedef int32_t task_id_t;
typedef int32_t event_id_t;
typedef struct vopa_task *task_ptr_t;
typedef struct vopa_event *event_ptr_t;

// The framework's record of one loaded entity. The entity writes `id` and `priv` only.
typedef struct vopa_entity {
    int32_t id;
    void *priv;
    const char *name;
} vopa_entity_t;
typedef vopa_entity_t *entity_ptr_t;

typedef struct vopa_entity_init_arg {
    const char *config;
} vopa_entity_init_arg_t;
typedef vopa_entity_init_arg_t *entity_init_arg_ptr_t;

// Called on the task's own thread with every event addressed to the task.
typedef void *(*vopa_task_handler_t)(task_ptr_t task, event_ptr_t event, void *user);

// A task object is embedded by its owner; vopa_task_init fills it. `impl` belongs to the
// framework; `set_handler` installs the handler as (task, handler, user data, flags).
typedef struct vopa_task {
    void *impl;
    int (*set_handler)(task_ptr_t task, vopa_task_handler_t handler, void *user, int flags);
} vopa_task_t;

// A mutex object carries its own operations; each is called with the object's address.
// The lock itself lives in `storage`, so an embedded mutex needs no allocation.
typedef struct RILPROXY_CAPABILITY("mutex") vopa_mutex {
    int (*lock)(struct vopa_mutex *mutex);
    int (*unlock)(struct vopa_mutex *mutex);
    alignas(16) unsigned char storage[64];
} vopa_mutex_t;

typedef void *(*vopa_thread_routine_t)(void *arg);

// A thread object: after vopa_thrd_init, `start` runs routine(arg) on a new detached thread
// whose stack is large enough for the entity's biggest on-stack records (256 KiB or more).
typedef struct vopa_thread {
    int (*start)(struct vopa_thread *thread, vopa_thread_routine_t routine, void *arg);
    uint64_t handle;
} vopa_thread_t;

#define VOPA_STACK_SIZE_MIN (256 * 1024)

#ifdef __cplusplus
extern "C" {
#endif

int vopa_task_init(task_ptr_t task, int32_t entity_id, task_id_t task_id);
int vopa_task_exit(task_ptr_t task);
int vopa_connmngr_common_subscribe(task_ptr_t task, event_id_t id, int enable);
int vopa_thrd_init(vopa_thread_t *thread);
int vopa_mutex_init(vopa_mutex_t *mutex);
int vopa_wait_all_entity_init(void);

// A reply allocated from a source event carries the source's requester (its ext id).
event_ptr_t vopa_event_alloc(event_ptr_t source);
void vopa_event_free(event_ptr_t event);
event_id_t event_get_id(event_ptr_t event);
int event_set_id(event_ptr_t event, event_id_t id);
const char *event_get_name(event_id_t id);
// Payload index 0 is the only one the entity uses. The pointer stays valid until the event is
// freed; `len` receives the payload size (0 and null when there is none).
void *event_get_data(event_ptr_t event, int index, int *len);
// Copies `len` bytes from `data`.
int event_set_data(event_ptr_t event, int index, const void *data, int len);
uint32_t vopa_event_get_ext_id(event_ptr_t event);
void vopa_event_do_statistic(event_ptr_t event, uint64_t mask);

// Delivery services. The framework owns the event from the call on, whatever the result.
int vopa_context_common_reply(task_ptr_t task, event_ptr_t event);
int vopa_context_common_send(task_ptr_t task, event_ptr_t event, task_id_t to);
int vopa_context_common_bcast(task_ptr_t task, event_ptr_t event);
int vopa_task_bcast_ext_event(task_ptr_t task, event_ptr_t event);

// Logging tables indexed by the entity's levels and tag index, the framework's main pid and
// the property-naming version (below 1: names without "vendor.").
#define VOPA_LOG_TABLE_SIZE 10
extern const char *android_log_tag[VOPA_LOG_TABLE_SIZE];
extern int android_log_prio[VOPA_LOG_TABLE_SIZE];
extern pid_t zok_pid;
extern int zok_prop_ver;

#ifdef __cplusplus
}
#endif

#endif  // ZOK_VOPA_H
