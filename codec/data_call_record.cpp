// One data-call entry of a response or unsolicited Parcel into ZOK_Data_Call_Response_v11, with
// the daemon's address texts turned into bytes. Reader thread; no state.
#include "codec/data_call_record.h"

#include <string.h>

#include "codec/bearer_record.h"
#include "codec/ip_address_text.h"
#include "codec/parcel_strings.h"
#include "codec/wire_lists.h"
#include "core/log.h"

constexpr int kVersionWithoutMtu = 6;
constexpr int kFirstExtendedVersion = 1001;

static void readAddresses(android::Parcel &parcel, ZOK_Data_Call_Response_v11 *dcall) {
    ZOK_LOG_AS(kSigReadDataCallFromParcel);
    char type[16];
    char addresses[256];
    memset(type, 0, sizeof(type));
    memset(addresses, 0, sizeof(addresses));
    readUtf8StringFromParcel(parcel, type, sizeof(type));
    readUtf8StringFromParcel(parcel, dcall->ifname, sizeof(dcall->ifname));
    readUtf8StringFromParcel(parcel, addresses, sizeof(addresses));
    RLOGI("read from rild, ip_type = %s, ifname = %s, addresses = %s", type, dcall->ifname,
          addresses);
    parseIPAddress(type, addresses, &dcall->type, &dcall->ipv4Address, dcall->ipv6Address);
}

// Servers past the two per family are logged but not stored, and the counters stop at the
// arrays' size: the daemon's text is not bounded by the record.
static void readDnses(android::Parcel &parcel, ZOK_Data_Call_Response_v11 *dcall) {
    ZOK_LOG_AS(kSigReadDataCallFromParcel);
    char dnses[512];
    readUtf8StringFromParcel(parcel, dnses, sizeof(dnses));
    RLOGI("read from rild, dnses = (%s)", dnses);
    dcall->ipv4DnsNum = 0;
    dcall->ipv6DnsNum = 0;
    char *next = dnses;
    while (next != nullptr) {
        char *token = next;
        next = cutAtBlank(token);
        if (classifyIpAddressText(token) != 0) {
            RLOGI("ipv6 dns[%d] = %s", static_cast<int>(dcall->ipv6DnsNum), token);
            if (dcall->ipv6DnsNum >= ZOK_DNS_MAX) continue;
            ipv6TextToBytes(token, dcall->ipv6Dns[dcall->ipv6DnsNum++]);
        } else {
            RLOGI("ipv4 dns[%d] = %s", static_cast<int>(dcall->ipv4DnsNum), token);
            if (dcall->ipv4DnsNum >= ZOK_DNS_MAX) continue;
            ipv4TextToBytes(
                token, reinterpret_cast<unsigned char *>(&dcall->ipv4Dns[dcall->ipv4DnsNum++]));
        }
    }
}

static void readGateways(android::Parcel &parcel, ZOK_Data_Call_Response_v11 *dcall) {
    ZOK_LOG_AS(kSigReadDataCallFromParcel);
    char gateways[512];
    readUtf8StringFromParcel(parcel, gateways, sizeof(gateways));
    RLOGI("read from rild, gatewayes = (%s)", gateways);
    parseGatewayAddress(gateways, &dcall->ipv4Gateway, dcall->ipv6Gateway);
}

// The bearer reader does not read ddcId: concatenated bearers keep the caller's ddcId, while the
// default bearer's comes from the wire just before it.
static void readBearers(android::Parcel &parcel, ZOK_Data_Call_Response_v11 *dcall) {
    ZOK_LOG_AS(kSigReadDataCallFromParcel);
    int wireCount = parcel.readInt32();
    RLOGI("dcall->concatenateNum = %d", wireCount);
    ZOK_Dedicate_Data_Call_Struct scratch;
    for (int i = 0; i < wireCount; i++) {
        // Surplus bearers are consumed so that the default bearer after them stays aligned.
        ZOK_Dedicate_Data_Call_Struct *bearer = slotFor(parcel, dcall->concatenate, i, &scratch);
        if (bearer == nullptr) break;
        readDedicateDataFromParcel(parcel, bearer);
    }
    dcall->concatenateNum = storedCount(wireCount, ZOK_CONCATENATE_MAX);
    dcall->defaultBearerValid = 1;
    dcall->defaultBearer.ddcId = parcel.readInt32();
    readDedicateDataFromParcel(parcel, &dcall->defaultBearer);
}

