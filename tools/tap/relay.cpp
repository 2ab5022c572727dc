// The tap's relay: one thread copies both directions with poll(2); capture writes happen on it.
#include "tools/tap/relay.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <vector>

#include "tools/common/socket_name.h"

namespace tap {

namespace {

bool makeAddress(const std::string &path, sockaddr_un *addr, std::string *error) {
    memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr->sun_path)) {
        *error = "socket path too long: " + path;
        return false;
    }
    memcpy(addr->sun_path, path.c_str(), path.size() + 1);
    return true;
}

bool sendAll(int fd, const uint8_t *data, size_t len) {
    size_t off = 0;
    while (off < len) {
        // MSG_NOSIGNAL: a peer that went away is a closed side, not a reason to die.
        ssize_t n = send(fd, data + off, len - off, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        off += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

int listenAt(const std::string &path, std::string *error) {
    sockaddr_un addr;
    if (!makeAddress(path, &addr, error)) return -1;
    // A stale file from a dead daemon is replaced; a live daemon's name is not taken.
    if (socket_name::heldByLiveListener(path)) {
        *error = path + " is held by a live daemon: refusing to take it";
        return -1;
    }
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = std::string("socket: ") + strerror(errno);
        return -1;
    }
    unlink(path.c_str());
    if (bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0 || listen(fd, 1) != 0) {
        *error = "cannot listen on " + path + ": " + strerror(errno);
        close(fd);
        return -1;
    }
    return fd;
}

int acceptOne(int listener) {
    for (;;) {
        int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0 || errno != EINTR) return fd;
    }
}

int connectTo(const std::string &path, std::string *error, int waitMs) {
    sockaddr_un addr;
    if (!makeAddress(path, &addr, error)) return -1;
    constexpr int kStepMs = 50;
    for (int waited = 0;; waited += kStepMs) {
        int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            *error = std::string("socket: ") + strerror(errno);
            return -1;
        }
        if (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) == 0) return fd;
        int err = errno;
        close(fd);
        if ((err != ENOENT && err != ECONNREFUSED) || waited >= waitMs) {
            *error = "cannot connect to " + path + ": " + strerror(err);
            return -1;
        }
        usleep(kStepMs * 1000);
    }
}

void relay(int entity, int daemon, capture::Writer *capture) {
    struct Side {
        int from, to;
        capture::Direction direction;  // of the bytes read on `from`
        capture::FrameSplitter splitter;
    } sides[2] = {{entity, daemon, capture::Direction::ToDaemon, {}},
                  {daemon, entity, capture::Direction::ToEntity, {}}};
    std::vector<uint8_t> buf(64 * 1024);
    std::vector<std::vector<uint8_t>> frames;
    for (;;) {
        pollfd fds[2] = {{entity, POLLIN, 0}, {daemon, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        bool closed = false;
        for (int i = 0; i < 2 && !closed; i++) {
            if (fds[i].revents == 0) continue;
            Side &s = sides[i];
            ssize_t n = recv(s.from, buf.data(), buf.size(), 0);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                if (capture) capture->writeClose(s.direction);
                closed = true;
                break;
            }
            // Recorded before the bytes go on, as the simulated daemon does, so that a capture
            // never shows a reaction ahead of its cause. A stream that stops being frames is
            // still relayed; it just is not recorded any more.
            frames.clear();
            s.splitter.feed(buf.data(), static_cast<size_t>(n), &frames);
            if (capture) {
                for (const auto &frame : frames) capture->write(s.direction, frame);
            }
            if (!sendAll(s.to, buf.data(), static_cast<size_t>(n))) {
                Side &other = sides[1 - i];
                if (capture) capture->writeClose(other.direction);
                closed = true;
            }
        }
        if (closed) break;
    }
    // Closing one side ends the other's session too: the entity tears down, the daemon sees EOF.
    shutdown(entity, SHUT_RDWR);
    shutdown(daemon, SHUT_RDWR);
    close(entity);
    close(daemon);
}

}  // namespace tap
