// Arbitrary Parcels through the record readers. The first byte picks the reader (and the data-call
// version); the rest is the Parcel. Records start filled with a pattern, as a caller's stack
// would leave them, so that fields a reader must not touch can be checked, and no stored count
// may exceed its array. A TFT read back from what the writer made of it must be the same.
#include <binder/Parcel.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "codec/bearer_record.h"
#include "codec/data_call_record.h"
#include "fuzz/fuzz_check.h"
#include "zok_records.h"

namespace {

constexpr unsigned char kPattern = 0xA5;

// A record on the heap, exactly its size, so a write past its end is caught too.
template <typename T>
T *patterned() {
    T *record = static_cast<T *>(malloc(sizeof(T)));
    memset(record, kPattern, sizeof(T));
    return record;
}

template <size_t N>
bool terminated(const char (&text)[N]) {
    return memchr(text, 0, N) != nullptr;
}

template <typename T>
bool untouched(const T &field) {
    const unsigned char *p = reinterpret_cast<const unsigned char *>(&field);
    for (size_t i = 0; i < sizeof(field); i++) {
        if (p[i] != kPattern) return false;
    }
    return true;
}

// A count never exceeds its array; a negative one is the sender's value and indexes nothing.
bool inRange(int32_t count, int32_t max) {
    return count <= max;
}

// How many elements a count stands for.
size_t elements(int32_t count) {
    return count > 0 ? static_cast<size_t>(count) : 0;
}

// A bearer without a list only has its count cleared, so the mask is checked by the list reader's
// own case.
void checkPcscf(const dm_pcscf_t &p) {
    check(p.count <= ZOK_PCSCF_MAX, "P-CSCF count within the list");
}

void checkTft(const ZOK_Tft &tft) {
    check(inRange(tft.pfNumber, ZOK_TFT_PF_MAX), "pfNumber within pfList");
    check(inRange(tft.linkedPfNumber, ZOK_TFT_LINKED_PF_MAX), "linkedPfNumber within its list");
    check(inRange(tft.authtokenFlowIdNumber, ZOK_TFT_AUTH_FLOW_MAX), "auth entries within list");
    for (int i = 0; i < tft.pfNumber; i++) {
        check(terminated(tft.pfList[i].address) && terminated(tft.pfList[i].mask),
              "filter texts end inside their fields");
    }
    for (int i = 0; i < tft.authtokenFlowIdNumber; i++) {
        const ZOK_AuthTokenFlowId &e = tft.authtokenFlowIdList[i];
        check(inRange(e.authTokenNumber, ZOK_TFT_AUTH_TOKEN_MAX), "tokens within their list");
        check(inRange(e.flowIdNumber, ZOK_TFT_FLOW_ID_MAX), "flow ids within their list");
    }
}

void checkBearer(const ZOK_Dedicate_Data_Call_Struct &b) {
    check(untouched(b.ddcId), "the bearer reader leaves ddcId alone");
    check(untouched(b.reserved), "the bearer reader leaves the trailing word alone");
    if (b.hasTft != 0) checkTft(b.tft);
    checkPcscf(b.pcscf);
}

bool ascii(const char *text) {
    for (; *text != 0; text++) {
        if (static_cast<unsigned char>(*text) >= 0x80) return false;
    }
    return true;
}

// The writer mirrors the reader: whatever the reader stored comes back from the writer's bytes.
void checkTftRoundTrip(const ZOK_Tft &first) {
    ZOK_Tft copy = first;
    android::Parcel parcel;
    writeTftStructToParcel(parcel, &copy);
    parcel.setDataPosition(0);
    ZOK_Tft *again = patterned<ZOK_Tft>();
    readTftStructFromParcel(parcel, again);
    check(parcel.dataPosition() == parcel.dataSize(), "the reader consumes what the writer wrote");
    check(again->operation == first.operation && again->pfNumber == first.pfNumber &&
              again->linkedPfNumber == first.linkedPfNumber &&
              again->authtokenFlowIdNumber == first.authtokenFlowIdNumber,
          "TFT counts survive a round trip");
    for (int i = 0; i < first.pfNumber; i++) {
        const ZOK_PktFilter &a = first.pfList[i];
        const ZOK_PktFilter &b = again->pfList[i];
        check(a.id == b.id && a.precedence == b.precedence && a.direction == b.direction &&
                  a.networkPfIdentifier == b.networkPfIdentifier && a.bitmap == b.bitmap &&
                  a.protocolNextHeader == b.protocolNextHeader &&
                  a.localPortLow == b.localPortLow && a.localPortHigh == b.localPortHigh &&
                  a.remotePortLow == b.remotePortLow && a.remotePortHigh == b.remotePortHigh &&
                  a.spi == b.spi && a.tos == b.tos && a.tosMask == b.tosMask &&
                  a.flowLabel == b.flowLabel,
              "filter fields survive a round trip");
        if (ascii(a.address)) check(strcmp(a.address, b.address) == 0, "ASCII address survives");
        if (ascii(a.mask)) check(strcmp(a.mask, b.mask) == 0, "ASCII mask survives");
    }
    check(memcmp(first.linkedPfList, again->linkedPfList,
                 sizeof(int32_t) * elements(first.linkedPfNumber)) == 0,
          "linked filters survive a round trip");
    for (int i = 0; i < first.authtokenFlowIdNumber; i++) {
        const ZOK_AuthTokenFlowId &a = first.authtokenFlowIdList[i];
        const ZOK_AuthTokenFlowId &b = again->authtokenFlowIdList[i];
        check(a.authTokenNumber == b.authTokenNumber && a.flowIdNumber == b.flowIdNumber &&
                  memcmp(a.authTokenList, b.authTokenList,
                         sizeof(int32_t) * elements(a.authTokenNumber)) == 0 &&
                  memcmp(a.flowIdList, b.flowIdList,
                         sizeof(a.flowIdList[0]) * elements(a.flowIdNumber)) == 0,
              "auth token entries survive a round trip");
    }
    free(again);
}

void readDataCall(android::Parcel &parcel, int version) {
    auto *d = patterned<ZOK_Data_Call_Response_v11>();
    readDataCallFromParcel(parcel, d, version, 1);
    check(d->type >= -1 && d->type <= 2, "address family is one of four");
    check(terminated(d->ifname), "ifname ends inside its field");
    check(d->ipv4DnsNum <= ZOK_DNS_MAX && d->ipv6DnsNum <= ZOK_DNS_MAX, "DNS counts bounded");
    check(untouched(d->reserved0) && untouched(d->reserved1) && untouched(d->simId) &&
              untouched(d->reserved2),
          "fields the reader never writes keep the caller's bytes");
    if (version == 6) {
        check(untouched(d->mtuSize) && untouched(d->concatenateNum) && untouched(d->eran_type),
              "version 6 stops after the gateways");
    } else if (version > 1000) {
        check(inRange(d->concatenateNum, ZOK_CONCATENATE_MAX), "concatenated bearers bounded");
        for (int i = 0; i < d->concatenateNum; i++) checkBearer(d->concatenate[i]);
        check(d->defaultBearerValid == 1, "the default bearer is always present");
        check(untouched(d->defaultBearer.reserved), "default bearer trailing word untouched");
        if (d->defaultBearer.hasTft != 0) checkTft(d->defaultBearer.tft);
        checkPcscf(d->defaultBearer.pcscf);
    } else {
        check(untouched(d->concatenateNum) && untouched(d->eran_type),
              "only extended versions carry bearers");
    }
    free(d);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    android::Parcel parcel;
    parcel.setData(data + 1, size - 1);
    switch (data[0] % 6) {
        case 0:
            readDataCall(parcel, 6);
            break;
        case 1:
            readDataCall(parcel, 11);
            break;
        case 2:
            readDataCall(parcel, 1001);
            break;
        case 3: {
            auto *b = patterned<ZOK_Dedicate_Data_Call_Struct>();
            readDedicateDataFromParcel(parcel, b);
            checkBearer(*b);
            free(b);
            break;
        }
        case 4: {
            auto *tft = patterned<ZOK_Tft>();
            readTftStructFromParcel(parcel, tft);
            checkTft(*tft);
            checkTftRoundTrip(*tft);
            free(tft);
            break;
        }
        default: {
            auto *p = patterned<dm_pcscf_t>();
            readPcscfFromParcel(parcel, p);
            checkPcscf(*p);
            check((p->ipv6Mask >> p->count) == 0, "IPv6 bits only for stored addresses");
            free(p);
            break;
        }
    }
    check(parcel.dataPosition() <= parcel.dataSize(), "reads stay inside the Parcel");
    return 0;
}
