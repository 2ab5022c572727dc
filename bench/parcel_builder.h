// Daemon-side Parcels for the benchmarks: data-call entries as the daemon writes them (version 11,
// or 1001 with concatenated bearers carrying QoS, a full TFT and P-CSCF addresses), and the
// unsolicited data-call list around them. Built with the host Parcel's own writers and a plain
// ASCII widening, never with the entity's codec, so the input does not depend on what is measured.
#ifndef ZOK_BENCH_PARCEL_BUILDER_H
#define ZOK_BENCH_PARCEL_BUILDER_H

#include <binder/Parcel.h>
#include <stdint.h>

#include <vector>

namespace bench {

// One entry in the daemon's order. `bearers` concatenated bearers (only read for version >= 1001),
// each with 16 packet filters.
void writeDataCallEntry(android::Parcel &parcel, int version, int cid, int bearers);
// version | count | entries: the payload of RIL_UNSOL_DATA_CALL_LIST_CHANGED.
std::vector<uint8_t> dataCallListPayload(int version, int entries, int bearers);

}  // namespace bench

#endif  // ZOK_BENCH_PARCEL_BUILDER_H
