// Host android::ProcessState: a process-wide singleton that records the driver it was opened on.
// Any thread; the first initWithDriver wins, as on Android.
#include <binder/ProcessState.h>
#include <stdio.h>

#include <mutex>

namespace android {

namespace {
std::mutex gLock;
ProcessState *gProcess = nullptr;  // lives for the whole process, as Android's does
}  // namespace

ProcessState::ProcessState(const char *driver) : mStrong(0) {
    snprintf(mDriverName, sizeof(mDriverName), "%s", driver ? driver : "/dev/binder");
}

#ifndef ZOK_HOST_BINDER_WITHOUT_INIT_WITH_DRIVER
sp<ProcessState> ProcessState::initWithDriver(const char *driver) {
    std::lock_guard<std::mutex> lock(gLock);
    if (gProcess == nullptr) gProcess = new ProcessState(driver);
    return sp<ProcessState>(gProcess);
}
#endif

sp<ProcessState> ProcessState::self() {
    std::lock_guard<std::mutex> lock(gLock);
    if (gProcess == nullptr) gProcess = new ProcessState("/dev/binder");
    return sp<ProcessState>(gProcess);
}

const char *ProcessState::getDriverName() const {
    return mDriverName;
}

int ProcessState::getStrongCount() const {
    return mStrong.load();
}

void ProcessState::incStrong(const void *) const {
    mStrong.fetch_add(1);
}

void ProcessState::decStrong(const void *) const {
    mStrong.fetch_sub(1);
}

}  // namespace android
