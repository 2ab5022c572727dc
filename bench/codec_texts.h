// The inputs of the codec benchmarks and of their callgrind driver, so both measure the same work:
// a data-call entry of version 1001 with eleven concatenated bearers, each with QoS, a TFT of 16
// packet filters and P-CSCF addresses; a short (16-byte) and a 4 KiB UTF-8 text.
#ifndef ZOK_BENCH_CODEC_TEXTS_H
#define ZOK_BENCH_CODEC_TEXTS_H

#include <binder/Parcel.h>

#include <string>

#include "bench/parcel_builder.h"

namespace bench {

constexpr int kHeavyBearers = 11;

inline void heavyEntry(android::Parcel &parcel) {
    writeDataCallEntry(parcel, 1001, 1, kHeavyBearers);
}

// An APN-sized ASCII text.
inline std::string shortText() {
    return "ims.mnc001.mcc00";
}

// 4096 bytes: mostly ASCII, with two- and three-byte sequences as real operator texts carry.
inline std::string longText() {
    const std::string unit = "P-CSCF 2001:db8::1 caf\xc3\xa9 \xe4\xb8\xad\xe6\x96\x87 ims;";
    std::string text;
    while (text.size() + unit.size() <= 4096) text += unit;
    text.append(4096 - text.size(), 'x');
    return text;
}

}  // namespace bench

#endif  // ZOK_BENCH_CODEC_TEXTS_H
