// Host liblog: formats one line, hands it to the capture sink if one is set and writes it to
// stderr with a single write so lines from several threads do not interleave; any thread.
#include <android/log.h>
#include <errno.h>
#include <host/log_capture.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

namespace {

struct Sink {
    host_log_sink_t fn;
    void *ctx;
};

// Held while a sink runs, so that once host_log_set_sink returns no thread is still inside the
// sink it replaced (a test's capture object may be destroyed right after).
std::mutex gSinkLock;
Sink gSink{nullptr, nullptr};
std::atomic<bool> gHasSink{false};  // spares lines the lock when nobody captures
std::atomic<bool> gStderr{true};

char priorityLetter(int prio) {
    static const char kLetters[] = "??VDIWEFS";
    return (prio >= 0 && prio <= ANDROID_LOG_SILENT) ? kLetters[prio] : '?';
}

}  // namespace

extern "C" void host_log_set_sink(host_log_sink_t sink, void *ctx) {
    std::lock_guard<std::mutex> lock(gSinkLock);
    gSink = Sink{sink, ctx};
    gHasSink.store(sink != nullptr);
}

extern "C" void host_log_set_stderr(int enabled) {
    gStderr.store(enabled != 0);
}

extern "C" int __android_log_vprint(int prio, const char *tag, const char *fmt, va_list ap) {
    if (tag == nullptr) tag = "";
    char text[4096 + 512];
    text[0] = '\0';
    if (fmt != nullptr && vsnprintf(text, sizeof(text), fmt, ap) < 0) return -EINVAL;
    size_t len = strnlen(text, sizeof(text));

    if (gHasSink.load()) {
        std::lock_guard<std::mutex> lock(gSinkLock);
        if (gSink.fn != nullptr) gSink.fn(prio, tag, text, gSink.ctx);
    }

    if (gStderr.load()) {
        char line[sizeof(text) + 128];
        bool newline = len > 0 && text[len - 1] == '\n';
        int m = snprintf(line, sizeof(line), "%c/%s: %s%s", priorityLetter(prio), tag, text,
                         newline ? "" : "\n");
        if (m > 0) {
            size_t total = static_cast<size_t>(m) < sizeof(line) ? m : sizeof(line) - 1;
            ssize_t w;
            do {
                w = write(STDERR_FILENO, line, total);
            } while (w < 0 && errno == EINTR);
        }
    }
    return len > 0 ? static_cast<int>(len) : 1;
}

extern "C" int __android_log_print(int prio, const char *tag, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int r = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return r;
}
