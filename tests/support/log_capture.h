// Collects every log line for the lifetime of the object, so tests can assert on exact texts.
//
//     LogCapture logs;
//     ... run code ...
//     EXPECT_TRUE(logs.containsMessage("socket closed"));
//
// A line's message is its text after the " (%24.24s, %4d) " prefix. A newer capture takes over
// from an older one; the older one gets nothing after that.
#ifndef ZOK_TESTS_LOG_CAPTURE_H
#define ZOK_TESTS_LOG_CAPTURE_H

#include <mutex>
#include <string>
#include <vector>

struct LogLine {
    int prio;
    std::string text;     // as formatted, prefix included
    std::string message;  // text after the entity's prefix, or the whole text without one
};

class LogCapture {
public:
    // The lines are kept off stderr meanwhile.
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    std::vector<LogLine> lines() const;
    std::vector<std::string> messages() const;
    bool containsMessage(const std::string &message) const;
    int countMessage(const std::string &message) const;
    // Index of the first message equal to `message` at or after `from`, or -1.
    int indexOf(const std::string &message, int from = 0) const;

private:
    static void sink(int prio, const char *tag, const char *text, void *ctx);
    mutable std::mutex mLock;
    std::vector<LogLine> mLines;
};

#endif  // ZOK_TESTS_LOG_CAPTURE_H
