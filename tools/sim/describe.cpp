// One-line descriptions of the entity's request payloads for the daemon's "rild <-" lines, read
// back through a Parcel as the daemon would. Daemon's thread; no state.
#include "tools/sim/describe.h"

#include <binder/Parcel.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "codec/parcel_strings.h"
#include "tools/sim/output.h"
#include "tools/sim/profile.h"
#include "wire_format.h"

namespace rild_sim {

namespace {

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

}  // namespace

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

namespace {

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

}  // namespace

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

}  // namespace rild_sim
