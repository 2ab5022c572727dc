#include "tools/sim/frame_log.h"

#include <arpa/inet.h>
#include <string.h>

#include "tools/sim/output.h"
#include "tools/sim/profile.h"
#include "wire_format.h"

namespace rild_sim {

uint32_t frameWordAt(const std::vector<uint8_t> &frame, size_t offset) {
    uint32_t w;
    memcpy(&w, frame.data() + offset, sizeof(w));
    return w;
}

bool parseDaemonFrame(const std::vector<uint8_t> &frame, DaemonFrame *out) {
    *out = DaemonFrame();
    if (frame.size() < 12) return false;
    const size_t header = frameWordAt(frame, 4);
    if (header > frame.size() - 12) return false;
    // Mask words while one says another follows, then the SIM id word when the first asks for it.
    size_t at = 8, end = 8 + header;
    const uint32_t first = at + 4 <= end ? frameWordAt(frame, at) : 0;
    for (int slots = 0; at + 4 <= end && slots < RIL_RESP_MASK_SLOTS; slots++) {
        const uint32_t mask = frameWordAt(frame, at);
        at += 4;
        if ((mask & RIL_FEATURE_MASK_MORE) == 0) break;
    }
    if ((first & RIL_FEATURE_MASK_SIM_ID) != 0 && at + 4 <= end) {
        out->simId = static_cast<int32_t>(frameWordAt(frame, at));
    }
    const uint32_t type = frameWordAt(frame, end);
    out->solicited = type == RIL_RESP_TYPE_SOLICITED;
    const size_t words = out->solicited ? 2 : 1;
    if (frame.size() < end + 4 + words * 4) return false;
    out->serialOrId = frameWordAt(frame, end + 4);
    if (out->solicited) out->result = static_cast<int32_t>(frameWordAt(frame, end + 8));
    out->length = ntohl(frameWordAt(frame, 0));
    out->payload.assign(frame.begin() + static_cast<long>(end + 4 + words * 4), frame.end());
    return true;
}

FrameLog::FrameLog(OutputFormat format, std::function<void(const std::string &)> out)
    : mFormat(format), mOut(std::move(out)) {}

void FrameLog::emit(const std::string &line) const {
    if (mOut) {
        mOut(line);
    } else {
        tool_output::writeLine(line);
    }
}

void FrameLog::note(const std::string &event) const {
    if (mFormat == OutputFormat::Json) {
        emit("{\"kind\":\"rild\",\"event\":" + tool_output::jsonString(event) + "}");
    } else {
        emit("rild -- " + event);
    }
}

void FrameLog::request(const RequestFrame &request) const {
    if (mFormat == OutputFormat::Json) {
        emit("{\"kind\":\"rx\",\"request_id\":" + std::to_string(request.request_id) +
             ",\"name\":" + tool_output::jsonString(requestName(request.request_id)) +
             ",\"serial\":" + std::to_string(request.serial) + ",\"sim_id\":" +
             std::to_string(request.sim_id) + ",\"length\":" + std::to_string(request.length) +
             ",\"data\":\"" + tool_output::hexLower(request.payload) + "\"}");
    } else {
        emit(std::string("rild <- ") + requestName(request.request_id) + "(" +
             std::to_string(request.request_id) + ") serial " + tool_output::hex32(request.serial) +
             " sim " + std::to_string(request.sim_id) + ", " +
             std::to_string(request.payload.size()) + " bytes: " + describeRequest(request));
    }
}

void FrameLog::sent(const DaemonFrame &f, const std::string &summary) const {
    const std::string simId = std::to_string(f.simId), size = std::to_string(f.payload.size());
    const int32_t id = static_cast<int32_t>(f.serialOrId);
    if (mFormat == OutputFormat::Json) {
        const std::string tail = ",\"sim_id\":" + simId +
                                 ",\"length\":" + std::to_string(f.length) + ",\"data\":\"" +
                                 tool_output::hexLower(f.payload) + "\"}";
        emit(f.solicited ? "{\"kind\":\"tx\",\"type\":\"response\",\"serial\":" +
                               std::to_string(f.serialOrId) +
                               ",\"result\":" + std::to_string(f.result) + tail
                         : "{\"kind\":\"tx\",\"type\":\"unsol\",\"id\":" + std::to_string(id) +
                               ",\"name\":" + tool_output::jsonString(unsolicitedName(id)) + tail);
    } else if (f.solicited) {
        emit("rild -> response serial " + tool_output::hex32(f.serialOrId) + " result " +
             std::to_string(f.result) + ", " + size + " bytes: " + summary);
    } else {
        emit(std::string("rild -> unsol ") + unsolicitedName(id) + "(" + std::to_string(id) +
             ") sim " + simId + ", " + size + " bytes" + (summary.empty() ? "" : ": " + summary));
    }
}

}  // namespace rild_sim
