// Whether a socket file is a live daemon's: the tools that listen on a name refuse to take it
// from a running daemon (unlinking it would cut that daemon off from every later client), and
// replace it only when it is a stale file left by a process that died.
//
//     if (socket_name::heldByLiveListener(dir + "/rild-zok")) refuse...
#ifndef ZOK_TOOLS_COMMON_SOCKET_NAME_H
#define ZOK_TOOLS_COMMON_SOCKET_NAME_H

#include <string>

namespace socket_name {

// True when a process listens on `path`. Read from /proc/net/unix, which disturbs nobody; where
// that table cannot be read, a connect(2) probe decides (the listener then sees one client that
// hangs up at once).
bool heldByLiveListener(const std::string &path);

}  // namespace socket_name

#endif  // ZOK_TOOLS_COMMON_SOCKET_NAME_H
