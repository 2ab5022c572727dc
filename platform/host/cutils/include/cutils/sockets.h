// Host stand-in for Android's cutils/sockets.h: local stream sockets by name and namespace.
// The reserved namespace is the directory named by the environment variable ANDROID_SOCKET_DIR,
// else ANDROID_SOCKET_DIR below, so that tests and the runner keep their sockets private.
#ifndef ZOK_HOST_CUTILS_SOCKETS_H
#define ZOK_HOST_CUTILS_SOCKETS_H

#include <sys/socket.h>

typedef int cutils_socket_t;
#define INVALID_SOCKET (-1)

#define ANDROID_SOCKET_ENV_PREFIX "ANDROID_SOCKET_"
#define ANDROID_SOCKET_DIR "/dev/socket"

#ifdef __cplusplus
extern "C" {
#endif

// Linux "abstract" (non-filesystem) namespace
#define ANDROID_SOCKET_NAMESPACE_ABSTRACT 0
// Android "reserved" (/dev/socket) namespace
#define ANDROID_SOCKET_NAMESPACE_RESERVED 1
// Normal filesystem namespace
#define ANDROID_SOCKET_NAMESPACE_FILESYSTEM 2

// Binds and listens; a stale socket file in a filesystem namespace is replaced. -1 and errno on
// failure.
int socket_local_server(const char *name, int namespaceId, int type);
// Connects; -1 and errno on failure.
int socket_local_client(const char *name, int namespaceId, int type);

#ifdef __cplusplus
}
#endif

#endif  // ZOK_HOST_CUTILS_SOCKETS_H
