// rild-sim --replay: plays the daemon's side of a capture against a live entity. Each request is
// answered with the response recorded for the same request id, in recorded order, its serial
// rewritten to the live one; the unsolicited frames (and a daemon's close) recorded after a
// request go out at the same offset after the live request; a request the capture lacks is
// answered ZOKRIL_E_REQUEST_NOT_SUPPORTED and reported on stderr.
//
//     rild_sim::Replay replay;
//     if (!rild_sim::buildReplay(packets, &replay, &error)) ...
//     rild_sim::FrameLog log(rild_sim::OutputFormat::Text, nullptr);
//     return rild_sim::serveReplay(&replay, "rild-zok", acceptTimeoutMs, &writer, log);
#ifndef ZOK_TOOLS_SIM_REPLAY_H
#define ZOK_TOOLS_SIM_REPLAY_H

#include <stdint.h>

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "tools/capture/pcapng.h"
#include "tools/sim/frame_log.h"

namespace rild_sim {

struct Replay {
    // A frame (or, empty, the daemon's close) sent `offsetUs` after the request it followed.
    struct Timed {
        uint64_t offsetUs;
        std::vector<uint8_t> frame;
    };
    struct Exchange {
        std::vector<uint8_t> response;  // empty: the capture holds no answer
        std::vector<Timed> after;
    };
    std::map<int32_t, std::deque<Exchange>> byRequest;
    std::vector<Timed> atConnect;  // what the daemon sent before the first request
};

// False (with a reason) when a frame in the capture cannot be parsed.
bool buildReplay(const std::vector<capture::Packet> &packets, Replay *out, std::string *error);

// Listens on `name` in the reserved namespace, serves one entity and returns the exit status:
// 0 once the session ended (either side closed), 1 when no entity came in `acceptTimeoutMs`
// (0: wait for ever) or the socket cannot be set up. `capture` may be null; every frame and
// connection event is printed through `log`.
int serveReplay(Replay *replay, const std::string &name, int acceptTimeoutMs,
                capture::Writer *capture, const FrameLog &log);

}  // namespace rild_sim

#endif  // ZOK_TOOLS_SIM_REPLAY_H
