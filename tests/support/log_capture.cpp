#include "support/log_capture.h"

#include <host/log_capture.h>

#include <regex>

LogCapture::LogCapture() {
    host_log_set_sink(&LogCapture::sink, this);
    host_log_set_stderr(0);
}

LogCapture::~LogCapture() {
    host_log_set_sink(nullptr, nullptr);
    host_log_set_stderr(1);
}

void LogCapture::sink(int prio, const char *, const char *text, void *ctx) {
    auto *self = static_cast<LogCapture *>(ctx);
    LogLine line{prio, text, text};
    // " (" + 24 columns + ", " + 4 columns + ") "
    static const std::regex kPrefix("^ \\(.{24}, [ 0-9-]{4,}\\) ");
    std::smatch m;
    if (std::regex_search(line.text, m, kPrefix)) line.message = m.suffix();
    std::lock_guard<std::mutex> lock(self->mLock);
    self->mLines.push_back(line);
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mLines;
}

std::vector<std::string> LogCapture::messages() const {
    std::vector<std::string> out;
    for (const LogLine &l : lines()) out.push_back(l.message);
    return out;
}

bool LogCapture::containsMessage(const std::string &message) const {
    return indexOf(message) >= 0;
}

int LogCapture::countMessage(const std::string &message) const {
    int n = 0;
    for (const std::string &m : messages()) n += (m == message);
    return n;
}

int LogCapture::indexOf(const std::string &message, int from) const {
    std::vector<std::string> all = messages();
    for (size_t i = from < 0 ? 0 : from; i < all.size(); i++) {
        if (all[i] == message) return static_cast<int>(i);
    }
    return -1;
}
