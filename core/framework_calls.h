// Calls on the framework's objects, which carry their operations as function pointers: each call
// is skipped when the object or the pointer is null.
#ifndef ZOK_CORE_FRAMEWORK_CALLS_H
#define ZOK_CORE_FRAMEWORK_CALLS_H

#include "vopa.h"

// Declared apart from their bodies so that the analysis trusts the annotation: the bodies call
// through function pointers that it cannot follow.
static inline void rilproxy_mutex_lock(vopa_mutex_t *mutex) RILPROXY_ACQUIRE(mutex);
static inline void rilproxy_mutex_unlock(vopa_mutex_t *mutex) RILPROXY_RELEASE(mutex);

static inline void rilproxy_mutex_lock(vopa_mutex_t *mutex) RILPROXY_NO_THREAD_SAFETY_ANALYSIS {
    if (mutex != nullptr && mutex->lock != nullptr) mutex->lock(mutex);
}

static inline void rilproxy_mutex_unlock(vopa_mutex_t *mutex) RILPROXY_NO_THREAD_SAFETY_ANALYSIS {
    if (mutex != nullptr && mutex->unlock != nullptr) mutex->unlock(mutex);
}

// Scoped hold of a framework mutex, known to the analysis as holding `mutex`.
//
//     RilproxyMutexHold hold(&ctx->event_pool_mutex);
//     ctx->serial_seq = 1;  // checked: the field is RILPROXY_GUARDED_BY(event_pool_mutex)
class RILPROXY_SCOPED_CAPABILITY RilproxyMutexHold {
public:
    explicit RilproxyMutexHold(vopa_mutex_t *mutex) RILPROXY_ACQUIRE(mutex) : mMutex(mutex) {
        rilproxy_mutex_lock(mMutex);
    }
    ~RilproxyMutexHold() RILPROXY_RELEASE() { rilproxy_mutex_unlock(mMutex); }
    RilproxyMutexHold(const RilproxyMutexHold &) = delete;
    RilproxyMutexHold &operator=(const RilproxyMutexHold &) = delete;

private:
    vopa_mutex_t *mMutex;
};

#endif  // ZOK_CORE_FRAMEWORK_CALLS_H
