// pcapng capture files of the RIL socket: the writer (any thread, one write(2) per block), the
// reader (the caller's thread).
#include "tools/capture/pcapng.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "wire_format.h"

namespace capture {

namespace {

constexpr uint32_t kSectionHeader = 0x0A0D0D0Au;
constexpr uint32_t kByteOrderMagic = 0x1A2B3C4Du;
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kEnhancedPacket = 6;
constexpr uint16_t kOptEnd = 0;
constexpr uint16_t kOptEpbFlags = 2;
// epb_flags bits 0-1: the direction as seen from the entity's end of the socket.
constexpr uint32_t kFlagInbound = 1;
constexpr uint32_t kFlagOutbound = 2;
constexpr uint32_t kFlagDirectionMask = 3;

void put16(std::vector<uint8_t> *out, uint16_t v) {
    const uint8_t *p = reinterpret_cast<const uint8_t *>(&v);
    out->insert(out->end(), p, p + sizeof(v));
}

void put32(std::vector<uint8_t> *out, uint32_t v) {
    const uint8_t *p = reinterpret_cast<const uint8_t *>(&v);
    out->insert(out->end(), p, p + sizeof(v));
}

uint16_t get16(const uint8_t *p) {
    uint16_t v;
    memcpy(&v, p, sizeof(v));
    return v;
}

uint32_t get32(const uint8_t *p) {
    uint32_t v;
    memcpy(&v, p, sizeof(v));
    return v;
}

size_t padded(size_t n) {
    return (n + 3) & ~static_cast<size_t>(3);
}

// Fills in the total length, which every block carries at both ends.
std::vector<uint8_t> finishBlock(std::vector<uint8_t> block) {
    uint32_t total = static_cast<uint32_t>(block.size() + 4);
    memcpy(block.data() + 4, &total, 4);
    put32(&block, total);
    return block;
}

}  // namespace

uint64_t nowUs() {
    timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<uint64_t>(tv.tv_sec) * 1000000u + static_cast<uint64_t>(tv.tv_usec);
}

std::vector<uint8_t> fileHeader() {
    std::vector<uint8_t> shb;
    put32(&shb, kSectionHeader);
    put32(&shb, 0);
    put32(&shb, kByteOrderMagic);
    put16(&shb, 1);  // version 1.0
    put16(&shb, 0);
    put32(&shb, 0xFFFFFFFFu);  // section length: not given
    put32(&shb, 0xFFFFFFFFu);
    std::vector<uint8_t> out = finishBlock(shb);

    std::vector<uint8_t> idb;
    put32(&idb, kInterfaceDescription);
    put32(&idb, 0);
    put16(&idb, kLinkType);
    put16(&idb, 0);
    put32(&idb, 0);  // snap length: none
    std::vector<uint8_t> idbBlock = finishBlock(idb);
    out.insert(out.end(), idbBlock.begin(), idbBlock.end());
    return out;
}

std::vector<uint8_t> packetBlock(const Packet &packet) {
    std::vector<uint8_t> b;
    put32(&b, kEnhancedPacket);
    put32(&b, 0);
    put32(&b, 0);  // interface 0
    put32(&b, static_cast<uint32_t>(packet.timestampUs >> 32));
    put32(&b, static_cast<uint32_t>(packet.timestampUs));
    put32(&b, static_cast<uint32_t>(packet.frame.size()));  // captured
    put32(&b, static_cast<uint32_t>(packet.frame.size()));  // on the wire
    b.insert(b.end(), packet.frame.begin(), packet.frame.end());
    b.resize(padded(b.size()), 0);
    put16(&b, kOptEpbFlags);
    put16(&b, 4);
    put32(&b, packet.direction == Direction::ToDaemon ? kFlagOutbound : kFlagInbound);
    put16(&b, kOptEnd);
    put16(&b, 0);
    return finishBlock(b);
}

Writer::~Writer() {
    close();
}

bool Writer::open(const std::string &path, std::string *error) {
    close();
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        *error = "cannot create " + path + ": " + strerror(errno);
        return false;
    }
    std::lock_guard<std::mutex> hold(mLock);
    mFd = fd;
    if (!put(fileHeader())) {
        *error = "cannot write " + path + ": " + strerror(errno);
        return false;
    }
    return true;
}

