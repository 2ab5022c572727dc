#include "tools/sim/frame_log.h"

#include "tools/sim/output.h"
#include "tools/sim/profile.h"
#include "wire_format.h"

namespace rild_sim {

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
