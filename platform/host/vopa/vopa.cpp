// Host framework (libvopa for a Linux PC): events, tasks with their own threads and queues,
// delivery services, the entity-init gate and the accounting tests rely on. Any thread; one
// process-wide lock guards the registry, the queues and the counters.
#include "vopa.h"

#include <android/log.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <unordered_set>

#include "vopa_events.h"
#include "vopa_host.h"

struct vopa_event {
    event_id_t id;
    uint32_t ext_id;  // the requester to answer, 0 = none
    uint8_t *data;
    int len;
};

extern "C" {
const char *android_log_tag[VOPA_LOG_TABLE_SIZE] = {
    "ZOK", "ZOK_CLIENT", "ZOK", "ZOK", "ZOK", "ZOK", "ZOK", "ZOK", "ZOK_RILPROXY", "ZOK",
};
int android_log_prio[VOPA_LOG_TABLE_SIZE] = {
    ANDROID_LOG_FATAL, ANDROID_LOG_ERROR, ANDROID_LOG_WARN,  ANDROID_LOG_WARN, ANDROID_LOG_INFO,
    ANDROID_LOG_INFO,  ANDROID_LOG_DEBUG, ANDROID_LOG_DEBUG, ANDROID_LOG_INFO, ANDROID_LOG_VERBOSE,
};
pid_t zok_pid = 0;
int zok_prop_ver = 1;
}

namespace {

constexpr size_t kThreadStackSize = 1024 * 1024;
static_assert(kThreadStackSize >= VOPA_STACK_SIZE_MIN, "entity records live on the stack");

struct TaskRec {
    task_ptr_t owner = nullptr;
    task_id_t id = 0;
    int32_t entity_id = 0;
    vopa_task_handler_t handler = nullptr;
    void *user = nullptr;
    std::deque<event_ptr_t> queue;
    std::set<event_id_t> subscriptions;
    bool running = false;  // handler in progress
    bool stopping = false;
    pthread_t thread{};
    std::condition_variable wake;
};

struct Framework {
    std::mutex lock;
    std::condition_variable changed;  // deliveries, idle tasks, gate, live counts
    std::map<task_id_t, TaskRec *> tasks;
    std::unordered_set<event_ptr_t> live;
    vopa_host::Counters counters{};
    int fail_allocs = 0;
    bool gate_open = false;
    int gate_waiters = 0;
    std::map<uint64_t, uint64_t> statistics;
    std::vector<vopa_host::Delivery> deliveries;
    uint64_t next_seq = 1;
    std::function<void(const vopa_host::Delivery &)> listener;
    int threads_started = 0;
};

// Never destroyed: entity threads may still run while the process exits.
Framework &fw() {
    static Framework *f = new Framework;
    return *f;
}

event_ptr_t newEventLocked(Framework &f, event_id_t id, uint32_t ext_id) {
    event_ptr_t ev = new (std::nothrow) vopa_event{id, ext_id, nullptr, 0};
    if (ev == nullptr) return nullptr;
    f.live.insert(ev);
    f.counters.allocated++;
    f.counters.live++;
    return ev;
}

void destroyEventLocked(Framework &f, event_ptr_t ev) {
    f.live.erase(ev);
    f.counters.freed++;
    f.counters.live--;
    free(ev->data);
    delete ev;
    f.changed.notify_all();
}

event_ptr_t newEventWithDataLocked(Framework &f, event_id_t id, const void *data, int len,
                                   uint32_t requester) {
    event_ptr_t ev = newEventLocked(f, id, requester);
    if (ev == nullptr) return nullptr;
    if (data != nullptr && len > 0) {
        ev->data = static_cast<uint8_t *>(malloc(len));
        if (ev->data == nullptr) {
            destroyEventLocked(f, ev);
            return nullptr;
        }
        memcpy(ev->data, data, len);
        ev->len = len;
    }
    return ev;
}

TaskRec *taskOf(task_ptr_t task) {
    return task ? static_cast<TaskRec *>(task->impl) : nullptr;
}

void *taskThread(void *arg) {
    TaskRec *rec = static_cast<TaskRec *>(arg);
    Framework &f = fw();
    std::unique_lock<std::mutex> lock(f.lock);
    for (;;) {
        rec->wake.wait(lock, [&] {
            return rec->stopping || (rec->handler != nullptr && !rec->queue.empty());
        });
        if (rec->stopping) break;
        event_ptr_t ev = rec->queue.front();
        rec->queue.pop_front();
        rec->running = true;
        vopa_task_handler_t handler = rec->handler;
        void *user = rec->user;
        task_ptr_t owner = rec->owner;
        lock.unlock();
        handler(owner, ev, user);
        lock.lock();
        rec->running = false;
        f.changed.notify_all();
    }
    for (event_ptr_t ev : rec->queue) destroyEventLocked(f, ev);
    rec->queue.clear();
    lock.unlock();
    delete rec;
    return nullptr;
}

int setHandler(task_ptr_t task, vopa_task_handler_t handler, void *user, int) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    TaskRec *rec = taskOf(task);
    if (rec == nullptr) return -1;
    rec->handler = handler;
    rec->user = user;
    rec->wake.notify_all();
    return 0;
}

