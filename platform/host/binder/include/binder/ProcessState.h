// Host stand-in for Android's android::ProcessState: the one process-wide binder state, opened
// on a named driver. The host keeps the driver name so that tests can see which one was asked for.
#ifndef ZOK_HOST_BINDER_PROCESS_STATE_H
#define ZOK_HOST_BINDER_PROCESS_STATE_H

#include <utils/StrongPointer.h>

#include <atomic>

namespace android {

class ProcessState {
public:
    // Opens the process state on `driver` the first time; later calls return the same state.
    static sp<ProcessState> initWithDriver(const char *driver);
    static sp<ProcessState> self();

    const char *getDriverName() const;
    int getStrongCount() const;

    void incStrong(const void *id) const;
    void decStrong(const void *id) const;

private:
    explicit ProcessState(const char *driver);
    char mDriverName[64];
    mutable std::atomic<int> mStrong;
};

}  // namespace android

#endif  // ZOK_HOST_BINDER_PROCESS_STATE_H