bool Writer::write(Direction direction, const std::vector<uint8_t> &frame) {
    Packet p;
    p.direction = direction;
    p.timestampUs = nowUs();
    p.frame = frame;
    std::lock_guard<std::mutex> hold(mLock);
    return put(packetBlock(p));
}

bool Writer::write(Direction direction, const uint8_t *frame, size_t len) {
    return write(direction, std::vector<uint8_t>(frame, frame + len));
}

bool Writer::writeClose(Direction closedBy) {
    return write(closedBy, std::vector<uint8_t>());
}

void Writer::close() {
    std::lock_guard<std::mutex> hold(mLock);
    if (mFd >= 0) ::close(mFd);
    mFd = -1;
}

// Under mLock.
bool Writer::put(const std::vector<uint8_t> &block) {
    if (mFd < 0) return false;
    size_t off = 0;
    while (off < block.size()) {
        ssize_t n = ::write(mFd, block.data() + off, block.size() - off);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        off += static_cast<size_t>(n);
    }
    return true;
}

bool readFile(const std::string &path, std::vector<Packet> *out, std::string *error) {
    // Read with plain descriptors: a stream on a directory throws from its first read.
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        *error = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        *error = "cannot read " + path + ": " +
                 (S_ISDIR(st.st_mode) ? "is a directory" : "not a regular file");
        return false;
    }
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        *error = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    std::vector<uint8_t> file;
    uint8_t chunk[64 * 1024];
    for (;;) {
        ssize_t n = ::read(fd, chunk, sizeof(chunk));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            *error = "cannot read " + path + ": " + strerror(errno);
            ::close(fd);
            return false;
        }
        if (n == 0) break;
        file.insert(file.end(), chunk, chunk + n);
    }
    ::close(fd);
    out->clear();
    if (file.size() < 28 || get32(file.data()) != kSectionHeader ||
        get32(file.data() + 8) != kByteOrderMagic) {
        *error = path + ": not a pcapng file in this host's byte order";
        return false;
    }
    bool haveInterface = false;
    size_t at = 0;
    while (at < file.size()) {
        if (file.size() - at < 12) {
            *error = path + ": truncated block at byte " + std::to_string(at);
            return false;
        }
        const uint8_t *b = file.data() + at;
        uint32_t type = get32(b), total = get32(b + 4);
        if (total < 12 || total % 4 != 0 || total > file.size() - at ||
            get32(b + total - 4) != total) {
            *error = path + ": broken block at byte " + std::to_string(at);
            return false;
        }
        if (type == kInterfaceDescription) {
            if (total < 20 || get16(b + 8) != kLinkType) {
                *error = path + ": not a RIL socket capture (link type) " +
                         std::to_string(total < 20 ? 0 : get16(b + 8)) +
                         ", want 147 (LINKTYPE_USER0)";
                return false;
            }
            haveInterface = true;
        } else if (type == kEnhancedPacket) {
            uint32_t captured = total >= 32 ? get32(b + 20) : UINT32_MAX;
            if (!haveInterface || captured > total - 32) {
                *error = path + ": broken packet at byte " + std::to_string(at);
                return false;
            }
            Packet p;
            p.timestampUs = static_cast<uint64_t>(get32(b + 12)) << 32 | get32(b + 16);
            p.frame.assign(b + 28, b + 28 + captured);
            bool directed = false;
            for (size_t o = 28 + padded(captured); o + 4 <= total - 4;) {
                uint16_t code = get16(b + o), len = get16(b + o + 2);
                if (code == kOptEnd || o + 4 + len > total - 4) break;
                if (code == kOptEpbFlags && len == 4) {
                    uint32_t dir = get32(b + o + 4) & kFlagDirectionMask;
                    directed = dir == kFlagInbound || dir == kFlagOutbound;
                    p.direction = dir == kFlagOutbound ? Direction::ToDaemon : Direction::ToEntity;
                }
                o += 4 + padded(len);
            }
            if (!directed) {
                *error = path + ": packet without a direction at byte " + std::to_string(at);
                return false;
            }
            out->push_back(p);
        }
        at += total;
    }
    return true;
}

}  // namespace capture
