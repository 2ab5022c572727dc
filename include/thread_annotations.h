// Locking annotations checked by clang's -Wthread-safety: which mutex guards a field, which
// functions take or need a mutex. They are attributes only: no size or offset of a record changes,
// and where the compiler lacks them (g++) they expand to nothing.
//
//     typedef struct RILPROXY_CAPABILITY("mutex") vopa_mutex { ... } vopa_mutex_t;
//     uint32_t serial_seq RILPROXY_GUARDED_BY(event_pool_mutex);
//     static bool slotHeld(ctx, slot) RILPROXY_REQUIRES(ctx->event_pool_mutex);
#ifndef ZOK_THREAD_ANNOTATIONS_H
#define ZOK_THREAD_ANNOTATIONS_H

#if defined(__clang__) && defined(__has_attribute)
#if __has_attribute(guarded_by)
#define RILPROXY_THREAD_ANNOTATION(x) __attribute__((x))
#endif
#endif
#ifndef RILPROXY_THREAD_ANNOTATION
#define RILPROXY_THREAD_ANNOTATION(x)
#endif

#define RILPROXY_CAPABILITY(x) RILPROXY_THREAD_ANNOTATION(capability(x))
#define RILPROXY_SCOPED_CAPABILITY RILPROXY_THREAD_ANNOTATION(scoped_lockable)
#define RILPROXY_GUARDED_BY(x) RILPROXY_THREAD_ANNOTATION(guarded_by(x))
#define RILPROXY_REQUIRES(...) RILPROXY_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define RILPROXY_ACQUIRE(...) RILPROXY_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RILPROXY_RELEASE(...) RILPROXY_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RILPROXY_TRY_ACQUIRE(...) RILPROXY_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define RILPROXY_ACQUIRED_AFTER(...) RILPROXY_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define RILPROXY_ASSERT_CAPABILITY(x) RILPROXY_THREAD_ANNOTATION(assert_capability(x))
#define RILPROXY_PT_GUARDED_BY(x) RILPROXY_THREAD_ANNOTATION(pt_guarded_by(x))
#define RILPROXY_EXCLUDES(...) RILPROXY_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define RILPROXY_NO_THREAD_SAFETY_ANALYSIS RILPROXY_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif  // ZOK_THREAD_ANNOTATIONS_H
