// Host stand-in for Android's android/log.h: priorities and __android_log_print, written to
// stderr as "<P>/<tag>: <text>" (P one of V D I W E F).
#ifndef ZOK_HOST_ANDROID_LOG_H
#define ZOK_HOST_ANDROID_LOG_H

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

// Returns the number of text bytes logged (positive), or a negative errno.
int __android_log_print(int prio, const char *tag, const char *fmt, ...)
    __attribute__((__format__(printf, 3, 4)));
int __android_log_vprint(int prio, const char *tag, const char *fmt, va_list ap)
    __attribute__((__format__(printf, 3, 0)));

#ifdef __cplusplus
}
#endif

#endif  // ZOK_HOST_ANDROID_LOG_H
