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

#include "tools/common/frame_splitter.h"
#include "tools/sim/rild_sim.h"

namespace rild_sim {

enum class OutputFormat { Text, Json };

// The frame helpers the daemon's code has always called by these names.
using ril_frame::DaemonFrame;
using ril_frame::parseDaemonFrame;
inline uint32_t frameWordAt(const std::vector<uint8_t> &frame, size_t offset) {
    return ril_frame::wordAt(frame, offset);
}

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
