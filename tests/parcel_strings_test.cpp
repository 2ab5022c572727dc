// The host Parcel under them, which must be byte-compatible with Android's (the daemon reads and
// writes this layout); texts and integers as Parcel String16, String16 read back into bounded
// buffers, and the UTF-8 <-> UTF-16 converters under them: replacement of broken input,
// surrogates, zero units.
#include "codec/parcel_strings.h"

#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <type_traits>

#include "support/bytes.h"

using android::Parcel;
using android::status_t;

namespace {

// Android's signatures, held here because Debian ships no libbinder headers to compile against.
#define ZOK_PARCEL_SIGNATURE(member, type) \
    static_assert(std::is_same<decltype(&Parcel::member), type>::value, #member)
ZOK_PARCEL_SIGNATURE(writeInt32, status_t (Parcel::*)(int32_t));
ZOK_PARCEL_SIGNATURE(readInt32, int32_t (Parcel::*)() const);
ZOK_PARCEL_SIGNATURE(writeString16, status_t (Parcel::*)(const char16_t *, size_t));
ZOK_PARCEL_SIGNATURE(readString16Inplace, const char16_t *(Parcel::*)(size_t *) const);
ZOK_PARCEL_SIGNATURE(setData, status_t (Parcel::*)(const uint8_t *, size_t));
ZOK_PARCEL_SIGNATURE(data, const uint8_t *(Parcel::*)() const);
ZOK_PARCEL_SIGNATURE(dataSize, size_t (Parcel::*)() const);

TEST(ParcelStringsTest, SetDataCopiesAndRewindsAndWritesGrow) {
    std::vector<uint8_t> data = bytes("2a 00 00 00");
    Parcel p;
    p.writeInt32(5);
    p.setData(data.data(), data.size());
    data[0] = 0;
    EXPECT_EQ(p.dataSize(), 4u);
    EXPECT_EQ(p.readInt32(), 42);
    for (int i = 0; i < 10000; i++) p.writeInt32(i);
    ASSERT_EQ(p.dataSize(), 40004u);
    p.setDataPosition(4);
    for (int i = 0; i < 10000; i++) ASSERT_EQ(p.readInt32(), i);
}

// Positive numbers and texts are the handler rows'; the sign and the null text only show here.
TEST(ParcelStringsTest, NegativeIntegersAndTheNullTextTravelAsString16) {
    android::Parcel p;
    writeIntAsStringToParcel(p, -5);
    writeUtf8StringToParcel(p, nullptr);
    EXPECT_EQ(hex(p.data(), p.dataSize()), "02 00 00 00 2d 00 35 00 00 00 00 00 ff ff ff ff");
}

TEST(ParcelStringsTest, ReadsIntoBoundedBufferAndSpellsOutNull) {
    const struct {
        const char *wire;
        int destSize;
        const char *expected;  // hex
        size_t endPosition;
    } cases[] = {
        {"02 00 00 00 61 00 62 00 00 00 00 00", 16, "61 62", 12},
        {"03 00 00 00 61 00 e9 00 62 00 00 00", 3, "61 c3", 12},  // cut mid-sequence
        {"02 00 00 00 61 00 62 00 00 00 00 00", 1, "", 12},
        {"", 16, "28 6e 75 6c 6c 29", 0},                         // Parcel ran out
        {"05 00 00 00 61 00", 16, "28 6e 75 6c 6c 29", 4},        // short String16
        {"01 00 00 00 61 00 01 00", 16, "28 6e 75 6c 6c 29", 8},  // bad terminator
        {"ff ff ff ff", 4, "28 6e 75", 4},                        // "(null)", cut to the buffer
        {"01 02", 16, "28 6e 75 6c 6c 29", 0},                    // no room for the count
        {"7f ff ff ff", 16, "28 6e 75 6c 6c 29", 4},              // huge count
        // Padding is skipped whatever its bytes (some daemons pad with 0xFF).
        {"02 00 00 00 61 00 62 00 00 00 ff ff 07 00 00 00", 16, "61 62", 12},
    };
    for (const auto &c : cases) {
        android::Parcel p;
        std::vector<uint8_t> wire = bytes(c.wire);
        p.setData(wire.data(), wire.size());
        char dest[16];
        memset(dest, 'x', sizeof(dest));
        readUtf8StringFromParcel(p, dest, c.destSize);
        ASSERT_LT(strlen(dest), static_cast<size_t>(c.destSize)) << c.wire;
        EXPECT_EQ(hex(dest, strlen(dest)), c.expected) << c.wire;
        EXPECT_EQ(p.dataPosition(), c.endPosition) << c.wire;
    }
}

TEST(UtfConvertTest, Utf8ToUtf16ReplacesEachBrokenSequenceOnce) {
    const struct {
        const char *utf8;  // hex
        std::u16string units;
    } cases[] = {
        {"41 c3", {0x41, 0xFFFD}},          // truncated at the end of the text
        {"c3 41", {0xFFFD, 0x41}},          // the byte that broke it is kept
        {"80", {0xFFFD}},                   // stray continuation
        {"c3 a9 80", {0xE9, 0xFFFD}},       // one continuation too many
        {"e2 82 41", {0xFFFD, 0x41}},       // truncated mid-sequence
        {"f0 9f 98 80", {0xD83D, 0xDE00}},  // U+1F600 as a surrogate pair
        {"f4 8f bf bd", {0xDBFF, 0xDFFD}},  // U+10FFFD, the last one kept
        {"f4 8f bf bf", {0xFFFD}},          // U+10FFFF replaced
        {"ed a0 80", {0xD800}},             // encoded surrogate passed through
        {"c1 81", {0x41}},                  // overlong form decoded
        {"f8 88 80 80", {0x8000}},          // F8 taken as a 4-byte lead
        {"7f c2 80 ef bf bf", {0x7F, 0x80, 0xFFFF}},
        // Lead bytes at the edges of each length class, each followed by a plain byte.
        {"bf 41", {0xFFFD, 0x41}},                   // last continuation value
        {"c0 80 41", {0x0000, 0x41}},                // first 2-byte lead
        {"df bf 41", {0x07FF, 0x41}},                // last 2-byte lead
        {"e0 a0 80 41", {0x0800, 0x41}},             // first 3-byte lead
        {"ef bf bf 41", {0xFFFF, 0x41}},             // last 3-byte lead
        {"f0 90 80 80 41", {0xD800, 0xDC00, 0x41}},  // first 4-byte lead
    };
    for (const auto &c : cases) {
        std::vector<uint8_t> raw = bytes(c.utf8);
        std::string text(raw.begin(), raw.end());  // plain char: signed on x86_64
        size_t n = 12345;
        char16_t *units = dupUtf8ToUtf16(text.c_str(), &n);
        ASSERT_NE(units, nullptr) << c.utf8;
        EXPECT_EQ(std::u16string(units, n), c.units) << c.utf8;
        free(units);
    }
    size_t n = 77;
    EXPECT_EQ(dupUtf8ToUtf16(nullptr, &n), nullptr);
    EXPECT_EQ(n, 77u);  // a null text leaves the count alone
}

TEST(UtfConvertTest, Utf16ToUtf8EncodesUnitByUnit) {
    const struct {
        std::u16string units;
        const char *utf8;  // hex
    } cases[] = {
        {u"", ""},
        {{0xD83D, 0xDE00}, "ed a0 bd ed b8 80"},  // pair not combined
        {{0x61, 0x0000, 0x62}, "61 c0 80 62"},    // zero unit does not end the text
        {{0x7F, 0x80, 0x7FF, 0x800, 0xFFFF}, "7f c2 80 df bf e0 a0 80 ef bf bf"},
    };
    for (const auto &c : cases) {
        char *text = dupUtf16ToUtf8(c.units.data(), c.units.size());
        ASSERT_NE(text, nullptr);
        EXPECT_EQ(hex(text, strlen(text)), c.utf8);
        free(text);
    }
    EXPECT_EQ(dupUtf16ToUtf8(nullptr, 3), nullptr);
}

}  // namespace
