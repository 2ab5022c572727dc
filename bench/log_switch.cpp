// The wrapped __android_log_print of the benchmark executables; any thread.
#include "bench/log_switch.h"

#include <android/log.h>
#include <stdarg.h>

#include <atomic>

namespace {

std::atomic<bool> gLogging{true};
std::atomic<unsigned long> gLines{0};

}  // namespace

namespace logswitch {

void setLogging(bool enabled) {
    gLogging.store(enabled, std::memory_order_relaxed);
}

bool logging() {
    return gLogging.load(std::memory_order_relaxed);
}

unsigned long linesRequested() {
    return gLines.load(std::memory_order_relaxed);
}

}  // namespace logswitch

extern "C" int __wrap___android_log_print(int prio, const char *tag, const char *fmt, ...) {
    gLines.fetch_add(1, std::memory_order_relaxed);
    if (!gLogging.load(std::memory_order_relaxed)) return 1;
    va_list ap;
    va_start(ap, fmt);
    int r = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return r;
}
