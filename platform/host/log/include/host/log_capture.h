// Host-only log control: a sink that sees every formatted line (text exactly as printed, its
// own trailing newline included), and a switch for the stderr copy.
#ifndef ZOK_HOST_LOG_CAPTURE_H
#define ZOK_HOST_LOG_CAPTURE_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*host_log_sink_t)(int prio, const char *tag, const char *text, void *ctx);

// One sink at a time; null removes it. The sink runs on the logging thread under the log's sink
// lock: calls are serialised, a sink must not log itself, and once host_log_set_sink returns the
// replaced sink is no longer running.
void host_log_set_sink(host_log_sink_t sink, void *ctx);
// Whether lines also go to stderr (default: yes).
void host_log_set_stderr(int enabled);

#ifdef __cplusplus
}
#endif

#endif  // ZOK_HOST_LOG_CAPTURE_H
