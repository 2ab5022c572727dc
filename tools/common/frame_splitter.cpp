// Frame cutting and header reading for the tools (the caller's thread; no state but a splitter's).
#include "tools/common/frame_splitter.h"

#include <string.h>

#include "wire_format.h"

namespace ril_frame {

uint32_t lengthWord(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}

namespace {

uint32_t hostWord(const uint8_t *p) {
    uint32_t w;
    memcpy(&w, p, sizeof(w));
    return w;
}

}  // namespace

uint32_t wordAt(const std::vector<uint8_t> &frame, size_t offset) {
    return hostWord(frame.data() + offset);
}

bool FrameSplitter::feed(const uint8_t *data, size_t len,
                         std::vector<std::vector<uint8_t>> *frames) {
    if (mBroken) return false;
    mBuffer.insert(mBuffer.end(), data, data + len);
    size_t at = 0;
    while (mBuffer.size() - at >= 4) {
        const uint8_t *p = mBuffer.data() + at;
        const uint32_t length = lengthWord(p);
        if (length > RIL_FRAME_LENGTH_MAX) {
            mBroken = true;
            break;
        }
        if (mBuffer.size() - at - 4 < length) break;
        frames->emplace_back(p, p + 4 + length);
        at += 4 + length;
    }
    mBuffer.erase(mBuffer.begin(), mBuffer.begin() + static_cast<long>(at));
    return !mBroken;
}

bool parseRequestHeader(const uint8_t *head, size_t len, RequestHeader *out) {
    if (len < RIL_REQ_HEADER_SIZE) return false;
    RequestHeader r;
    r.length = lengthWord(head);
    r.headerSize = hostWord(head + 4);
    r.simId = static_cast<int32_t>(hostWord(head + 8));
    r.requestId = static_cast<int32_t>(hostWord(head + 12));
    r.serial = hostWord(head + 16);
    if (r.length < RIL_REQ_HEADER_WORDS_AFTER_LENGTH || r.length > RIL_FRAME_LENGTH_MAX ||
        r.headerSize != RIL_REQ_FEATURE_HEADER_SIZE) {
        return false;
    }
    *out = r;
    return true;
}

bool parseDaemonFrame(const std::vector<uint8_t> &frame, DaemonFrame *out) {
    *out = DaemonFrame();
    if (frame.size() < 12) return false;
    const size_t header = wordAt(frame, 4);
    if (header > frame.size() - 12) return false;
    // Mask words while one says another follows, then the SIM id word when the first asks for it.
    size_t at = 8, end = 8 + header;
    const uint32_t first = at + 4 <= end ? wordAt(frame, at) : 0;
    for (int slots = 0; at + 4 <= end && slots < RIL_RESP_MASK_SLOTS; slots++) {
        const uint32_t mask = wordAt(frame, at);
        at += 4;
        if ((mask & RIL_FEATURE_MASK_MORE) == 0) break;
    }
    if ((first & RIL_FEATURE_MASK_SIM_ID) != 0 && at + 4 <= end) {
        out->simId = static_cast<int32_t>(wordAt(frame, at));
    }
    const uint32_t type = wordAt(frame, end);
    out->solicited = type == RIL_RESP_TYPE_SOLICITED;
    const size_t words = out->solicited ? 2 : 1;
    if (frame.size() < end + 4 + words * 4) return false;
    out->serialOffset = end + 4;
    out->serialOrId = wordAt(frame, end + 4);
    if (out->solicited) out->result = static_cast<int32_t>(wordAt(frame, end + 8));
    out->length = lengthWord(frame.data());
    out->payload.assign(frame.begin() + static_cast<long>(end + 4 + words * 4), frame.end());
    return true;
}

}  // namespace ril_frame
