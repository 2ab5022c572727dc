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
void checkTft(const ZOK_Tft &tft) {
    check(tft.pfNumber <= ZOK_TFT_PF_MAX, "pfNumber within pfList");
    check(tft.linkedPfNumber <= ZOK_TFT_LINKED_PF_MAX, "linkedPfNumber within its list");
    check(tft.authtokenFlowIdNumber <= ZOK_TFT_AUTH_FLOW_MAX, "auth entries within list");
    for (int i = 0; i < tft.pfNumber; i++) {
        check(terminated(tft.pfList[i].address) && terminated(tft.pfList[i].mask),
              "filter texts end inside their fields");
    }
    for (int i = 0; i < tft.authtokenFlowIdNumber; i++) {
        const ZOK_AuthTokenFlowId &e = tft.authtokenFlowIdList[i];
        check(e.authTokenNumber <= ZOK_TFT_AUTH_TOKEN_MAX, "tokens within their list");
        check(e.flowIdNumber <= ZOK_TFT_FLOW_ID_MAX, "flow ids within their list");
    }
}

void checkBearer(const ZOK_Dedicate_Data_Call_Struct &b) {
    check(untouched(b.ddcId), "the bearer reader leaves ddcId alone");
    check(untouched(b.reserved), "the bearer reader leaves the trailing word alone");
    if (b.hasTft != 0) checkTft(b.tft);
    // Without a list only the count is cleared, so the mask is the list reader's own case's.
    check(b.pcscf.count <= ZOK_PCSCF_MAX, "P-CSCF count within the list");
}

bool ascii(const char *text) {
    for (; *text != 0; text++) {
        if (static_cast<unsigned char>(*text) >= 0x80) return false;
    }
    return true;
}

// The writer mirrors the reader: whatever the reader stored comes back from the writer's bytes,
// to the last byte of the record. Only a text outside ASCII may come back changed by its trip
// through UTF-16 (a malformed sequence, a character cut at the field's end); such a text is taken
// from the second read.
void checkTftRoundTrip(const ZOK_Tft &first) {
    ZOK_Tft copy;
    memcpy(&copy, &first, sizeof(copy));  // padding included
    android::Parcel parcel;
    writeTftStructToParcel(parcel, &copy);
    parcel.setDataPosition(0);
    ZOK_Tft *again = patterned<ZOK_Tft>();
    readTftStructFromParcel(parcel, again);
    check(parcel.dataPosition() == parcel.dataSize(), "the reader consumes what the writer wrote");
    for (int i = 0; i < first.pfNumber; i++) {
        ZOK_PktFilter &pf = copy.pfList[i];
        if (!ascii(pf.address)) memcpy(pf.address, again->pfList[i].address, sizeof(pf.address));
        if (!ascii(pf.mask)) memcpy(pf.mask, again->pfList[i].mask, sizeof(pf.mask));
    }
    check(memcmp(&copy, again, sizeof(copy)) == 0, "a TFT survives a round trip");
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
        check(d->concatenateNum <= ZOK_CONCATENATE_MAX, "concatenated bearers bounded");
        for (int i = 0; i < d->concatenateNum; i++) checkBearer(d->concatenate[i]);
        check(d->defaultBearerValid == 1, "the default bearer is always present");
        check(untouched(d->defaultBearer.reserved), "default bearer trailing word untouched");
        if (d->defaultBearer.hasTft != 0) checkTft(d->defaultBearer.tft);
        check(d->defaultBearer.pcscf.count <= ZOK_PCSCF_MAX, "P-CSCF count within the list");
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
    static const int kVersions[] = {6, 11, 1001};  // short, long, extended with bearers
    switch (data[0] % 6) {
        case 0:
        case 1:
        case 2:
            readDataCall(parcel, kVersions[data[0] % 6]);
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
            check(p->count <= ZOK_PCSCF_MAX, "P-CSCF count within the list");
            check((p->ipv6Mask >> p->count) == 0, "IPv6 bits only for stored addresses");
            free(p);
            break;
        }
    }
    check(parcel.dataPosition() <= parcel.dataSize(), "reads stay inside the Parcel");
    return 0;
}
