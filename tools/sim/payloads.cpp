// The Parcel payloads the simulated daemon writes, through the entity's own string codec so that
// the texts are the daemon's UTF-16. Any thread; no state.
#include "tools/sim/payloads.h"

#include <string.h>

#include "codec/parcel_strings.h"

namespace rild_sim {

namespace {

constexpr int kVersionWithoutMtu = 6;
constexpr int32_t kMtu = 1400;

}  // namespace

std::vector<uint8_t> parcelBytes(const android::Parcel &parcel) {
    return std::vector<uint8_t>(parcel.data(), parcel.data() + parcel.dataSize());
}

std::vector<uint8_t> int32Parcel(std::initializer_list<int32_t> values) {
    android::Parcel parcel;
    for (int32_t v : values) parcel.writeInt32(v);
    return parcelBytes(parcel);
}

std::vector<uint8_t> textParcel(const char *text) {
    android::Parcel parcel;
    writeUtf8StringToParcel(parcel, text);
    return parcelBytes(parcel);
}

std::vector<uint8_t> atAnswerPayload(const char *text) {
    const size_t length = strlen(text);
    std::vector<uint8_t> out(4 + length, 0);
    memcpy(out.data() + 4, text, length);
    return out;
}

void writeDataCallEntry(android::Parcel &parcel, int version, int cid, const DataCallTexts &texts) {
    parcel.writeInt32(0);   // status
    parcel.writeInt32(-1);  // suggested retry time: none
    parcel.writeInt32(cid);
    parcel.writeInt32(2);  // active, link up
    writeUtf8StringToParcel(parcel, "IPV4V6");
    writeUtf8StringToParcel(parcel, "rmnet_data0");
    writeUtf8StringToParcel(parcel, texts.addresses);
    writeUtf8StringToParcel(parcel, texts.dnses);
    writeUtf8StringToParcel(parcel, texts.gateways);
    if (version == kVersionWithoutMtu) return;
    writeUtf8StringToParcel(parcel, texts.pcscf);
    parcel.writeInt32(kMtu);
}

}  // namespace rild_sim
