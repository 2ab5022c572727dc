// The Parcel payloads the simulated daemon writes, shared by its answers and by the fuzz-seed
// generator. Any thread; no state.
#ifndef ZOK_TOOLS_SIM_PAYLOADS_H
#define ZOK_TOOLS_SIM_PAYLOADS_H

#include <binder/Parcel.h>
#include <stdint.h>

#include <initializer_list>
#include <vector>

namespace rild_sim {

std::vector<uint8_t> parcelBytes(const android::Parcel &parcel);
// A Parcel of int32 values, or of one text.
std::vector<uint8_t> int32Parcel(std::initializer_list<int32_t> values);
std::vector<uint8_t> textParcel(const char *text);
// An AT answer: int32 0, then the text unpadded (the entity reads the text 4 bytes in).
std::vector<uint8_t> atAnswerPayload(const char *text);

struct DataCallTexts {
    const char *addresses;
    const char *dnses;
    const char *gateways;
    const char *pcscf;
};
// One data-call entry: status 0, no retry time, `cid` active with its link up, IPV4V6 on
// rmnet_data0, the texts, MTU 1400. Version 6 ends after the gateways; the extended versions'
// bearers are the caller's to append.
void writeDataCallEntry(android::Parcel &parcel, int version, int cid, const DataCallTexts &texts);

}  // namespace rild_sim

#endif  // ZOK_TOOLS_SIM_PAYLOADS_H
