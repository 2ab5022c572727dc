// RIL frames as the tools see them: the one place that cuts a byte stream into frames and reads
// a frame's header, shared by the simulated daemon's request reader, the replay, the line
// writer, the tap's relay and the capture code. (The entity's own reader in transport/ is the
// device's code and keeps its own.)
//
//     ril_frame::FrameSplitter s;                       // a relayed stream, any read sizes
//     s.feed(buf, n, &frames);                          // appends each completed frame
//     ril_frame::RequestHeader h;
//     if (ril_frame::parseRequestHeader(frame.data(), frame.size(), &h)) ...
//     ril_frame::DaemonFrame d;
//     if (ril_frame::parseDaemonFrame(frame, &d)) ...   // a response or an unsolicited frame
//
// Pitfall: the length word is big-endian, every other header word is in the host's order (the
// device's and the PC's: little-endian).
#ifndef ZOK_TOOLS_COMMON_FRAME_SPLITTER_H
#define ZOK_TOOLS_COMMON_FRAME_SPLITTER_H

#include <stddef.h>
#include <stdint.h>

#include <vector>

namespace ril_frame {

// The big-endian length word at `p`: the bytes of the frame after it.
uint32_t lengthWord(const uint8_t *p);
// The host-order word at `offset` of a frame; the caller has checked that it lies inside.
uint32_t wordAt(const std::vector<uint8_t> &frame, size_t offset);

// Cuts a byte stream into whole frames (length word, then that many bytes), however the stream
// was split into reads.
class FrameSplitter {
public:
    // Appends the frames that `data` completes to `frames`. False once the stream announced a
    // frame longer than RIL_FRAME_LENGTH_MAX: it cannot be a frame, and nothing after it is cut.
    bool feed(const uint8_t *data, size_t len, std::vector<std::vector<uint8_t>> *frames);
    // Bytes of an incomplete frame held back.
    size_t pending() const { return mBuffer.size(); }

private:
    std::vector<uint8_t> mBuffer;
    bool mBroken = false;
};

// The 20 bytes that start every request frame.
struct RequestHeader {
    uint32_t length = 0;  // the length word, decoded
    uint32_t headerSize = 0;
    int32_t simId = 0;
    int32_t requestId = 0;
    uint32_t serial = 0;
};

// Reads a request's header from its first `len` bytes (at least RIL_REQ_HEADER_SIZE). False
// when they are too few, or the header size is not the requests' 4, or the length word cannot
// hold the header or exceeds RIL_FRAME_LENGTH_MAX: a reader cannot stay in step after that.
bool parseRequestHeader(const uint8_t *head, size_t len, RequestHeader *out);

// A response or unsolicited frame as the daemon writes it, read back.
struct DaemonFrame {
    bool solicited = false;
    uint32_t serialOrId = 0;  // the serial of a response, the id of an unsolicited frame
    int32_t result = 0;       // responses only
    int32_t simId = 0;        // 0 when the feature header carries none
    size_t length = 0;        // the length word: the bytes after it
    size_t serialOffset = 0;  // where the serial (or id) word sits in the frame
    std::vector<uint8_t> payload;
};

// False when `frame` is too short for its own header, type and type words.
bool parseDaemonFrame(const std::vector<uint8_t> &frame, DaemonFrame *out);

}  // namespace ril_frame

#endif  // ZOK_TOOLS_COMMON_FRAME_SPLITTER_H
