// The simulated daemon's built-in profile: one thread per object that owns the RildSim once
// started, so every read and write on the connection happens on it; commands from other threads
// reach it through a queue and a wake-up pipe.
#include "tools/sim/profile.h"

#include <binder/Parcel.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <stdexcept>

#include "codec/bearer_record.h"
#include "codec/parcel_strings.h"
#include "tools/sim/output.h"
#include "tools/sim/payloads.h"
#include "wire_format.h"
#include "zok_records.h"

namespace rild_sim {

namespace {

constexpr int kFrameReadTimeoutMs = 5000;  // a frame whose rest never comes is a broken peer
constexpr int kDataCallVersion = 11;
constexpr int kDefaultCid = 1;
constexpr int kDedicatedCid = 2;
// Both address families; the IPv6 texts are sixteen dotted numbers, as the daemon writes them.
constexpr const char *kAddresses = "10.0.0.2 32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.2";
constexpr const char *kDnses = "8.8.8.8 32.1.72.96.72.96.0.0.0.0.0.0.0.0.136.136";
constexpr const char *kGateways = "10.0.0.1";
constexpr const char *kPcscf = "10.0.0.10 32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.16";
constexpr int kLastFailCause = 33;
constexpr const char *kAtAnswer = "\r\nOK\r\n";

// Reads what the entity wrote. Past the end a Parcel reads 0 or a null String16; `ok` tells the
// caller whether the payload really held what was asked for.
class RequestReader {
public:
    explicit RequestReader(const std::vector<uint8_t> &payload) {
        mParcel.setData(payload.data(), payload.size());
    }
    bool atEnd() const { return mParcel.dataPosition() >= mParcel.dataSize(); }
    bool int32(int32_t *out) {
        if (mParcel.dataSize() - mParcel.dataPosition() < 4) return false;
        *out = mParcel.readInt32();
        return true;
    }
    bool string(std::string *out, bool *isNull) {
        if (atEnd()) return false;
        size_t units = 0;
        const char16_t *s = mParcel.readString16Inplace(&units);
        *isNull = s == nullptr;
        char *text = dupUtf16ToUtf8(s, units);
        *out = text != nullptr ? text : "";
        free(text);
        return true;
    }

private:
    android::Parcel mParcel;
};

// int32 count, then that many String16s (the count is bounded by what the payload holds).
bool readCountedStrings(const std::vector<uint8_t> &payload, std::vector<std::string> *out,
                        std::string *shown) {
    RequestReader r(payload);
    int32_t count = 0;
    if (!r.int32(&count) || count < 0) return false;
    *shown = "[";
    for (int32_t i = 0; i < count; i++) {
        std::string s;
        bool isNull = false;
        if (!r.string(&s, &isNull)) return false;
        out->push_back(s);
        if (i > 0) *shown += ",";
        *shown += isNull ? "null" : "\"" + tool_output::escapeText(s) + "\"";
    }
    *shown += "]";
    return r.atEnd();
}

std::string describeInts(const std::vector<uint8_t> &payload) {
    const size_t kShown = 16;
    size_t words = payload.size() / 4;
    std::string out = "int32";
    for (size_t i = 0; i < words && i < kShown; i++) {
        int32_t v;
        memcpy(&v, payload.data() + 4 * i, 4);
        out += " " + std::to_string(v);
    }
    if (words > kShown) out += " ... (" + std::to_string(words) + " words)";
    if (payload.size() % 4 != 0) out += " +" + std::to_string(payload.size() % 4) + " bytes";
    return out;
}

std::string describeStringsOr(const std::vector<uint8_t> &payload) {
    std::vector<std::string> strings;
    std::string shown;
    if (readCountedStrings(payload, &strings, &shown)) return shown;
    return describeInts(payload);
}

// The AT relay's body is built by hand: channel index, text length, the text padded to 4.
std::string describeAt(const std::vector<uint8_t> &payload) {
    if (payload.size() < 8) return describeInts(payload);
    int32_t index, length;
    memcpy(&index, payload.data(), 4);
    memcpy(&length, payload.data() + 4, 4);
    size_t avail = payload.size() - 8;
    size_t n = length < 0 ? 0 : static_cast<size_t>(length);
    if (n > avail) n = avail;
    std::string text(reinterpret_cast<const char *>(payload.data() + 8), n);
    text = text.substr(0, strnlen(text.c_str(), text.size()));
    return "channel " + std::to_string(index) + " \"" + tool_output::escapeText(text) + "\"";
}

std::vector<uint8_t> dataCallList(int cid) {
    android::Parcel p;
    p.writeInt32(kDataCallVersion);
    p.writeInt32(1);
    writeDataCallEntry(p, kDataCallVersion, cid, {kAddresses, kDnses, kGateways, kPcscf});
    return parcelBytes(p);
}

void writeBearer(android::Parcel &p, int interfaceId, int cid, bool modified) {
    p.writeInt32(interfaceId);
    p.writeInt32(kDefaultCid);  // primary cid: the default bearer it belongs to
    p.writeInt32(cid);
    p.writeInt32(1);  // active
    p.writeInt32(0);  // signalling flag
    p.writeInt32(6);  // EPS bearer id
    p.writeInt32(0);  // fail cause
    p.writeInt32(1);  // QoS follows: QCI 1, then GBR and MBR down / up in kbit/s
    const int32_t rate = modified ? 256 : 128;
    const int32_t qos[ZOK_QOS_VALUES] = {1, rate, rate, rate, rate};
    for (int32_t v : qos) p.writeInt32(v);
    p.writeInt32(1);                                 // TFT follows
    std::unique_ptr<ZOK_Tft> record(new ZOK_Tft());  // zeroed
    ZOK_Tft &tft = *record;
    tft.operation = 1;  // create
    tft.pfNumber = 1;
    ZOK_PktFilter &pf = tft.pfList[0];
    pf.id = 1;
    pf.precedence = 0;
    pf.direction = 3;  // both directions
    pf.networkPfIdentifier = 1;
    pf.bitmap = 0x31;
    snprintf(pf.address, sizeof(pf.address), "%s", "10.0.0.9");
    snprintf(pf.mask, sizeof(pf.mask), "%s", "255.255.255.255");
    pf.protocolNextHeader = 17;  // UDP
    pf.localPortLow = 50000;
    pf.localPortHigh = 50010;
    pf.remotePortLow = 30000;
    pf.remotePortHigh = 30010;
    writeTftStructToParcel(p, &tft);
    p.writeInt32(1);  // P-CSCF list follows
    writeUtf8StringToParcel(p, "10.0.0.10");
}

std::vector<uint8_t> bearerList(int interfaceId, int cid, bool modified) {
    android::Parcel p;
    p.writeInt32(1);
    writeBearer(p, interfaceId, cid, modified);
    return parcelBytes(p);
}

// The n-th int32 of a payload, or `fallback` when it is not there.
int32_t wordAt(const std::vector<uint8_t> &payload, size_t index, int32_t fallback) {
    if (payload.size() < 4 * (index + 1)) return fallback;
    int32_t v;
    memcpy(&v, payload.data() + 4 * index, 4);
    return v;
}

}  // namespace

const char *requestName(int32_t requestId) {
    switch (requestId) {
        case RIL_REQUEST_RADIO_POWER:
            return "RIL_REQUEST_RADIO_POWER";
        case RIL_REQUEST_SETUP_DATA_CALL:
            return "RIL_REQUEST_SETUP_DATA_CALL";
        case RIL_REQUEST_DEACTIVATE_DATA_CALL:
            return "RIL_REQUEST_DEACTIVATE_DATA_CALL";
        case RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE:
            return "RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE";
        case RIL_REQUEST_SET_INITIAL_ATTACH_APN:
            return "RIL_REQUEST_SET_INITIAL_ATTACH_APN";
        case ZOKRIL_REQUEST_SETUP_DEDICATE_DATA_CALL:
            return "SETUP_DEDICATE_DATA_CALL";
        case ZOKRIL_REQUEST_DEACTIVATE_DEDICATE_DATA_CALL:
            return "DEACTIVATE_DEDICATE_DATA_CALL";
        case ZOKRIL_REQUEST_MODIFY_DATA_CALL:
            return "MODIFY_DATA_CALL";
        case ZOKRIL_REQUEST_ABORT_SETUP_DATA_CALL:
            return "ABORT_SETUP_DATA_CALL";
        case ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO:
            return "PCSCF_DISCOVERY_PCO";
        case ZOKRIL_REQUEST_SEND_AT_CMD:
        case ZOKRIL_REQUEST_SEND_AT_CMD_307:
        case ZOKRIL_REQUEST_SEND_AT_CMD_EXT:
            return "SEND_AT_CMD";
        case ZOKRIL_REQUEST_HANDOVER:
            return "HANDOVER";
        case ZOKRIL_REQUEST_DEACTIVATE_DATA_CALL_2:
            return "DEACTIVATE_DATA_CALL_2";
        case ZOKRIL_REQUEST_NOTIFY_PS_REG_STATE:
            return "NOTIFY_PS_REG_STATE";
        case ZOKRIL_REQUEST_PDN_INFO_IND:
            return "PDN_INFO_IND";
        case ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV:
            return "SETUP_DATA_CALL_TLV";
        case ZOKRIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE_TLV:
            return "LAST_DATA_CALL_FAIL_CAUSE_TLV";
        case ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV:
            return "PCSCF_DISCOVERY_PCO_TLV";
    }
    return "UNKNOWN";
}

const char *unsolicitedName(int32_t id) {
    switch (id) {
        case RIL_UNSOL_DATA_CALL_LIST_CHANGED:
            return "RIL_UNSOL_DATA_CALL_LIST_CHANGED";
        case RIL_UNSOL_DEDICATE_BEARER_ACTIVATED:
            return "RIL_UNSOL_DEDICATE_BEARER_ACTIVATED";
        case RIL_UNSOL_DEDICATE_BEARER_MODIFIED:
            return "RIL_UNSOL_DEDICATE_BEARER_MODIFIED";
        case RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED:
            return "RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED";
        case RIL_UNSOL_DATA_CALL_RESPONSE:
            return "RIL_UNSOL_DATA_CALL_RESPONSE";
    }
    return "UNKNOWN";
}

std::string describeRequest(const RequestFrame &request) {
    const std::vector<uint8_t> &p = request.payload;
    if (p.empty()) return "no parameters";
    switch (request.request_id) {
        case RIL_REQUEST_SETUP_DATA_CALL:
        case RIL_REQUEST_DEACTIVATE_DATA_CALL:
        case ZOKRIL_REQUEST_DEACTIVATE_DATA_CALL_2:
        case ZOKRIL_REQUEST_DEACTIVATE_DEDICATE_DATA_CALL:
        case ZOKRIL_REQUEST_ABORT_SETUP_DATA_CALL:
        case ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO:
        case ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV:
            return describeStringsOr(p);
        case ZOKRIL_REQUEST_SEND_AT_CMD:
        case ZOKRIL_REQUEST_SEND_AT_CMD_307:
        case ZOKRIL_REQUEST_SEND_AT_CMD_EXT:
            return describeAt(p);
        case ZOKRIL_REQUEST_NOTIFY_PS_REG_STATE: {
            RequestReader r(p);
            std::string s;
            bool isNull = false;
            if (r.string(&s, &isNull) && r.atEnd()) {
                return isNull ? "null" : "\"" + tool_output::escapeText(s) + "\"";
            }
            return describeInts(p);
        }
        case ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV: {
            // int32 2, the call id as text, the serial as an int32
            RequestReader r(p);
            int32_t count = 0, serial = 0;
            std::string id;
            bool isNull = false;
            if (r.int32(&count) && r.string(&id, &isNull) && r.int32(&serial) && r.atEnd()) {
                char text[64];
                snprintf(text, sizeof(text), "id \"%s\" serial 0x%x",
                         tool_output::escapeText(id).c_str(), static_cast<uint32_t>(serial));
                return text;
            }
            return describeInts(p);
        }
        case RIL_REQUEST_SET_INITIAL_ATTACH_APN: {
            RequestReader r(p);
            std::string apn, protocol, user, password, extra;
            int32_t auth = 0, flag = 0;
            bool isNull = false;
            if (r.string(&apn, &isNull) && r.string(&protocol, &isNull) && r.int32(&auth) &&
                r.string(&user, &isNull) && r.string(&password, &isNull) &&
                r.string(&extra, &isNull) && r.int32(&flag) && r.atEnd()) {
                return "apn \"" + tool_output::escapeText(apn) + "\" " + protocol + " auth " +
                       std::to_string(auth) + " user \"" + tool_output::escapeText(user) +
                       "\" flag " + std::to_string(flag);
            }
            return describeInts(p);
        }
        default:
            return describeInts(p);
    }
}

Answer answerRequest(const RequestFrame &request, bool tlv) {
    Answer a;
    const std::vector<uint8_t> &p = request.payload;
    switch (request.request_id) {
        case RIL_REQUEST_SETUP_DATA_CALL: {
            // The cid is the eighth of the request's strings.
            std::vector<std::string> strings;
            std::string shown;
            int cid = kDefaultCid;
            if (readCountedStrings(p, &strings, &shown) && strings.size() > 7) {
                cid = atoi(strings[7].c_str());
            }
            a.payload = dataCallList(cid);
            a.summary = "data call v11, cid " + std::to_string(cid) + ", IPV4V6 rmnet_data0";
            break;
        }
        case ZOKRIL_REQUEST_SETUP_DEDICATE_DATA_CALL:
            // 7, ddcId, interfaceId, signalling flag, ...
            a.payload = bearerList(wordAt(p, 2, kDefaultCid), kDedicatedCid, false);
            a.summary = "1 bearer, cid " + std::to_string(kDedicatedCid);
            break;
        case ZOKRIL_REQUEST_MODIFY_DATA_CALL: {
            // 7, cid, ...
            int cid = wordAt(p, 1, kDedicatedCid);
            a.payload = bearerList(kDefaultCid, cid, true);
            a.summary = "1 bearer, cid " + std::to_string(cid) + ", modified QoS";
            break;
        }
        case ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO:
            a.payload = textParcel(kPcscf);
            a.summary = std::string("P-CSCF \"") + kPcscf + "\"";
            break;
        case RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE:
            a.payload = int32Parcel({1, kLastFailCause});
            a.summary = "fail cause " + std::to_string(kLastFailCause);
            break;
        case RIL_REQUEST_DEACTIVATE_DATA_CALL:
        case ZOKRIL_REQUEST_DEACTIVATE_DATA_CALL_2:
        case ZOKRIL_REQUEST_DEACTIVATE_DEDICATE_DATA_CALL:
        case ZOKRIL_REQUEST_ABORT_SETUP_DATA_CALL:
        case RIL_REQUEST_RADIO_POWER:
        case ZOKRIL_REQUEST_HANDOVER:
        case RIL_REQUEST_SET_INITIAL_ATTACH_APN:
        case ZOKRIL_REQUEST_NOTIFY_PS_REG_STATE:
        case ZOKRIL_REQUEST_PDN_INFO_IND:
            a.summary = "status only";
            break;
        case ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV:
        case ZOKRIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE_TLV:
        case ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV:
            // Accepted, the result would reach the entity later through the framework
            // (events 2006..2008); refused, the entity falls back to the plain request.
            a.result = tlv ? ZOKRIL_E_SUCCESS : ZOKRIL_E_REQUEST_NOT_SUPPORTED;
            a.summary = tlv ? "accepted, result follows through the framework" : "not supported";
            break;
        case ZOKRIL_REQUEST_SEND_AT_CMD:
        case ZOKRIL_REQUEST_SEND_AT_CMD_307:
        case ZOKRIL_REQUEST_SEND_AT_CMD_EXT:
            a.payload = atAnswerPayload(kAtAnswer);
            a.summary = std::string("AT \"") + tool_output::escapeText(kAtAnswer) + "\"";
            break;
        default:
            a.result = ZOKRIL_E_REQUEST_NOT_SUPPORTED;
            a.summary = "not supported";
            break;
    }
    return a;
}

std::vector<uint8_t> builtinDataCallList() {
    return dataCallList(kDefaultCid);
}

std::vector<uint8_t> builtinBearer(bool modify) {
    return bearerList(kDefaultCid, kDedicatedCid, modify);
}

std::vector<uint8_t> builtinBearerDeactivated() {
    return int32Parcel({1, kDedicatedCid});
}

std::vector<uint8_t> builtinDataCallResponse() {
    return dataCallList(kDefaultCid);
}

bool builtinUnsolicited(const std::string &name, int32_t *id, std::vector<uint8_t> *payload) {
    if (name == "data-call-list") {
        *id = RIL_UNSOL_DATA_CALL_LIST_CHANGED;
        *payload = builtinDataCallList();
    } else if (name == "bearer-activated") {
        *id = RIL_UNSOL_DEDICATE_BEARER_ACTIVATED;
        *payload = builtinBearer(false);
    } else if (name == "bearer-modified") {
        *id = RIL_UNSOL_DEDICATE_BEARER_MODIFIED;
        *payload = builtinBearer(true);
    } else if (name == "bearer-deactivated") {
        *id = RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED;
        *payload = builtinBearerDeactivated();
    } else if (name == "data-call-response") {
        *id = RIL_UNSOL_DATA_CALL_RESPONSE;
        *payload = builtinDataCallResponse();
    } else {
        return false;
    }
    return true;
}

SimProfile::SimProfile(const ProfileOptions &options) : mOptions(options), mSim(options.name) {
    if (pipe2(mWake, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::runtime_error(std::string("rild_sim: pipe: ") + strerror(errno));
    }
}

SimProfile::~SimProfile() {
    {
        std::lock_guard<std::mutex> hold(mLock);
        mStop = true;
    }
    if (write(mWake[1], "x", 1) < 0) {
        // The thread also rechecks mStop at every poll time-out.
    }
    if (mThread.joinable()) mThread.join();
    close(mWake[0]);
    close(mWake[1]);
}

void SimProfile::start() {
    // Printed before the thread starts, so it precedes anything the entity does on the socket.
    note("listening on " + mSim.path());
    mThread = std::thread([this] { run(); });
}

void SimProfile::sendUnsolicited(int32_t id, const std::vector<uint8_t> &payload) {
    {
        std::lock_guard<std::mutex> hold(mLock);
        mCommands.push_back(Command{Command::Unsolicited, id, payload});
    }
    if (write(mWake[1], "u", 1) < 0) {
        // A full pipe already holds a wake-up; the queue is drained whole each time.
    }
}

void SimProfile::closeClient() {
    {
        std::lock_guard<std::mutex> hold(mLock);
        mCommands.push_back(Command{Command::Close, 0, {}});
    }
    if (write(mWake[1], "c", 1) < 0) {
        // As above.
    }
}

void SimProfile::failRequest(int32_t requestId, int32_t result) {
    std::lock_guard<std::mutex> hold(mLock);
    if (result == ZOKRIL_E_SUCCESS) {
        mFailures.erase(requestId);
    } else {
        mFailures[requestId] = result;
    }
}

bool SimProfile::waitConnected(int timeoutMs) {
    std::unique_lock<std::mutex> hold(mLock);
    return mChanged.wait_for(hold, std::chrono::milliseconds(timeoutMs),
                             [this] { return mConnected; });
}

bool SimProfile::waitSessionEnded(int timeoutMs) {
    std::unique_lock<std::mutex> hold(mLock);
    return mChanged.wait_for(hold, std::chrono::milliseconds(timeoutMs), [this] { return mEnded; });
}

void SimProfile::emit(const std::string &line) {
    if (mOptions.out) {
        mOptions.out(line);
    } else {
        tool_output::writeLine(line);
    }
}

void SimProfile::note(const std::string &event) {
    if (mOptions.format == OutputFormat::Json) {
        emit("{\"kind\":\"rild\",\"event\":" + tool_output::jsonString(event) + "}");
    } else {
        emit("rild -- " + event);
    }
}

void SimProfile::endSession() {
    mSim.closeClient();
    std::lock_guard<std::mutex> hold(mLock);
    mEnded = true;
    mChanged.notify_all();
}

void SimProfile::run() {
    const int kSliceMs = 200;
    int waited = 0;
    for (;;) {
        {
            std::lock_guard<std::mutex> hold(mLock);
            if (mStop) return;
        }
        if (mSim.acceptClient(kSliceMs)) break;
        waited += kSliceMs;
        if (mAcceptTimeoutMs > 0 && waited >= mAcceptTimeoutMs) {
            note("no client");
            endSession();
            return;
        }
    }
    note("client connected");
    {
        std::lock_guard<std::mutex> hold(mLock);
        mConnected = true;
        mChanged.notify_all();
    }
    serve();
}

void SimProfile::serve() {
    for (;;) {
        pollfd fds[2] = {{mSim.clientFd(), POLLIN, 0}, {mWake[0], POLLIN, 0}};
        int n = poll(fds, 2, 1000);
        {
            std::lock_guard<std::mutex> hold(mLock);
            if (mStop) return;
        }
        if (n < 0 && errno != EINTR) {
            note("poll failed");
            endSession();
            return;
        }
        if (n <= 0) continue;
        if (fds[1].revents != 0) {
            char drain[64];
            while (read(mWake[0], drain, sizeof(drain)) > 0) {
            }
            runCommands();
            if (!mSim.connected()) return;
        }
        if (fds[0].revents != 0) {
            RequestFrame request;
            if (!mSim.readRequest(&request, kFrameReadTimeoutMs)) {
                note("connection closed by the entity");
                if (mOptions.capture) mOptions.capture->writeClose(capture::Direction::ToDaemon);
                endSession();
                return;
            }
            handleRequest(request);
            if (!mSim.connected()) return;
        }
    }
}

void SimProfile::runCommands() {
    for (;;) {
        Command command;
        {
            std::lock_guard<std::mutex> hold(mLock);
            if (mCommands.empty()) return;
            command = mCommands.front();
            mCommands.pop_front();
        }
        if (command.kind == Command::Close) {
            note("closing the connection");
            if (mOptions.capture) mOptions.capture->writeClose(capture::Direction::ToEntity);
            endSession();
            return;
        }
        sendUnsolicitedNow(command.id, command.payload);
    }
}

void SimProfile::handleRequest(const RequestFrame &request) {
    // A daemon answers on the SIM slot the request came for.
    mSimId = request.sim_id;
    if (mOptions.capture) {
        mOptions.capture->write(capture::Direction::ToDaemon, requestFrameBytes(request));
    }
    const std::string data = tool_output::hexLower(request.payload);
    if (mOptions.format == OutputFormat::Json) {
        emit("{\"kind\":\"rx\",\"request_id\":" + std::to_string(request.request_id) +
             ",\"name\":" + tool_output::jsonString(requestName(request.request_id)) +
             ",\"serial\":" + std::to_string(request.serial) +
             ",\"sim_id\":" + std::to_string(request.sim_id) +
             ",\"length\":" + std::to_string(request.length) + ",\"data\":\"" + data + "\"}");
    } else {
        char serial[16];
        snprintf(serial, sizeof(serial), "0x%x", request.serial);
        emit(std::string("rild <- ") + requestName(request.request_id) + "(" +
             std::to_string(request.request_id) + ") serial " + serial + " sim " +
             std::to_string(request.sim_id) + ", " + std::to_string(request.payload.size()) +
             " bytes: " + describeRequest(request));
    }

    Answer answer;
    bool failed = false;
    {
        std::lock_guard<std::mutex> hold(mLock);
        auto it = mFailures.find(request.request_id);
        if (it != mFailures.end()) {
            answer.result = it->second;
            answer.summary = "configured failure";
            failed = true;
        }
    }
    if (!failed) answer = answerRequest(request, mOptions.tlv);

    const std::vector<uint32_t> header = {RIL_FEATURE_MASK_SIM_ID, static_cast<uint32_t>(mSimId)};
    std::vector<uint8_t> frame =
        responseFrame(request.serial, answer.result, answer.payload, header);
    if (mOptions.format == OutputFormat::Json) {
        emit("{\"kind\":\"tx\",\"type\":\"response\",\"serial\":" + std::to_string(request.serial) +
             ",\"result\":" + std::to_string(answer.result) + ",\"sim_id\":" +
             std::to_string(mSimId) + ",\"length\":" + std::to_string(frame.size() - 4) +
             ",\"data\":\"" + tool_output::hexLower(answer.payload) + "\"}");
    } else {
        char serial[16];
        snprintf(serial, sizeof(serial), "0x%x", request.serial);
        emit(std::string("rild -> response serial ") + serial + " result " +
             std::to_string(answer.result) + ", " + std::to_string(answer.payload.size()) +
             " bytes: " + answer.summary);
    }
    sendFrame(frame);
}

void SimProfile::sendUnsolicitedNow(int32_t id, const std::vector<uint8_t> &payload) {
    const std::vector<uint32_t> header = {RIL_FEATURE_MASK_SIM_ID, static_cast<uint32_t>(mSimId)};
    std::vector<uint8_t> frame = unsolicitedFrame(id, payload, header);
    if (mOptions.format == OutputFormat::Json) {
        emit("{\"kind\":\"tx\",\"type\":\"unsol\",\"id\":" + std::to_string(id) +
             ",\"name\":" + tool_output::jsonString(unsolicitedName(id)) + ",\"sim_id\":" +
             std::to_string(mSimId) + ",\"length\":" + std::to_string(frame.size() - 4) +
             ",\"data\":\"" + tool_output::hexLower(payload) + "\"}");
    } else {
        emit(std::string("rild -> unsol ") + unsolicitedName(id) + "(" + std::to_string(id) +
             ") sim " + std::to_string(mSimId) + ", " + std::to_string(payload.size()) + " bytes");
    }
    sendFrame(frame);
}

void SimProfile::sendFrame(const std::vector<uint8_t> &frame) {
    // Recorded before it goes out, so the capture never shows the entity reacting to a frame
    // ahead of the frame itself.
    if (mOptions.capture) mOptions.capture->write(capture::Direction::ToEntity, frame);
    if (!mSim.writeRaw(frame)) {
        note("write failed");
        endSession();
    }
}

}  // namespace rild_sim