int startThread(pthread_attr_t *attr, vopa_thread_routine_t routine, void *arg, pthread_t *out) {
    pthread_attr_init(attr);
    pthread_attr_setstacksize(attr, kThreadStackSize);
    int r = pthread_create(out, attr, routine, arg);
    pthread_attr_destroy(attr);
    return r;
}

int threadStart(vopa_thread_t *thread, vopa_thread_routine_t routine, void *arg) {
    if (thread == nullptr || routine == nullptr) return -1;
    pthread_attr_t attr;
    pthread_t tid;
    if (startThread(&attr, routine, arg, &tid) != 0) return -1;
    pthread_detach(tid);
    thread->handle = static_cast<uint64_t>(tid);
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    f.threads_started++;
    return 0;
}

pthread_mutex_t *mutexOf(vopa_mutex_t *mutex) {
    static_assert(sizeof(pthread_mutex_t) <= sizeof(mutex->storage), "mutex storage");
    return reinterpret_cast<pthread_mutex_t *>(mutex->storage);
}

int mutexLock(vopa_mutex_t *mutex) {
    return pthread_mutex_lock(mutexOf(mutex));
}

int mutexUnlock(vopa_mutex_t *mutex) {
    return pthread_mutex_unlock(mutexOf(mutex));
}

// Records a delivery, then hands the event to every registered receiver (copies for all but the
// first) or releases it. Takes ownership of `ev`.
void deliver(vopa_host::DeliveryKind kind, event_ptr_t ev, int32_t to,
             const std::vector<task_id_t> &receivers) {
    Framework &f = fw();
    vopa_host::Delivery d;
    d.kind = kind;
    d.to = to;
    std::function<void(const vopa_host::Delivery &)> listener;
    {
        std::lock_guard<std::mutex> lock(f.lock);
        if (f.live.count(ev) == 0) {
            f.counters.bad_frees++;  // delivering an event that is not live
            return;
        }
        d.id = ev->id;
        if (ev->data != nullptr && ev->len > 0) d.data.assign(ev->data, ev->data + ev->len);
        d.seq = f.next_seq++;
        listener = f.listener;
    }
    if (listener) listener(d);
    std::lock_guard<std::mutex> lock(f.lock);
    f.deliveries.push_back(d);
    event_ptr_t pending = ev;
    for (task_id_t id : receivers) {
        auto it = f.tasks.find(id);
        if (it == f.tasks.end()) continue;
        event_ptr_t copy = pending;
        if (copy == nullptr) {
            copy =
                newEventWithDataLocked(f, d.id, d.data.data(), static_cast<int>(d.data.size()), 0);
            if (copy == nullptr) continue;
        }
        pending = nullptr;
        it->second->queue.push_back(copy);
        it->second->wake.notify_all();
    }
    if (pending != nullptr) destroyEventLocked(f, pending);
    f.changed.notify_all();
}

// A broadcast never comes back to the task that sent it: an entity answering a subscribed event
// by broadcast (connect / disconnect) would otherwise receive its own answer as a new request.
std::vector<task_id_t> subscribersOf(event_id_t id, task_ptr_t sender) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    std::vector<task_id_t> out;
    for (auto &entry : f.tasks) {
        if (entry.second->owner == sender) continue;
        if (entry.second->subscriptions.count(id)) out.push_back(entry.first);
    }
    return out;
}

struct EventName {
    event_id_t id;
    const char *name;
};

