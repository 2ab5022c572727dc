// Texts and integers as Parcel String16, and String16 read back into bounded buffers.
#include "codec/parcel_strings.h"

#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include "support/bytes.h"

namespace {

TEST(ParcelStringsTest, IntegersAndTextsTravelAsString16) {
    android::Parcel p;
    writeIntAsStringToParcel(p, 0);
    writeIntAsStringToParcel(p, -5);
    writeIntAsStringToParcel(p, INT_MIN);
    writeUtf8StringToParcel(p, "");
    writeUtf8StringToParcel(p, nullptr);
    writeUtf8StringToParcel(p,
                            "\xc3\xa9"
                            "b");
    EXPECT_EQ(hex(p.data(), p.dataSize()),
              "01 00 00 00 30 00 00 00 "
              "02 00 00 00 2d 00 35 00 00 00 00 00 "
              "0b 00 00 00 2d 00 32 00 31 00 34 00 37 00 34 00 38 00 33 00 36 00 34 00 38 00 00 00 "
              "00 00 00 00 00 00 00 00 "
              "ff ff ff ff "
              "02 00 00 00 e9 00 62 00 00 00 00 00");
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
        {"ff ff ff ff", 16, "28 6e 75 6c 6c 29", 4},              // "(null)"
        {"", 16, "28 6e 75 6c 6c 29", 0},                         // Parcel ran out
        {"05 00 00 00 61 00", 16, "28 6e 75 6c 6c 29", 4},        // short String16
        {"01 00 00 00 61 00 01 00", 16, "28 6e 75 6c 6c 29", 8},  // bad terminator
        {"ff ff ff ff", 4, "28 6e 75", 4},
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

}  // namespace
