// Host-only control of the host framework (libvopa for a Linux PC), for tests, the runner and the
// benchmarks: post events to a task as a requester would, watch every event the framework
// delivers, open the entity-init gate, inject allocation failures and count live events.
//
//     vopa_host::open_entity_init_gate();
//     vopa_host::post(TASK_ID_RILPROXY, EVENT_RILPROXY_CONNECT, nullptr, 0, /*requester=*/7);
//     vopa_host::Delivery d;
//     ASSERT_TRUE(vopa_host::wait_for_id(EVENT_RILPROXY_CONNECT, 5000, &d));  // reply to 7
//
// Every event the framework hands out (posted, allocated) is counted; freeing one that is not
// live (twice, or never allocated) is counted as a bad free instead of touching memory.
#ifndef ZOK_HOST_VOPA_HOST_H
#define ZOK_HOST_VOPA_HOST_H

#include <stdint.h>

#include <functional>
#include <vector>

#include "vopa.h"

namespace vopa_host {

enum class DeliveryKind { Reply, Send, Bcast, BcastExt };

struct Delivery {
    uint64_t seq;  // 1, 2, ... in delivery order since the last reset
    DeliveryKind kind;
    event_id_t id;
    int32_t to;  // reply: the requester; send: the task; broadcasts: 0
    std::vector<uint8_t> data;
};

const char *kind_name(DeliveryKind kind);

// Forgets deliveries, counters, statistics, injected failures and closes the gate. Registered
// tasks stay.
void reset();

void open_entity_init_gate();
bool entity_init_gate_open();
// Waits until at least `n` threads are blocked in vopa_wait_all_entity_init. A test that frees an
// entity's context while its reader thread lives uses this to know the thread is parked at the
// closed gate and no longer touches the context.
bool wait_gate_waiters(int n, int timeout_ms);

// Enqueues a new event for `task` carrying `requester` as its ext id. False if no such task.
bool post(task_id_t task, event_id_t id, const void *data, int len, uint32_t requester);
// A live event that is not queued anywhere, as a requester would hand it to a task; the caller
// passes it on (the entity then owns it).
event_ptr_t new_event(event_id_t id, const void *data, int len, uint32_t requester);
// Waits until `task` has no queued event and is not running its handler.
bool wait_task_idle(task_id_t task, int timeout_ms);
bool task_registered(task_id_t task);
// The task object registered under `task`, or null.
task_ptr_t task_object(task_id_t task);
// The handler's user data installed on `task`, or null.
void *task_user(task_id_t task);
// Whether `task` subscribed to `id`.
bool subscribed(task_id_t task, event_id_t id);
// Entity id `task` was registered with, or -1.
int32_t task_entity_id(task_id_t task);

std::vector<Delivery> deliveries();
void clear_deliveries();
// Waits for a delivery after `after_seq` that matches; true and a copy in `out` when found.
bool wait_for(const std::function<bool(const Delivery &)> &match, int timeout_ms,
              Delivery *out = nullptr, uint64_t after_seq = 0);
bool wait_for_id(event_id_t id, int timeout_ms, Delivery *out = nullptr, uint64_t after_seq = 0);
// Called for every delivery, on the delivering thread, before it is recorded.
void set_delivery_listener(std::function<void(const Delivery &)> listener);

struct Counters {
    uint64_t allocated;  // events created (posted or vopa_event_alloc)
    uint64_t freed;      // events released (by vopa_event_free or by delivery)
    uint64_t live;       // allocated - freed
    uint64_t bad_frees;  // vopa_event_free on an event that was not live
    uint64_t failed_allocs;
};
Counters counters();
// Waits until no event is live (every event freed exactly once so far).
bool wait_no_live_events(int timeout_ms);

// The next `n` calls of vopa_event_alloc return null.
void fail_next_allocs(int n);
// How often vopa_event_do_statistic saw `mask` (null events included).
uint64_t statistic_count(uint64_t mask);
// Threads started through vopa_thrd_init objects.
int threads_started();

}  // namespace vopa_host

#endif  // ZOK_HOST_VOPA_HOST_H
