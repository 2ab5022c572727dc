// The built-in profile's answers: what a cooperative daemon returns to each request, and the
// unsolicited payloads it sends on command. Daemon's thread (and the runner's script parser).
#include <binder/Parcel.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "codec/bearer_record.h"
#include "codec/parcel_strings.h"
#include "tools/sim/describe.h"
#include "tools/sim/output.h"
#include "tools/sim/payloads.h"
#include "tools/sim/profile.h"
#include "wire_format.h"
#include "zok_records.h"

namespace rild_sim {

namespace {

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

bool isTlvRequest(int32_t requestId) {
    return requestId == ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV ||
           requestId == ZOKRIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE_TLV ||
           requestId == ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV;
}

Answer answerRequest(const RequestFrame &request, bool tlv) {
    Answer a;
    const std::vector<uint8_t> &p = request.payload;
    if (isTlvRequest(request.request_id)) {
        // Accepted, the result would reach the entity later through the framework (events
        // 2006..2008); refused, the entity falls back to the plain request.
        a.result = tlv ? ZOKRIL_E_SUCCESS : ZOKRIL_E_REQUEST_NOT_SUPPORTED;
        a.summary = tlv ? "accepted, result follows through the framework" : "not supported";
        return a;
    }
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

}  // namespace rild_sim
