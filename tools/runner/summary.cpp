// Decoders of the entity's reply and notification payloads for the runner's text output. Runs on
// whichever entity thread delivers the event.
#include "tools/runner/summary.h"

#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>

#include <memory>

#include "rilproxy.h"
#include "tools/sim/output.h"

namespace runner {

namespace {

// Copies at most sizeof(T) bytes into a zeroed record: the framework's payloads are fixed
// records, but the runner must not read past a short one.
template <typename T>
std::unique_ptr<T> record(const std::vector<uint8_t> &data) {
    std::unique_ptr<T> r(new T());
    memcpy(r.get(), data.data(), data.size() < sizeof(T) ? data.size() : sizeof(T));
    return r;
}

std::string ipv4(uint32_t stored) {
    unsigned char b[4];
    memcpy(b, &stored, 4);  // bytes in text order
    char text[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, b, text, sizeof(text));
    return text;
}

std::string ipv6(const unsigned char *b) {
    char text[INET6_ADDRSTRLEN];
    inet_ntop(AF_INET6, b, text, sizeof(text));
    return text;
}

const char *typeName(int32_t type) {
    switch (type) {
        case 0:
            return "IP";
        case 1:
            return "IPV6";
        case 2:
            return "IPV4V6";
    }
    return "?";
}

std::string joined(const std::vector<std::string> &items) {
    std::string out;
    for (const std::string &item : items) out += (out.empty() ? "" : ",") + item;
    return out;
}

std::vector<std::string> pcscfList(const dm_pcscf_t &p) {
    std::vector<std::string> out;
    for (unsigned i = 0; i < p.count && i < ZOK_PCSCF_MAX; i++) {
        uint32_t v4;
        memcpy(&v4, p.address[i], sizeof(v4));
        out.push_back((p.ipv6Mask >> i) & 1 ? ipv6(p.address[i]) : ipv4(v4));
    }
    return out;
}

// A data call's addresses as texts: those of its type, the DNS servers, the gateways set.
struct CallAddresses {
    std::vector<std::string> addresses, dnses, gateways;
};

CallAddresses addressesOf(const ZOK_Data_Call_Response_v11 &d) {
    CallAddresses a;
    if (d.type == 0 || d.type == 2) a.addresses.push_back(ipv4(d.ipv4Address));
    if (d.type == 1 || d.type == 2) a.addresses.push_back(ipv6(d.ipv6Address));
    for (uint32_t i = 0; i < d.ipv4DnsNum && i < ZOK_DNS_MAX; i++) {
        a.dnses.push_back(ipv4(d.ipv4Dns[i]));
    }
    for (uint32_t i = 0; i < d.ipv6DnsNum && i < ZOK_DNS_MAX; i++) {
        a.dnses.push_back(ipv6(d.ipv6Dns[i]));
    }
    unsigned char gw6[16];
    memcpy(gw6, d.ipv6Gateway, sizeof(gw6));
    static const unsigned char kZero[16] = {};
    if (d.ipv4Gateway != 0) a.gateways.push_back(ipv4(d.ipv4Gateway));
    if (memcmp(gw6, kZero, sizeof(gw6)) != 0) a.gateways.push_back(ipv6(gw6));
    return a;
}

std::string dataCall(const ZOK_Data_Call_Response_v11 &d) {
    const CallAddresses a = addressesOf(d);
    std::string s =
        "cid " + std::to_string(d.cid) + " active " + std::to_string(d.active) + " status " +
        std::to_string(d.status) + " " + typeName(d.type) + " " +
        tool_output::escapeText(std::string(d.ifname, strnlen(d.ifname, sizeof(d.ifname))));
    for (const std::string &address : a.addresses) s += " " + address;
    if (!a.dnses.empty()) s += " dns " + joined(a.dnses);
    if (!a.gateways.empty()) s += " gw " + joined(a.gateways);
    s += " mtu " + std::to_string(d.mtuSize);
    return s;
}

std::string pcscf(const dm_pcscf_t &p) {
    std::string s = joined(pcscfList(p));
    return s.empty() ? "none" : s;
}

std::string bearer(const ZOK_Dedicate_Data_Call_Struct &b) {
    std::string s = "cid " + std::to_string(b.cid) + " primary " + std::to_string(b.primaryCid) +
                    " bearer " + std::to_string(b.bearerId) + " active " + std::to_string(b.active);
    if (b.hasQos) {
        s += " qos";
        for (int i = 0; i < ZOK_QOS_VALUES; i++)
            s += (i ? "/" : " ") + std::to_string(b.qos.value[i]);
    }
    if (b.hasTft) {
        s += " tft op " + std::to_string(b.tft.operation) + " filters " +
             std::to_string(b.tft.pfNumber);
        if (b.tft.pfNumber > 0) {
            const ZOK_PktFilter &pf = b.tft.pfList[0];
            s += " [" +
                 tool_output::escapeText(
                     std::string(pf.address, strnlen(pf.address, sizeof(pf.address)))) +
                 " proto " + std::to_string(pf.protocolNextHeader) + " local " +
                 std::to_string(pf.localPortLow) + "-" + std::to_string(pf.localPortHigh) +
                 " remote " + std::to_string(pf.remotePortLow) + "-" +
                 std::to_string(pf.remotePortHigh) + "]";
        }
    }
    if (b.pcscf.count > 0) s += " pcscf " + pcscf(b.pcscf);
    return s;
}

// A JSON object built field by field, in the order the fields are added.
class Fields {
public:
    Fields &num(const char *key, int64_t v) { return raw(key, std::to_string(v)); }
    Fields &text(const char *key, const std::string &v) {
        return raw(key, tool_output::jsonString(v));
    }
    Fields &texts(const char *key, const std::vector<std::string> &v) {
        std::string list;
        for (const std::string &t : v)
            list += (list.empty() ? "" : ",") + tool_output::jsonString(t);
        return raw(key, "[" + list + "]");
    }
    Fields &raw(const char *key, const std::string &json) {
        mOut += (mOut.empty() ? "" : ",") + tool_output::jsonString(key) + ":" + json;
        return *this;
    }
    std::string str() const { return "{" + mOut + "}"; }

private:
    std::string mOut;
};

std::string fixedText(const char *text, size_t size) {
    return std::string(text, strnlen(text, size));
}

std::string dataCallFields(int32_t status, const ZOK_Data_Call_Response_v11 &d) {
    const CallAddresses a = addressesOf(d);
    return Fields()
        .num("status", status)
        .num("suggested_retry_time", d.suggestedRetryTime)
        .num("cid", d.cid)
        .num("active", d.active)
        .text("type", typeName(d.type))
        .text("ifname", fixedText(d.ifname, sizeof(d.ifname)))
        .texts("addresses", a.addresses)
        .texts("dnses", a.dnses)
        .texts("gateways", a.gateways)
        .num("mtu", d.mtuSize)
        .num("sim_id", d.simId)
        .str();
}

std::string bearerFields(int32_t status, const ZOK_Dedicate_Data_Call_Struct &b, Fields f) {
    f.num("status", status)
        .num("cid", b.cid)
        .num("primary_cid", b.primaryCid)
        .num("bearer_id", b.bearerId)
        .num("active", b.active);
    if (b.hasQos) {
        std::string qos;
        for (int i = 0; i < ZOK_QOS_VALUES; i++) {
            qos += (i ? "," : "") + std::to_string(b.qos.value[i]);
        }
        f.raw("qos", "[" + qos + "]");
    }
    if (b.hasTft) {
        std::string filters;
        for (int32_t i = 0; i < b.tft.pfNumber && i < ZOK_TFT_PF_MAX; i++) {
            const ZOK_PktFilter &pf = b.tft.pfList[i];
            filters +=
                (i ? "," : "") + Fields()
                                     .text("address", fixedText(pf.address, sizeof(pf.address)))
                                     .num("protocol", pf.protocolNextHeader)
                                     .num("local_port_low", pf.localPortLow)
                                     .num("local_port_high", pf.localPortHigh)
                                     .num("remote_port_low", pf.remotePortLow)
                                     .num("remote_port_high", pf.remotePortHigh)
                                     .str();
        }
        f.raw("tft",
              Fields().num("operation", b.tft.operation).raw("filters", "[" + filters + "]").str());
    }
    return f.texts("pcscf", pcscfList(b.pcscf)).str();
}

std::string status(const std::vector<uint8_t> &data) {
    auto r = record<StatusOnlyReply>(data);
    return "status " + std::to_string(r->status);
}

}  // namespace

std::string describeEvent(int32_t id, const std::vector<uint8_t> &data) {
    switch (id) {
        case EVENT_RILPROXY_CONNECT:
        case EVENT_RILPROXY_DISCONNECT: {
            auto r = record<int32_t>(data);
            return "result " + std::to_string(*r);
        }
        case EVENT_RILPROXY_STATE_IND: {
            auto r = record<int32_t>(data);
            return "state " + std::to_string(*r) +
                   (*r == RILPROXY_STATE_CONNECTED ? " (connected)"
                    : *r == RILPROXY_STATE_CLOSED  ? " (closed)"
                                                   : "");
        }
        case EVENT_DATA_NOTIFICATION_REQ: {
            std::string text(data.begin(), data.end());
            return "\"" +
                   tool_output::escapeText(text.substr(0, strnlen(text.c_str(), text.size()))) +
                   "\"";
        }
        case EVENT_RILPROXY_ATCMD_RESP: {
            auto r = record<AtCommandResponse>(data);
            char token[32];
            snprintf(token, sizeof(token), "0x%llx",
                     static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(r->token)));
            std::string s = std::string("token ") + token + " status " + std::to_string(r->status);
            // Without a text the field holds nothing defined; only statuses 0 and 1 carry one.
            if (r->status == AT_STATUS_OK || r->status == AT_STATUS_AT_ERROR) {
                s += " \"" +
                     tool_output::escapeText(
                         std::string(r->text, strnlen(r->text, sizeof(r->text)))) +
                     "\"";
            }
            return s;
        }
        case EVENT_SETUP_DATA_CALL_RESP:
        case EVENT_DATA_CALL_RESPONSE_IND:
        case EVENT_DATA_CALL_LIST_CHANGED_IND: {
            if (data.size() <= sizeof(StatusOnlyReply)) return status(data);
            auto r = record<DataCallSetupReply>(data);
            return "status " + std::to_string(r->status) + ", " + dataCall(r->dcall);
        }
        case EVENT_SETUP_DEDICATE_DATA_CALL_RESP:
        case EVENT_MODIFY_DATA_CALL_RESP: {
            if (data.size() <= sizeof(StatusOnlyReply)) return status(data);
            auto r = record<DedicateBearerReply>(data);
            return "status " + std::to_string(r->status) + " bearer " + std::to_string(r->index) +
                   " of " + std::to_string(r->num) + ", " + bearer(r->bearer);
        }
        case EVENT_DEDICATE_BEARER_ACTIVATED_IND:
        case EVENT_DEDICATE_BEARER_MODIFIED_IND: {
            auto r = record<BearerNotification>(data);
            return "status " + std::to_string(r->status) + ", " + bearer(r->bearer);
        }
        case EVENT_DEDICATE_BEARER_DEACTIVATED_IND: {
            auto r = record<ShortStatusNotification>(data);
            return "status " + std::to_string(r->status) + " cid " + std::to_string(r->cid);
        }
        case EVENT_PCSCF_DISCOVERY_PCO_RESP: {
            auto r = record<PcscfDiscoveryReply>(data);
            return "status " + std::to_string(r->status) + ", pcscf " + pcscf(r->pcscf);
        }
        case EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP: {
            auto r = record<FailCauseReply>(data);
            return "status " + std::to_string(r->status) + " cause " + std::to_string(r->cause);
        }
        case EVENT_DEACTIVATE_DATA_CALL_RESP:
        case EVENT_DEACTIVATE_DEDICATE_DATA_CALL_RESP:
        case EVENT_ABORT_SETUP_DATA_CALL_RESP:
        case EVENT_SET_INITIAL_ATTACH_APN_RESP:
        case EVENT_RADIO_POWER_RESP:
        case EVENT_HANDOVER_RESP:
        case EVENT_DATA_CALL_RESPONSE_FAIL_IND:
            return status(data);
    }
    const size_t kShown = 32;
    // describeEvent's cases and eventFields' go together: a record with a summary has fields.
    std::string s = tool_output::hexLower(data.data(), data.size() < kShown ? data.size() : kShown);
    return data.size() > kShown ? s + "..." : s;
}

