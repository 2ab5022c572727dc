#include "support/child_process.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

namespace {

void appendAll(int fd, std::string *to) {
    char buf[65536];
    ssize_t n;
    while ((n = read(fd, buf, sizeof(buf))) > 0) to->append(buf, static_cast<size_t>(n));
}

// The non-empty parts of `text` between separators.
std::vector<std::string> splitText(const std::string &text, char separator) {
    std::vector<std::string> parts;
    std::stringstream in(text);
    std::string part;
    while (std::getline(in, part, separator)) {
        if (!part.empty()) parts.push_back(part);
    }
    return parts;
}

}  // namespace

int Outcome::exitCode() const {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::string> Outcome::outLines() const {
    return splitText(out, '\n');
}

ChildProcess::ChildProcess(const std::string &emulator, const std::string &program,
                           const std::vector<std::string> &args, const std::string &input) {
    std::vector<std::string> argv = splitText(emulator, '|');
    argv.push_back(program);
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char *> cargv;
    for (std::string &a : argv) cargv.push_back(&a[0]);
    cargv.push_back(nullptr);
    int in[2], out[2];
    mErr = tmpfile();
    if (mErr == nullptr || pipe(in) != 0 || pipe(out) != 0) {
        ADD_FAILURE() << "no pipes or file for the child";
        return;
    }
    mPid = fork();
    if (mPid == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(fileno(mErr), STDERR_FILENO);
        for (int fd : {in[0], in[1], out[0], out[1]}) close(fd);
        execv(cargv[0], cargv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    // Inputs are far below the pipe's capacity, so this cannot block on the child.
    if (write(in[1], input.data(), input.size()) != static_cast<ssize_t>(input.size())) {
        ADD_FAILURE() << "child input not written";
    }
    close(in[1]);
    mOut = out[0];
}

Outcome ChildProcess::wait() {
    Outcome run;
    if (mPid < 0) return run;
    appendAll(mOut, &run.out);
    close(mOut);
    waitpid(mPid, &run.status, 0);
    rewind(mErr);
    appendAll(fileno(mErr), &run.err);
    fclose(mErr);
    return run;
}
