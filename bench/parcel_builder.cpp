// Daemon-side Parcels for the benchmarks; any thread, no state.
#include "bench/parcel_builder.h"

#include <string.h>

#include <string>

namespace bench {

namespace {

void writeAscii(android::Parcel &parcel, const std::string &text) {
    std::u16string units(text.begin(), text.end());
    parcel.writeString16(units.data(), units.size());
}

void writeBearer(android::Parcel &parcel, int cid) {
    const int32_t head[] = {1, 5, cid, 2, 0, 6 + cid % 9, 0};  // interface .. failCause
    for (int32_t v : head) parcel.writeInt32(v);
    parcel.writeInt32(1);  // hasQos
    for (int32_t v : {1, 64000, 64000, 128000, 128000}) parcel.writeInt32(v);
    parcel.writeInt32(1);  // hasTft
    parcel.writeInt32(1);  // operation
    parcel.writeInt32(16);
    for (int pf = 0; pf < 16; pf++) {
        for (int32_t v : {pf + 1, pf, 3, pf, 0x3F}) parcel.writeInt32(v);
        writeAscii(parcel, "32.1.72.96.0.0.0.0.0.0.0.0.0.0.0." + std::to_string(pf + 1));
        writeAscii(parcel, "255.255.255.255.255.255.255.255.0.0.0.0.0.0.0.0");
        for (int32_t v : {17, 5060, 5060, 30000 + pf, 30100 + pf, 0, 0xB8, 0xFC, 0})
            parcel.writeInt32(v);
    }
    parcel.writeInt32(4);
    for (int i = 0; i < 4; i++) parcel.writeInt32(i + 1);
    parcel.writeInt32(1);  // one auth token / flow id entry
    parcel.writeInt32(2);
    parcel.writeInt32(7);
    parcel.writeInt32(8);
    parcel.writeInt32(1);
    for (int32_t v : {1, 2, 3, 4}) parcel.writeInt32(v);
    parcel.writeInt32(1);  // hasPcscf
    writeAscii(parcel,
               "32.1.72.96.0.0.0.0.0.0.0.0.0.0.0.1 32.1.72.96.0.0.0.0.0.0.0.0.0.0.0.2 10.0.0.1");
}

}  // namespace

void writeDataCallEntry(android::Parcel &parcel, int version, int cid, int bearers) {
    for (int32_t v : {0, -1, cid, 2}) parcel.writeInt32(v);  // status, retry, cid, active
    writeAscii(parcel, "IPV4V6");
    writeAscii(parcel, "ccmni" + std::to_string(cid));
    writeAscii(parcel, "10.170.3.12 32.1.72.96.0.0.0.0.0.0.0.0.0.0.0.1");
    writeAscii(parcel, "10.170.0.1 10.170.0.2 32.1.72.96.0.0.0.0.0.0.0.0.0.0.0.53");
    writeAscii(parcel, "10.170.3.1 32.1.72.96.0.0.0.0.0.0.0.0.0.0.0.254");
    if (version == 6) return;
    writeAscii(parcel, "10.170.0.10 32.1.72.96.0.0.0.0.0.0.0.0.0.0.0.10");
    parcel.writeInt32(1500);
    if (version < 1001) return;
    parcel.writeInt32(bearers);
    for (int b = 0; b < bearers; b++) writeBearer(parcel, cid + 1 + b);
    parcel.writeInt32(cid);  // default bearer's ddcId
    writeBearer(parcel, cid);
    parcel.writeInt32(1);  // eran_type
}

std::vector<uint8_t> dataCallListPayload(int version, int entries, int bearers) {
    android::Parcel parcel;
    parcel.writeInt32(version);
    parcel.writeInt32(entries);
    for (int i = 0; i < entries; i++) writeDataCallEntry(parcel, version, i + 1, bearers);
    return std::vector<uint8_t>(parcel.data(), parcel.data() + parcel.dataSize());
}

}  // namespace bench