const EventName kEventNames[] = {
#define NAME(x) \
    { x, #x }
    NAME(EVENT_RILPROXY_ATCMD_REQ),
    NAME(EVENT_RILPROXY_CONNECT),
    NAME(EVENT_RILPROXY_DISCONNECT),
    NAME(EVENT_RESP_DATA_CALL_INFO),
    NAME(EVENT_RESP_PCSCF_PCO),
    NAME(EVENT_RESP_LAST_FAIL_CAUSE),
    NAME(EVENT_RILPROXY_ATCMD_RESP),
    NAME(EVENT_RILPROXY_STATE_IND),
    NAME(EVENT_DATA_NOTIFICATION_REQ),
    NAME(EVENT_SETUP_DATA_CALL_REQ),
    NAME(EVENT_SETUP_DATA_CALL_RESP),
    NAME(EVENT_DEACTIVATE_DATA_CALL_REQ),
    NAME(EVENT_DEACTIVATE_DATA_CALL_RESP),
    NAME(EVENT_SETUP_DEDICATE_DATA_CALL_REQ),
    NAME(EVENT_SETUP_DEDICATE_DATA_CALL_RESP),
    NAME(EVENT_MODIFY_DATA_CALL_REQ),
    NAME(EVENT_MODIFY_DATA_CALL_RESP),
    NAME(EVENT_DEACTIVATE_DEDICATE_DATA_CALL_REQ),
    NAME(EVENT_DEACTIVATE_DEDICATE_DATA_CALL_RESP),
    NAME(EVENT_ABORT_SETUP_DATA_CALL_REQ),
    NAME(EVENT_ABORT_SETUP_DATA_CALL_RESP),
    NAME(EVENT_PCSCF_DISCOVERY_PCO_REQ),
    NAME(EVENT_PCSCF_DISCOVERY_PCO_RESP),
    NAME(EVENT_LAST_DATA_CALL_FAIL_CAUSE_REQ),
    NAME(EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP),
    NAME(EVENT_DATA_CALL_LIST_CHANGED_IND),
    NAME(EVENT_DEDICATE_BEARER_ACTIVATED_IND),
    NAME(EVENT_DEDICATE_BEARER_MODIFIED_IND),
    NAME(EVENT_DEDICATE_BEARER_DEACTIVATED_IND),
    NAME(EVENT_SET_INITIAL_ATTACH_APN_REQ),
    NAME(EVENT_SET_INITIAL_ATTACH_APN_RESP),
    NAME(EVENT_RADIO_POWER_REQ),
    NAME(EVENT_RADIO_POWER_RESP),
    NAME(EVENT_DATA_CALL_RESPONSE_IND),
    NAME(EVENT_DATA_CALL_RESPONSE_FAIL_IND),
    NAME(EVENT_HANDOVER_RESP),
    NAME(EVENT_NWMNGR_NOTIFY_PS_REG_STATE),
    NAME(EVENT_RB_DM_HO_REQ),
    NAME(EVENT_DEACTIVATE_DATA_CALL_2_REQ),
    NAME(EVENT_RB_DM_PDN_INFO_IND),
#undef NAME
};

}  // namespace

extern "C" {

int vopa_task_init(task_ptr_t task, int32_t entity_id, task_id_t task_id) {
    if (task == nullptr) return -1;
    Framework &f = fw();
    TaskRec *rec = new TaskRec;
    rec->owner = task;
    rec->id = task_id;
    rec->entity_id = entity_id;
    {
        std::lock_guard<std::mutex> lock(f.lock);
        if (f.tasks.count(task_id)) {
            delete rec;
            return -1;
        }
        f.tasks[task_id] = rec;
        task->impl = rec;
        task->set_handler = setHandler;
    }
    pthread_attr_t attr;
    pthread_t tid;
    if (startThread(&attr, taskThread, rec, &tid) != 0) {
        std::lock_guard<std::mutex> lock(f.lock);
        f.tasks.erase(task_id);
        task->impl = nullptr;
        delete rec;
        return -1;
    }
    std::lock_guard<std::mutex> lock(f.lock);
    rec->thread = tid;
    return 0;
}

int vopa_task_exit(task_ptr_t task) {
    Framework &f = fw();
    pthread_t thread;
    {
        std::lock_guard<std::mutex> lock(f.lock);
        TaskRec *rec = taskOf(task);
        if (rec == nullptr) return -1;
        f.tasks.erase(rec->id);
        task->impl = nullptr;
        rec->stopping = true;
        thread = rec->thread;  // the record is the task thread's to free from here on
        rec->wake.notify_all();
    }
    // An exit from the task's own handler cannot wait for itself.
    if (pthread_equal(thread, pthread_self())) {
        pthread_detach(thread);
    } else {
        pthread_join(thread, nullptr);
    }
    return 0;
}

int vopa_connmngr_common_subscribe(task_ptr_t task, event_id_t id, int enable) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    TaskRec *rec = taskOf(task);
    if (rec == nullptr) return -1;
    if (enable) {
        rec->subscriptions.insert(id);
    } else {
        rec->subscriptions.erase(id);
    }
    return 0;
}

