// The entity's one log macro: priority from android_log_prio, tag from android_log_tag, and a
// " (%24.24s, %4d) " prefix with the signature of the function the line belongs to, and the line.
// Any thread. A function that logs first says whose lines it writes (core/signatures.h):
//
//     ZOK_LOG_SELF(kSigCmdRespThread);        // in rilproxy_cmd_resp_thread itself
//     ZOK_LOG_AS(kSigCmdRespThread);          // in a helper that works for it
//     RLOGE("socket get length error");      // level 1, error
//     RLOGI("version = %d, num = %d", v, n);  // level 8, info
//
// The macros find the declaration by ordinary name lookup, and there is none at namespace
// scope: a function that logs without naming its owner does not compile.
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

#include "core/signatures.h"
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

// Whose lines a function writes: any text, a parameter included (shared bodies take it).
#define ZOK_LOG_AS(signature) [[maybe_unused]] const char *const zok_log_signature = (signature)

constexpr bool rilproxy_same_text(const char *a, const char *b) {
    while (*a != '\0' && *a == *b) {
        a++;
        b++;
    }
    return *a == *b;
}

// In the owning function itself. Under clang the text must be the function's own signature as
// the compiler prints it, so a changed declaration cannot leave a stale prefix behind.
#if defined(__clang__)
#define ZOK_LOG_SELF(signature)                                                 \
    static_assert(rilproxy_same_text(signature, __PRETTY_FUNCTION__),           \
                  "the log signature differs from the function's declaration"); \
    ZOK_LOG_AS(signature)
#else
#define ZOK_LOG_SELF(signature) ZOK_LOG_AS(signature)
#endif

#define RILPROXY_LOG(level, fmt, ...)                                                \
    do {                                                                             \
        rilproxy_log_tag_index.store(8, std::memory_order_relaxed);                  \
        if (__android_log_print(android_log_prio[(level)], rilproxy_log_tag(),       \
                                " (%24.24s, %4d) " fmt, zok_log_signature, __LINE__, \
                                ##__VA_ARGS__) >= 0)                                 \
            fflush(stdout);                                                          \
    } while (0)

#define RLOGE(fmt, ...) RILPROXY_LOG(RILPROXY_LOG_LEVEL_ERR, fmt, ##__VA_ARGS__)
#define RLOGI(fmt, ...) RILPROXY_LOG(RILPROXY_LOG_LEVEL_INFO, fmt, ##__VA_ARGS__)

#endif  // ZOK_CORE_LOG_H
