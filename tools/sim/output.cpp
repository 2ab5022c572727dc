// Atomic line output and the small text encoders of the tools. Any thread.
#include "tools/sim/output.h"

#include <errno.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include <mutex>

namespace tool_output {

namespace {

std::mutex &outputLock() {
    static std::mutex *lock = new std::mutex;  // never destroyed: threads print until the end
    return *lock;
}

// Under outputLock().
void writeLocked(const std::string &out, int fd) {
    size_t off = 0;
    while (off < out.size()) {
        ssize_t n = write(fd, out.data() + off, out.size() - off);
        if (n < 0) {
            if (errno == EINTR) continue;
            return;  // a closed reader of our output: nothing sensible left to do with the line
        }
        off += static_cast<size_t>(n);
    }
}

}  // namespace

void writeLine(const std::string &line, int fd) {
    std::lock_guard<std::mutex> hold(outputLock());
    writeLocked(line + "\n", fd);
}

void writeTimedJson(const std::string &object, int fd) {
    std::lock_guard<std::mutex> hold(outputLock());
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    const uint64_t us =
        static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000;
    writeLocked(object.substr(0, object.size() - 1) + ",\"mono_us\":" + std::to_string(us) + "}\n",
                fd);
}

std::string hexLower(const uint8_t *data, size_t len) {
    static const char kDigits[] = "0123456789abcdef";
    std::string out;
    out.reserve(len * 2);
    for (size_t i = 0; i < len; i++) {
        out.push_back(kDigits[data[i] >> 4]);
        out.push_back(kDigits[data[i] & 0xF]);
    }
    return out;
}

std::string hexLower(const std::vector<uint8_t> &data) {
    return hexLower(data.data(), data.size());
}

std::string hex32(uint32_t value) {
    char text[16];
    snprintf(text, sizeof(text), "0x%x", value);
    return text;
}

std::string jsonString(const std::string &text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out.push_back('\\');
            out.push_back(static_cast<char>(c));
        } else if (c >= 0x20 && c < 0x7F) {
            out.push_back(static_cast<char>(c));
        } else {
            char buf[8];
            snprintf(buf, sizeof(buf), "\\u%04x", c);
            out += buf;
        }
    }
    return out + "\"";
}

std::string escapeText(const std::string &text) {
    std::string out;
    for (unsigned char c : text) {
        switch (c) {
            case '\r':
                out += "\\r";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '"':
                out += "\\\"";
                break;
            default:
                if (c >= 0x20 && c < 0x7F) {
                    out.push_back(static_cast<char>(c));
                } else {
                    char buf[8];
                    snprintf(buf, sizeof(buf), "\\x%02x", c);
                    out += buf;
                }
        }
    }
    return out;
}

}  // namespace tool_output
