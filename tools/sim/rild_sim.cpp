// The simulated RIL daemon: one listening socket, one client at a time, blocking I/O bounded by
// poll time-outs. Runs on whichever thread drives it.
#include "tools/sim/rild_sim.h"

#include <arpa/inet.h>
#include <cutils/sockets.h>
#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <stdexcept>

#include "tools/common/frame_splitter.h"
#include "wire_format.h"

namespace rild_sim {

namespace {

// Grown then copied into, rather than inserted from a byte range: GCC 12 at -O3 takes the
// range insert of a fresh vector for an overflow (-Wstringop-overflow) and the Release build
// fails.
void putWord(std::vector<uint8_t> *out, uint32_t native) {
    const size_t at = out->size();
    out->resize(at + sizeof(native));
    memcpy(out->data() + at, &native, sizeof(native));
}

// length | header_size | feature header | type | the type's own words | payload
std::vector<uint8_t> buildFrame(int32_t type, const std::vector<uint32_t> &words,
                                const std::vector<uint8_t> &payload,
                                const std::vector<uint32_t> &featureHeader) {
    std::vector<uint8_t> body;
    putWord(&body, static_cast<uint32_t>(featureHeader.size() * 4));
    for (uint32_t w : featureHeader) putWord(&body, w);
    putWord(&body, static_cast<uint32_t>(type));
    for (uint32_t w : words) putWord(&body, w);
    body.insert(body.end(), payload.begin(), payload.end());
    std::vector<uint8_t> frame;
    putWord(&frame, htonl(static_cast<uint32_t>(body.size())));
    frame.insert(frame.end(), body.begin(), body.end());
    return frame;
}

int64_t nowMs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// True when `fd` became readable before the deadline.
bool waitReadable(int fd, int64_t deadlineMs) {
    for (;;) {
        int64_t left = deadlineMs - nowMs();
        if (left < 0) left = 0;
        pollfd p = {fd, POLLIN, 0};
        int n = poll(&p, 1, static_cast<int>(left));
        if (n > 0) return true;
        if (n == 0) return false;
        if (errno != EINTR) return false;
    }
}

}  // namespace

std::vector<uint8_t> responseFrame(uint32_t serial, int32_t result,
                                   const std::vector<uint8_t> &payload,
                                   const std::vector<uint32_t> &featureHeader) {
    return buildFrame(RIL_RESP_TYPE_SOLICITED, {serial, static_cast<uint32_t>(result)}, payload,
                      featureHeader);
}

std::vector<uint8_t> unsolicitedFrame(int32_t id, const std::vector<uint8_t> &payload,
                                      const std::vector<uint32_t> &featureHeader) {
    return buildFrame(RIL_RESP_TYPE_UNSOLICITED, {static_cast<uint32_t>(id)}, payload,
                      featureHeader);
}

std::vector<uint8_t> requestFrameBytes(const RequestFrame &request) {
    std::vector<uint8_t> frame;
    putWord(&frame, htonl(static_cast<uint32_t>(RIL_REQ_HEADER_WORDS_AFTER_LENGTH +
                                                request.payload.size())));
    putWord(&frame, RIL_REQ_FEATURE_HEADER_SIZE);
    putWord(&frame, static_cast<uint32_t>(request.sim_id));
    putWord(&frame, static_cast<uint32_t>(request.request_id));
    putWord(&frame, request.serial);
    frame.insert(frame.end(), request.payload.begin(), request.payload.end());
    return frame;
}

RildSim::RildSim(const std::string &name) {
    const char *dir = getenv("ANDROID_SOCKET_DIR");
    mPath = std::string(dir != nullptr && dir[0] != '\0' ? dir : ANDROID_SOCKET_DIR) + "/" + name;
    mListen = socket_local_server(name.c_str(), ANDROID_SOCKET_NAMESPACE_RESERVED, SOCK_STREAM);
    if (mListen < 0) {
        throw std::runtime_error("rild_sim: cannot listen on " + mPath + ": " + strerror(errno));
    }
}

RildSim::~RildSim() {
    closeClient();
    if (mListen >= 0) close(mListen);
    unlink(mPath.c_str());
}

bool RildSim::acceptClient(int timeoutMs) {
    if (!waitReadable(mListen, nowMs() + timeoutMs)) return false;
    int fd;
    do {
        fd = accept4(mListen, nullptr, nullptr, SOCK_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return false;
    closeClient();
    mClient = fd;
    mPeerClosed = false;
    return true;
}

bool RildSim::readExactly(uint8_t *buf, size_t len, int timeoutMs) {
    int64_t deadline = nowMs() + timeoutMs;
    size_t got = 0;
    while (got < len) {
        if (mClient < 0 || !waitReadable(mClient, deadline)) return false;
        ssize_t n = recv(mClient, buf + got, len - got, 0);
        if (n > 0) {
            got += static_cast<size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            mPeerClosed = n == 0 || errno == ECONNRESET;
            return false;
        }
    }
    return true;
}

bool RildSim::readRequest(RequestFrame *out, int timeoutMs) {
    uint8_t head[RIL_REQ_HEADER_SIZE];
    if (!readExactly(head, sizeof(head), timeoutMs)) return false;
    ril_frame::RequestHeader h;
    // Requests always carry the 4-byte header; anything else would desynchronise the stream.
    if (!ril_frame::parseRequestHeader(head, sizeof(head), &h)) return false;
    RequestFrame f;
    f.length = h.length;
    f.header_size = h.headerSize;
    f.sim_id = h.simId;
    f.request_id = h.requestId;
    f.serial = h.serial;
    f.payload.resize(f.length - RIL_REQ_HEADER_WORDS_AFTER_LENGTH);
    if (!f.payload.empty() && !readExactly(f.payload.data(), f.payload.size(), timeoutMs)) {
        return false;
    }
    *out = f;
    return true;
}

bool RildSim::writeResponse(uint32_t serial, int32_t result, const std::vector<uint8_t> &payload,
                            const std::vector<uint32_t> &featureHeader) {
    return writeRaw(responseFrame(serial, result, payload, featureHeader));
}

bool RildSim::writeUnsolicited(int32_t id, const std::vector<uint8_t> &payload,
                               const std::vector<uint32_t> &featureHeader) {
    return writeRaw(unsolicitedFrame(id, payload, featureHeader));
}

bool RildSim::writeRaw(const std::vector<uint8_t> &bytes) {
    if (mClient < 0) return false;
    size_t off = 0;
    while (off < bytes.size()) {
        size_t chunk = mChunked ? 1 : bytes.size() - off;
        // MSG_NOSIGNAL: an entity that already closed must fail the write, not kill the test.
        ssize_t n = send(mClient, bytes.data() + off, chunk, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        off += static_cast<size_t>(n);
        if (mChunked && mGapUs > 0 && off < bytes.size()) usleep(mGapUs);
    }
    return true;
}

void RildSim::setChunked(bool oneByteAtATime, int gapUs) {
    mChunked = oneByteAtATime;
    mGapUs = gapUs;
}

void RildSim::closeClient() {
    if (mClient >= 0) close(mClient);
    mClient = -1;
}

}  // namespace rild_sim