int vopa_thrd_init(vopa_thread_t *thread) {
    if (thread == nullptr) return -1;
    thread->start = threadStart;
    thread->handle = 0;
    return 0;
}

int vopa_mutex_init(vopa_mutex_t *mutex) {
    if (mutex == nullptr) return -1;
    pthread_mutex_init(mutexOf(mutex), nullptr);
    mutex->lock = mutexLock;
    mutex->unlock = mutexUnlock;
    return 0;
}

int vopa_wait_all_entity_init(void) {
    Framework &f = fw();
    std::unique_lock<std::mutex> lock(f.lock);
    f.gate_waiters++;
    f.changed.notify_all();
    f.changed.wait(lock, [&] { return f.gate_open; });
    f.gate_waiters--;
    return 0;
}

event_ptr_t vopa_event_alloc(event_ptr_t source) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    if (f.fail_allocs > 0) {
        f.fail_allocs--;
        f.counters.failed_allocs++;
        return nullptr;
    }
    uint32_t ext = 0;
    event_id_t id = 0;
    if (source != nullptr && f.live.count(source)) {
        ext = source->ext_id;
        id = source->id;
    }
    return newEventLocked(f, id, ext);
}

void vopa_event_free(event_ptr_t event) {
    if (event == nullptr) return;
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    if (f.live.count(event) == 0) {
        f.counters.bad_frees++;
        return;
    }
    destroyEventLocked(f, event);
}

event_id_t event_get_id(event_ptr_t event) {
    return event ? event->id : 0;
}

int event_set_id(event_ptr_t event, event_id_t id) {
    if (event == nullptr) return -1;
    event->id = id;
    return 0;
}

const char *event_get_name(event_id_t id) {
    for (const EventName &n : kEventNames) {
        if (n.id == id) return n.name;
    }
    return "EVENT_UNKNOWN";
}

void *event_get_data(event_ptr_t event, int index, int *len) {
    if (event == nullptr || index != 0 || event->data == nullptr || event->len <= 0) {
        if (len) *len = 0;
        return nullptr;
    }
    if (len) *len = event->len;
    return event->data;
}

int event_set_data(event_ptr_t event, int index, const void *data, int len) {
    if (event == nullptr || index != 0 || len < 0) return -1;
    uint8_t *copy = nullptr;
    if (data != nullptr && len > 0) {
        copy = static_cast<uint8_t *>(malloc(len));
        if (copy == nullptr) return -1;
        memcpy(copy, data, len);
    }
    free(event->data);
    event->data = copy;
    event->len = copy ? len : 0;
    return 0;
}

uint32_t vopa_event_get_ext_id(event_ptr_t event) {
    return event ? event->ext_id : 0;
}

void vopa_event_do_statistic(event_ptr_t, uint64_t mask) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    f.statistics[mask]++;
}

int vopa_context_common_reply(task_ptr_t, event_ptr_t event) {
    if (event == nullptr) return -1;
    int32_t to = static_cast<int32_t>(event->ext_id);
    deliver(vopa_host::DeliveryKind::Reply, event, to, {to});
    return 0;
}

int vopa_context_common_send(task_ptr_t, event_ptr_t event, task_id_t to) {
    if (event == nullptr) return -1;
    deliver(vopa_host::DeliveryKind::Send, event, to, {to});
    return 0;
}

int vopa_context_common_bcast(task_ptr_t task, event_ptr_t event) {
    if (event == nullptr) return -1;
    deliver(vopa_host::DeliveryKind::Bcast, event, 0, subscribersOf(event->id, task));
    return 0;
}

int vopa_task_bcast_ext_event(task_ptr_t task, event_ptr_t event) {
    if (event == nullptr) return -1;
    deliver(vopa_host::DeliveryKind::BcastExt, event, 0, subscribersOf(event->id, task));
    return 0;
}

}  // extern "C"

