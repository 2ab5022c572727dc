// Runs a program of the build's own architecture as a child process, under the emulator's
// command line when the build is a cross build, with a text on its stdin; collects its stdout,
// stderr and exit status.
//
//     Outcome r = ChildProcess(ZOK_TEST_EMULATOR, "/path/prog", {"--flag"}, "script\n").wait();
//     EXPECT_EQ(r.exitCode(), 0) << r.err;
//
// The emulator's words are separated by '|' (empty when native), as CMake passes them.
// Pitfall: wait() blocks until the child closes its stdout; a hung child is left to the test
// runner's timeout.
#ifndef ZOK_TESTS_CHILD_PROCESS_H
#define ZOK_TESTS_CHILD_PROCESS_H

#include <stdio.h>
#include <sys/types.h>

#include <string>
#include <vector>

struct Outcome {
    int status = -1;  // waitpid status
    std::string out;
    std::string err;
    int exitCode() const;
    std::vector<std::string> outLines() const;  // the non-empty lines of `out`
};

class ChildProcess {
public:
    ChildProcess(const std::string &emulator, const std::string &program,
                 const std::vector<std::string> &args, const std::string &input = "");
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;
    Outcome wait();

private:
    pid_t mPid = -1;
    int mOut = -1;
    FILE *mErr = nullptr;  // a file rather than a pipe, so the child never blocks on it
};

#endif  // ZOK_TESTS_CHILD_PROCESS_H