std::string eventFields(int32_t id, const std::vector<uint8_t> &data) {
    switch (id) {
        case EVENT_RILPROXY_CONNECT:
        case EVENT_RILPROXY_DISCONNECT:
            return Fields().num("result", *record<int32_t>(data)).str();
        case EVENT_RILPROXY_STATE_IND:
            return Fields().num("state", *record<int32_t>(data)).str();
        case EVENT_RILPROXY_ATCMD_RESP: {
            auto r = record<AtCommandResponse>(data);
            Fields f;
            f.raw("token", std::to_string(reinterpret_cast<uintptr_t>(r->token)))
                .num("status", r->status);
            if (r->status == AT_STATUS_OK || r->status == AT_STATUS_AT_ERROR) {
                f.text("text", fixedText(r->text, sizeof(r->text)));
            }
            return f.str();
        }
        case EVENT_SETUP_DATA_CALL_RESP:
        case EVENT_DATA_CALL_RESPONSE_IND:
        case EVENT_DATA_CALL_LIST_CHANGED_IND: {
            if (data.size() <= sizeof(StatusOnlyReply)) break;
            auto r = record<DataCallSetupReply>(data);
            return dataCallFields(r->status, r->dcall);
        }
        case EVENT_SETUP_DEDICATE_DATA_CALL_RESP:
        case EVENT_MODIFY_DATA_CALL_RESP: {
            if (data.size() <= sizeof(StatusOnlyReply)) break;
            auto r = record<DedicateBearerReply>(data);
            return bearerFields(r->status, r->bearer,
                                Fields().num("index", r->index).num("of", r->num));
        }
        case EVENT_DEDICATE_BEARER_ACTIVATED_IND:
        case EVENT_DEDICATE_BEARER_MODIFIED_IND: {
            auto r = record<BearerNotification>(data);
            return bearerFields(r->status, r->bearer, Fields());
        }
        case EVENT_DEDICATE_BEARER_DEACTIVATED_IND: {
            auto r = record<ShortStatusNotification>(data);
            return Fields().num("status", r->status).num("cid", r->cid).str();
        }
        case EVENT_PCSCF_DISCOVERY_PCO_RESP: {
            auto r = record<PcscfDiscoveryReply>(data);
            return Fields().num("status", r->status).texts("pcscf", pcscfList(r->pcscf)).str();
        }
        case EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP: {
            auto r = record<FailCauseReply>(data);
            return Fields().num("status", r->status).num("cause", r->cause).str();
        }
        case EVENT_DEACTIVATE_DATA_CALL_RESP:
        case EVENT_DEACTIVATE_DEDICATE_DATA_CALL_RESP:
        case EVENT_ABORT_SETUP_DATA_CALL_RESP:
        case EVENT_SET_INITIAL_ATTACH_APN_RESP:
        case EVENT_RADIO_POWER_RESP:
        case EVENT_HANDOVER_RESP:
        case EVENT_DATA_CALL_RESPONSE_FAIL_IND:
            break;
        default:
            return "";
    }
    return Fields().num("status", record<StatusOnlyReply>(data)->status).str();
}

}  // namespace runner
