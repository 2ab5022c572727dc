// The simulated daemon's lines: one per frame it receives ("rild <-") or sends ("rild ->") and one
// per connection event ("rild --"), as text or as JSON lines. The built-in profile and the replay
// both print through it, so a session reads the same whichever of them served it.
//
//     rild_sim::FrameLog log(rild_sim::OutputFormat::Json, nullptr);  // standard output
//     log.note("client connected");       // {"kind":"rild","event":"client connected"}
//     log.request(frame);                 // {"kind":"rx","request_id":27,...}
//
// Pitfall: a frame is logged before it is written, so a reader of the output never sees the
// entity react to a frame ahead of the frame's own line.
#ifndef ZOK_TOOLS_SIM_FRAME_LOG_H
#define ZOK_TOOLS_SIM_FRAME_LOG_H

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "tools/sim/rild_sim.h"

namespace rild_sim {

enum class OutputFormat { Text, Json };

// A response or unsolicited frame as the daemon writes it, read back: what its line shows.
struct DaemonFrame {
    bool solicited = false;
    uint32_t serialOrId = 0;  // the serial of a response, the id of an unsolicited frame
    int32_t result = 0;       // responses only
    int32_t simId = 0;        // 0 when the feature header carries none
    size_t length = 0;        // the length word: the bytes after it
    std::vector<uint8_t> payload;
};

// The host-order word at `offset` of a frame; the caller has checked that it lies inside.
uint32_t frameWordAt(const std::vector<uint8_t> &frame, size_t offset);

// False when `frame` is too short for its own header, type and type words.
bool parseDaemonFrame(const std::vector<uint8_t> &frame, DaemonFrame *out);

class FrameLog {
public:
    // `out` receives each line without its "\n"; null writes it to standard output.
    FrameLog(OutputFormat format, std::function<void(const std::string &)> out);

    void note(const std::string &event) const;
    void request(const RequestFrame &request) const;
    // `summary` ends the text line ("data call v11 cid 1"); JSON lines carry the bytes instead.
    void sent(const DaemonFrame &frame, const std::string &summary) const;

private:
    void emit(const std::string &line) const;

    OutputFormat mFormat;
    std::function<void(const std::string &)> mOut;
};

}  // namespace rild_sim

#endif  // ZOK_TOOLS_SIM_FRAME_LOG_H