void readDataCallFromParcel(android::Parcel &parcel, ZOK_Data_Call_Response_v11 *dcall, int version,
                            int hasEranType) {
    ZOK_LOG_SELF(kSigReadDataCallFromParcel);
    if (dcall == nullptr) return;
    dcall->status = parcel.readInt32();
    dcall->suggestedRetryTime = parcel.readInt32();
    dcall->cid = parcel.readInt32();
    dcall->active = parcel.readInt32();
    if (version != kVersionWithoutMtu) {
        RLOGI("read from rild, status = %d, suggestedRetryTime = %d, cid = %d, active = %d",
              dcall->status, dcall->suggestedRetryTime, dcall->cid, dcall->active);
    }
    readAddresses(parcel, dcall);
    readDnses(parcel, dcall);
    readGateways(parcel, dcall);
    if (version == kVersionWithoutMtu) return;

    // P-CSCF addresses reach the framework through the bearer records; this copy is only consumed.
    char pcscf[1024];
    readUtf8StringFromParcel(parcel, pcscf, sizeof(pcscf));
    dcall->mtuSize = parcel.readInt32();
    RLOGI("dcall->mtuSize = %d", dcall->mtuSize);
    if (version < kFirstExtendedVersion) return;

    readBearers(parcel, dcall);
    if (hasEranType) {
        dcall->eran_type = parcel.readInt32();
        RLOGI("dcall->eran_type = %d", dcall->eran_type);
    }
}

void parseIPAddress(char *ipType, char *addresses, int *type, unsigned int *ipv4,
                    unsigned char *ipv6) {
    ZOK_LOG_SELF(kSigParseIPAddress);
    if (ipType == nullptr || addresses == nullptr || type == nullptr) return;
    unsigned char *ipv4Bytes = reinterpret_cast<unsigned char *>(ipv4);
    if (strcmp(ipType, "IP") == 0) {
        *type = 0;
        ipv4TextToBytes(addresses, ipv4Bytes);
    } else if (strcmp(ipType, "IPV6") == 0) {
        *type = 1;
        ipv6TextToBytes(addresses, ipv6);
        if (ipv6 == nullptr) return;
        RLOGI("ipv6 = %d.%d.%d.%d.%d.%d.%d.%d.%d.%d.%d.%d.%d.%d.%d.%d", ipv6[0], ipv6[1], ipv6[2],
              ipv6[3], ipv6[4], ipv6[5], ipv6[6], ipv6[7], ipv6[8], ipv6[9], ipv6[10], ipv6[11],
              ipv6[12], ipv6[13], ipv6[14], ipv6[15]);
    } else if (strcmp(ipType, "IPV4V6") == 0) {
        *type = 2;
        char *second = cutAtBlank(addresses);
        if (second == nullptr) {
            RLOGE("invalid address (%s)", addresses);
            return;
        }
        ipv4TextToBytes(addresses, ipv4Bytes);
        ipv6TextToBytes(second, ipv6);
    } else {
        *type = -1;
        RLOGE("invalid ip_type = %s, type = %d", ipType, *type);
    }
}

void parseGatewayAddress(char *gateways, unsigned int *ipv4, unsigned int *ipv6) {
    ZOK_LOG_SELF(kSigParseGatewayAddress);
    if (gateways == nullptr) return;
    // Only the first gateway counts.
    cutAtBlank(gateways);
    if (classifyIpAddressText(gateways) != 0) {
        RLOGI("ipv6 gateway = %s", gateways);
        ipv6TextToBytes(gateways, reinterpret_cast<unsigned char *>(ipv6));
    } else {
        RLOGI("ipv4 gateway = %s", gateways);
        ipv4TextToBytes(gateways, reinterpret_cast<unsigned char *>(ipv4));
    }
}
