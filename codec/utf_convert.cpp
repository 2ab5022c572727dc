// The entity's own UTF-8 <-> UTF-16 converters beneath the Parcel string helpers. Pure functions;
// any thread. Bytes are handled as unsigned char so signed-char targets decode the same way.
#include <stdint.h>
#include <stdlib.h>

#include "codec/parcel_strings.h"

namespace {

// Two bits per top nibble of a lead byte: sequence length minus one (0x0-0xB: 1, 0xC-0xD: 2,
// 0xE: 3, 0xF: 4). 0xF8-0xFF are deliberately taken as 4-byte leads rather than rejected.
constexpr uint32_t kLeadLengths = 0xE5000000u;
constexpr unsigned char kLeadMask[4] = {0xFF, 0x1F, 0x0F, 0x07};
constexpr uint32_t kReplacement = 0xFFFD;
// 0x10FFFE and 0x10FFFF are replaced too; the daemon's side never accepted them.
constexpr uint32_t kMaxCodePoint = 0x10FFFD;

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

int sequenceLength(unsigned char lead) {
    return static_cast<int>((kLeadLengths >> ((lead >> 3) & 0x1E)) & 3) + 1;
}

// Upper bound of the units copyUtf8ToUtf16 stores: every 4-byte lead reserves a surrogate pair
// even when its sequence turns out broken or short, so the buffer is never too small.
size_t countUtf8AsUtf16(const unsigned char *text) {
    size_t units = 0;
    int expected = 0;
    for (; *text != 0; text++) {
        if (isContinuation(*text)) {
            if (--expected < 0) units++;
            continue;
        }
        int length = sequenceLength(*text);
        expected = length - 1;
        units += (length == 4) ? 2 : 1;
    }
    return units;
}

// A broken sequence costs exactly one replacement character: the cursor stays on the byte that
// broke it, which is then decoded as the start of the next code point, so no text is lost.
uint32_t decodeUtf8CodePoint(const unsigned char **cursor) {
    const unsigned char *p = *cursor;
    if (isContinuation(*p)) {
        *cursor = p + 1;
        return kReplacement;
    }
    int length = sequenceLength(*p);
    uint32_t value = *p & kLeadMask[length - 1];
    if (*p == 0) return value;
    p++;
    for (int i = 1; i < length; i++, p++) {
        if (*p == 0 || !isContinuation(*p)) {
            *cursor = p;
            return kReplacement;
        }
        value = (value << 6) | (*p & 0x3F);
    }
    *cursor = p;
    return value;
}

// Overlong forms and encoded surrogates are passed through as decoded, unit for unit.
size_t copyUtf8ToUtf16(const unsigned char *text, char16_t *out) {
    size_t units = 0;
    while (*text != 0) {
        uint32_t value = decodeUtf8CodePoint(&text);
        if (value <= 0xFFFF) {
            out[units++] = static_cast<char16_t>(value);
        } else if (value <= kMaxCodePoint) {
            out[units++] = static_cast<char16_t>(0xD800 | ((value - 0x10000) >> 10));
            out[units++] = static_cast<char16_t>(0xDC00 | (value & 0x3FF));
        } else {
            out[units++] = static_cast<char16_t>(kReplacement);
        }
    }
    return units;
}

// A zero unit counts two bytes: it is written as C0 80 so it does not end the text early.
size_t countUtf16AsUtf8(const char16_t *units, size_t count) {
    size_t bytes = 0;
    for (size_t i = 0; i < count; i++) {
        uint16_t u = units[i];
        if (u > 0x7FF) {
            bytes += 3;
        } else if (u > 0x7F || u == 0) {
            bytes += 2;
        } else {
            bytes += 1;
        }
    }
    return bytes;
}

// Each unit is encoded on its own, as modified UTF-8 does: a surrogate pair becomes two 3-byte
// sequences, never one 4-byte sequence. Returns the bytes written to `out` (1 to 3).
size_t encodeUtf16Unit(uint16_t u, unsigned char *out) {
    if (u > 0x7FF) {
        out[0] = static_cast<unsigned char>(0xE0 | (u >> 12));
        out[1] = static_cast<unsigned char>(0x80 | ((u >> 6) & 0x3F));
        out[2] = static_cast<unsigned char>(0x80 | (u & 0x3F));
        return 3;
    }
    if (u > 0x7F || u == 0) {
        out[0] = static_cast<unsigned char>(0xC0 | (u >> 6));
        out[1] = static_cast<unsigned char>(0x80 | (u & 0x3F));
        return 2;
    }
    out[0] = static_cast<unsigned char>(u);
    return 1;
}

void copyUtf16ToUtf8(const char16_t *units, size_t count, unsigned char *out) {
    for (size_t i = 0; i < count; i++) out += encodeUtf16Unit(units[i], out);
    *out = 0;
}

}  // namespace

char16_t *dupUtf8ToUtf16(const char *text, size_t *outUnits) {
    if (text == nullptr) return nullptr;
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>(text);
    size_t count = countUtf8AsUtf16(bytes);
    if (count != 0 && SIZE_MAX / count < sizeof(char16_t)) return nullptr;
    // An empty text still yields a pointer the caller frees: malloc(0) may return null on some
    // libcs, which would turn "" into the null String16 on the wire.
    char16_t *units = static_cast<char16_t *>(malloc((count ? count : 1) * sizeof(char16_t)));
    if (units == nullptr) return nullptr;
    *outUnits = copyUtf8ToUtf16(bytes, units);
    return units;
}

char *dupUtf16ToUtf8(const char16_t *units, size_t count) {
    if (units == nullptr) return nullptr;
    // Parcel lengths are int32, so this only bites where size_t is 32 bits; it keeps the byte
    // count below from wrapping into a short allocation.
    if (count > (SIZE_MAX - 1) / 3) return nullptr;
    size_t bytes = countUtf16AsUtf8(units, count);
    unsigned char *text = static_cast<unsigned char *>(malloc(bytes + 1));
    if (text == nullptr) return nullptr;
    copyUtf16ToUtf8(units, count, text);
    return reinterpret_cast<char *>(text);
}

size_t copyUtf16ToUtf8Bounded(const char16_t *units, size_t count, char *dest, size_t destSize) {
    if (dest == nullptr || destSize == 0) return 0;
    unsigned char *out = reinterpret_cast<unsigned char *>(dest);
    size_t room = destSize - 1;
    size_t used = 0;
    for (size_t i = 0; i < count && used < room; i++) {
        unsigned char encoded[3];
        size_t n = encodeUtf16Unit(units[i], encoded);
        // Cut at the byte, as a bounded copy of the whole text would, even inside a sequence.
        for (size_t k = 0; k < n && used < room; k++) out[used++] = encoded[k];
    }
    out[used] = 0;
    return used;
}
