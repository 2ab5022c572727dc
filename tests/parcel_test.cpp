// The host Parcel must be byte-compatible with Android's: the daemon reads and writes this layout.
#include <binder/Parcel.h>
#include <gtest/gtest.h>

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

TEST(ParcelTest, Int32IsLittleEndianAndNullString16IsMinusOne) {
    Parcel p;
    p.writeInt32(1);
    p.writeInt32(0x12345678);
    p.writeString16(nullptr, 5);
    EXPECT_EQ(hex(p.data(), p.dataSize()), "01 00 00 00 78 56 34 12 ff ff ff ff");
}

TEST(ParcelTest, String16LayoutIsCountUnitsTerminatorPadding) {
    const struct {
        std::u16string text;
        const char *wire;
    } cases[] = {
        {u"", "00 00 00 00 00 00 00 00"},
        {u"a", "01 00 00 00 61 00 00 00"},
        {u"ab", "02 00 00 00 61 00 62 00 00 00 00 00"},
        {u"\u00e9\U0001F600", "03 00 00 00 e9 00 3d d8 00 de 00 00"},
    };
    for (const auto &c : cases) {
        Parcel p;
        p.writeString16(c.text.data(), c.text.size());
        EXPECT_EQ(hex(p.data(), p.dataSize()), c.wire);
        p.setDataPosition(0);
        size_t len = 99;
        const char16_t *s = p.readString16Inplace(&len);
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(std::u16string(s, len), c.text);
        EXPECT_EQ(p.dataPosition(), p.dataSize());
    }
}

// A read that the data cannot satisfy yields null (String16) or 0 (int32, cursor left alone);
// padding after a String16 is skipped whatever its bytes (some daemons pad with 0xFF).
TEST(ParcelTest, String16Reads) {
    const struct {
        const char *wire;
        const char16_t *text;  // null: no String16
        size_t end;
    } cases[] = {
        {"", nullptr, 0},
        {"01 02", nullptr, 0},
        {"ff ff ff ff", nullptr, 4},              // null String16
        {"05 00 00 00 61 00", nullptr, 4},        // five units announced, one present
        {"7f ff ff ff", nullptr, 4},              // huge count
        {"01 00 00 00 61 00 62 00", nullptr, 8},  // terminator unit is not zero
        {"02 00 00 00 61 00 62 00 00 00 ff ff 07 00 00 00", u"ab", 12},
    };
    for (const auto &c : cases) {
        std::vector<uint8_t> data = bytes(c.wire);
        Parcel p;
        p.setData(data.data(), data.size());
        size_t len = 99;
        const char16_t *s = p.readString16Inplace(&len);
        EXPECT_EQ(s ? std::u16string(s, len) : u"null", c.text ? c.text : u"null") << c.wire;
        EXPECT_EQ(len, c.text ? std::u16string(c.text).size() : 0u) << c.wire;
        EXPECT_EQ(p.dataPosition(), c.end) << c.wire;
        EXPECT_EQ(p.readInt32(), data.size() == 16 ? 7 : 0) << c.wire;
    }
}

TEST(ParcelTest, SetDataCopiesAndRewindsAndWritesGrow) {
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

}  // namespace
