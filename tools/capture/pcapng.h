// Capture files of the RIL socket, shared by rilproxy-host, rild-sim and rild-tap: pcapng, one
// section and one interface of link type LINKTYPE_USER0 (147), one Enhanced Packet Block per
// whole RIL frame. The direction travels in the packet's epb_flags option (outbound = entity to
// daemon, inbound = daemon to entity); a packet with no bytes marks the side that closed the
// connection. Layout and dissector: docs/capture.md, tools/wireshark/zok_ril.lua.
//
//     capture::Writer w;
//     if (!w.open("session.pcapng", &error)) ...
//     w.write(capture::Direction::ToDaemon, frameBytes);     // whole frames only
//     w.writeClose(capture::Direction::ToEntity);            // the daemon hung up
//
//     std::vector<capture::Packet> packets;
//     if (!capture::readFile("session.pcapng", &packets, &error)) ...
//
// Pitfalls: each packet goes to the file with one write(2) at once, because the entity's
// teardown may end the process (exit_group) at any moment; a Writer may be shared by threads.
// Files are written in the host's byte order, which pcapng allows; the reader takes the files
// this writer makes (and blocks of other types, which it skips), not byte-swapped sections.
#ifndef ZOK_TOOLS_CAPTURE_PCAPNG_H
#define ZOK_TOOLS_CAPTURE_PCAPNG_H

#include <stddef.h>
#include <stdint.h>

#include <mutex>
#include <string>
#include <vector>

#include "tools/common/frame_splitter.h"

namespace capture {

constexpr uint16_t kLinkType = 147;  // LINKTYPE_USER0

enum class Direction { ToDaemon, ToEntity };

struct Packet {
    Direction direction = Direction::ToDaemon;
    uint64_t timestampUs = 0;    // microseconds since the epoch (the default if_tsresol)
    std::vector<uint8_t> frame;  // a whole RIL frame, length word included; empty: a close
    bool isClose() const { return frame.empty(); }
};

// Microseconds since the epoch, for packet time stamps.
uint64_t nowUs();

// The pcapng bytes of a file's head (section header and interface description) and of one
// packet, as the writer puts them on disk.
std::vector<uint8_t> fileHeader();
std::vector<uint8_t> packetBlock(const Packet &packet);

class Writer {
public:
    Writer() = default;
    ~Writer();
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    // Creates (truncates) `path` and writes the file's head.
    bool open(const std::string &path, std::string *error);
    bool write(Direction direction, const std::vector<uint8_t> &frame);
    bool write(Direction direction, const uint8_t *frame, size_t len);
    // Records that the connection was closed by the side that sends in `direction`.
    bool writeClose(Direction closedBy);
    void close();

private:
    bool put(const std::vector<uint8_t> &block);
    std::mutex mLock;
    int mFd = -1;
};

// Reads every packet of a file this writer made. False (with a reason) on a file that is not
// pcapng, a section in the other byte order, another link type or a truncated block.
bool readFile(const std::string &path, std::vector<Packet> *out, std::string *error);

// The relaying tools cut their streams with the tools' one splitter.
using FrameSplitter = ril_frame::FrameSplitter;

}  // namespace capture

#endif  // ZOK_TOOLS_CAPTURE_PCAPNG_H
