// Calls on the framework's objects, which carry their operations as function pointers: each call
// is skipped when the object or the pointer is null.
#ifndef ZOK_CORE_FRAMEWORK_CALLS_H
#define ZOK_CORE_FRAMEWORK_CALLS_H

#include "vopa.h"

static inline void rilproxy_mutex_lock(vopa_mutex_t *mutex) {
    if (mutex != nullptr && mutex->lock != nullptr) mutex->lock(mutex);
}

static inline void rilproxy_mutex_unlock(vopa_mutex_t *mutex) {
    if (mutex != nullptr && mutex->unlock != nullptr) mutex->unlock(mutex);
}

// Scoped hold of a framework mutex.
class RilproxyMutexHold {
public:
    explicit RilproxyMutexHold(vopa_mutex_t *mutex) : mMutex(mutex) { rilproxy_mutex_lock(mMutex); }
    ~RilproxyMutexHold() { rilproxy_mutex_unlock(mMutex); }
    RilproxyMutexHold(const RilproxyMutexHold &) = delete;
    RilproxyMutexHold &operator=(const RilproxyMutexHold &) = delete;

private:
    vopa_mutex_t *mMutex;
};

#endif  // ZOK_CORE_FRAMEWORK_CALLS_H
