// The transparent relay of rild-tap (and of rilproxy-host --capture without --sim): accepts the
// entity on one local stream socket, connects to the daemon's socket, copies both directions
// byte for byte and records each whole frame, and the close, into a capture.
//
//     int listener = tap::listenAt(dir + "/rild-zok", &error);
//     int entity = tap::acceptOne(listener);
//     int daemon = tap::connectTo(dir + "/rild-upstream", &error);
//     tap::relay(entity, daemon, &writer);     // returns once either side has closed
//
// Pitfalls: paths, not socket names: the caller joins the reserved namespace's directory
// (/dev/socket on a device) and the name. relay() closes both descriptors before it returns.
#ifndef ZOK_TOOLS_TAP_RELAY_H
#define ZOK_TOOLS_TAP_RELAY_H

#include <string>

#include "tools/capture/pcapng.h"

namespace tap {

// A listening stream socket at `path` (a stale socket file there is replaced); -1 on failure,
// also when a live daemon listens there.
int listenAt(const std::string &path, std::string *error);
// Blocks until one client connects; -1 on failure.
int acceptOne(int listener);
// A stream socket connected to `path`; -1 on failure. While nothing listens there yet (no socket
// file, or a refused connect), tries again every 50 ms for up to `waitMs`.
int connectTo(const std::string &path, std::string *error, int waitMs = 0);
// Copies until either side closes or fails, then closes both. `capture` may be null.
void relay(int entity, int daemon, capture::Writer *capture);

}  // namespace tap

#endif  // ZOK_TOOLS_TAP_RELAY_H