namespace vopa_host {

const char *kind_name(DeliveryKind kind) {
    switch (kind) {
        case DeliveryKind::Reply:
            return "reply";
        case DeliveryKind::Send:
            return "send";
        case DeliveryKind::Bcast:
            return "bcast";
        case DeliveryKind::BcastExt:
            return "bcast_ext";
    }
    return "?";
}

void reset() {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    f.deliveries.clear();
    f.next_seq = 1;
    uint64_t live = f.counters.live;
    f.counters = Counters{};
    f.counters.live = live;
    f.fail_allocs = 0;
    f.gate_open = false;
    f.statistics.clear();
}

void open_entity_init_gate() {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    f.gate_open = true;
    f.changed.notify_all();
}

bool wait_gate_waiters(int n, int timeout_ms) {
    Framework &f = fw();
    std::unique_lock<std::mutex> lock(f.lock);
    return f.changed.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                              [&] { return f.gate_waiters >= n; });
}

bool entity_init_gate_open() {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    return f.gate_open;
}

event_ptr_t new_event(event_id_t id, const void *data, int len, uint32_t requester) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    return newEventWithDataLocked(f, id, data, len, requester);
}

bool post(task_id_t task, event_id_t id, const void *data, int len, uint32_t requester) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    auto it = f.tasks.find(task);
    if (it == f.tasks.end()) return false;
    event_ptr_t ev = newEventWithDataLocked(f, id, data, len, requester);
    if (ev == nullptr) return false;
    it->second->queue.push_back(ev);
    it->second->wake.notify_all();
    return true;
}

bool wait_task_idle(task_id_t task, int timeout_ms) {
    Framework &f = fw();
    std::unique_lock<std::mutex> lock(f.lock);
    return f.changed.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] {
        auto it = f.tasks.find(task);
        return it == f.tasks.end() || (it->second->queue.empty() && !it->second->running);
    });
}

bool task_registered(task_id_t task) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    return f.tasks.count(task) != 0;
}

task_ptr_t task_object(task_id_t task) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    auto it = f.tasks.find(task);
    return it == f.tasks.end() ? nullptr : it->second->owner;
}

void *task_user(task_id_t task) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    auto it = f.tasks.find(task);
    return it == f.tasks.end() ? nullptr : it->second->user;
}

bool subscribed(task_id_t task, event_id_t id) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    auto it = f.tasks.find(task);
    return it != f.tasks.end() && it->second->subscriptions.count(id) != 0;
}

int32_t task_entity_id(task_id_t task) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    auto it = f.tasks.find(task);
    return it == f.tasks.end() ? -1 : it->second->entity_id;
}

std::vector<Delivery> deliveries() {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    return f.deliveries;
}

void clear_deliveries() {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    f.deliveries.clear();
}

bool wait_for(const std::function<bool(const Delivery &)> &match, int timeout_ms, Delivery *out,
              uint64_t after_seq) {
    Framework &f = fw();
    std::unique_lock<std::mutex> lock(f.lock);
    const Delivery *found = nullptr;
    f.changed.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] {
        for (const Delivery &d : f.deliveries) {
            if (d.seq > after_seq && match(d)) {
                found = &d;
                return true;
            }
        }
        return false;
    });
    if (found != nullptr && out != nullptr) *out = *found;
    return found != nullptr;
}

bool wait_for_id(event_id_t id, int timeout_ms, Delivery *out, uint64_t after_seq) {
    return wait_for([id](const Delivery &d) { return d.id == id; }, timeout_ms, out, after_seq);
}

void set_delivery_listener(std::function<void(const Delivery &)> listener) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    f.listener = std::move(listener);
}

Counters counters() {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    return f.counters;
}

bool wait_no_live_events(int timeout_ms) {
    Framework &f = fw();
    std::unique_lock<std::mutex> lock(f.lock);
    return f.changed.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                              [&] { return f.live.empty(); });
}

void fail_next_allocs(int n) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    f.fail_allocs = n;
}

uint64_t statistic_count(uint64_t mask) {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    auto it = f.statistics.find(mask);
    return it == f.statistics.end() ? 0 : it->second;
}

int threads_started() {
    Framework &f = fw();
    std::lock_guard<std::mutex> lock(f.lock);
    return f.threads_started;
}

}  // namespace vopa_host
