// The entity's one log macro: priority from android_log_prio, tag from android_log_tag, and a
// " (%24.24s, %4d) " prefix with the writing function's signature and line. Any thread.
//
//     RLOGE("socket get length error");      // level 1, error
//     RLOGI("version = %d, num = %d", v, n);  // level 8, info
//
// Each compilation unit has its own tag index. It starts at -1 (tag chosen by whether this is
// the framework's main process) and is set to 8 before every line, so in practice every line
// carries android_log_tag[8]; the -1 branch stays for a unit that logs before the first set.
#ifndef ZOK_CORE_LOG_H
#define ZOK_CORE_LOG_H

#include <android/log.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>

#include "vopa.h"

#define RILPROXY_LOG_LEVEL_ERR 1
#define RILPROXY_LOG_LEVEL_INFO 8

// Relaxed atomic: both entity threads store 8 into it before their lines.
[[maybe_unused]] static std::atomic<int> rilproxy_log_tag_index{-1};

static inline const char *rilproxy_log_tag(void) {
    int index = rilproxy_log_tag_index.load(std::memory_order_relaxed);
    if (index == -1) return getpid() == zok_pid ? android_log_tag[0] : android_log_tag[1];
    return android_log_tag[index];
}

#define RILPROXY_LOG(level, fmt, ...)                                                  \
    do {                                                                               \
        rilproxy_log_tag_index.store(8, std::memory_order_relaxed);                    \
        if (__android_log_print(android_log_prio[(level)], rilproxy_log_tag(),         \
                                " (%24.24s, %4d) " fmt, __PRETTY_FUNCTION__, __LINE__, \
                                ##__VA_ARGS__) >= 0)                                   \
            fflush(stdout);                                                            \
    } while (0)

#define RLOGE(fmt, ...) RILPROXY_LOG(RILPROXY_LOG_LEVEL_ERR, fmt, ##__VA_ARGS__)
#define RLOGI(fmt, ...) RILPROXY_LOG(RILPROXY_LOG_LEVEL_INFO, fmt, ##__VA_ARGS__)

#endif  // ZOK_CORE_LOG_H
