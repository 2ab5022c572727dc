// Host local sockets: AF_UNIX addresses built from a name and an Android namespace; any thread.
#include <cutils/sockets.h>
#include <errno.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// Fills `addr` for `name` in `namespaceId`; returns the address length or -1 with errno set.
int makeAddress(const char *name, int namespaceId, sockaddr_un *addr) {
    if (name == nullptr) {
        errno = EINVAL;
        return -1;
    }
    memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    size_t nameLen = strlen(name);
    size_t room = sizeof(addr->sun_path);
    switch (namespaceId) {
        case ANDROID_SOCKET_NAMESPACE_ABSTRACT:
            if (nameLen + 1 > room) break;
            memcpy(addr->sun_path + 1, name, nameLen);
            return static_cast<int>(offsetof(sockaddr_un, sun_path) + 1 + nameLen);
        case ANDROID_SOCKET_NAMESPACE_RESERVED: {
            const char *dir = getenv("ANDROID_SOCKET_DIR");
            if (dir == nullptr || dir[0] == '\0') dir = ANDROID_SOCKET_DIR;
            int n = snprintf(addr->sun_path, room, "%s/%s", dir, name);
            if (n < 0 || static_cast<size_t>(n) >= room) break;
            return static_cast<int>(offsetof(sockaddr_un, sun_path) + n + 1);
        }
        case ANDROID_SOCKET_NAMESPACE_FILESYSTEM:
            if (nameLen >= room) break;
            memcpy(addr->sun_path, name, nameLen);
            return static_cast<int>(offsetof(sockaddr_un, sun_path) + nameLen + 1);
        default:
            errno = EINVAL;
            return -1;
    }
    errno = ENAMETOOLONG;
    return -1;
}

}  // namespace

extern "C" int socket_local_client(const char *name, int namespaceId, int type) {
    sockaddr_un addr;
    int len = makeAddress(name, namespaceId, &addr);
    if (len < 0) return -1;
    int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    while (connect(fd, reinterpret_cast<sockaddr *>(&addr), len) != 0) {
        if (errno == EINTR) continue;
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

extern "C" int socket_local_server(const char *name, int namespaceId, int type) {
    sockaddr_un addr;
    int len = makeAddress(name, namespaceId, &addr);
    if (len < 0) return -1;
    if (namespaceId != ANDROID_SOCKET_NAMESPACE_ABSTRACT) unlink(addr.sun_path);
    int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (bind(fd, reinterpret_cast<sockaddr *>(&addr), len) != 0 || listen(fd, 4) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}
