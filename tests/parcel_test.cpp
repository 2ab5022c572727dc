// The host Parcel must be byte-compatible with Android's: the daemon reads and writes this layout.
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <type_traits>

#include "support/bytes.h"

using android::Parcel;

namespace {

std::string dump(const Parcel &p) {
    return hex(p.data(), p.dataSize());
}

// Android's signatures, held here because Debian ships no libbinder headers to compile against.
static_assert(
    std::is_same<decltype(&Parcel::writeInt32), android::status_t (Parcel::*)(int32_t)>::value);
static_assert(std::is_same<decltype(&Parcel::readInt32), int32_t (Parcel::*)() const>::value);
static_assert(std::is_same<decltype(&Parcel::writeString16),
                           android::status_t (Parcel::*)(const char16_t *, size_t)>::value);
static_assert(std::is_same<decltype(&Parcel::readString16Inplace),
                           const char16_t *(Parcel::*)(size_t *) const>::value);
static_assert(std::is_same<decltype(&Parcel::setData),
                           android::status_t (Parcel::*)(const uint8_t *, size_t)>::value);
static_assert(std::is_same<decltype(&Parcel::data), const uint8_t *(Parcel::*)() const>::value);
static_assert(std::is_same<decltype(&Parcel::dataSize), size_t (Parcel::*)() const>::value);

TEST(ParcelTest, Int32IsLittleEndian) {
    Parcel p;
    p.writeInt32(1);
    p.writeInt32(-1);
    p.writeInt32(0x12345678);
    EXPECT_EQ(dump(p), "01 00 00 00 ff ff ff ff 78 56 34 12");
}

struct String16Case {
    std::u16string text;
    const char *wire;
};

TEST(ParcelTest, String16LayoutIsCountUnitsTerminatorPadding) {
    const String16Case cases[] = {
        {u"", "00 00 00 00 00 00 00 00"},
        {u"a", "01 00 00 00 61 00 00 00"},
        {u"ab", "02 00 00 00 61 00 62 00 00 00 00 00"},
        {u"abc", "03 00 00 00 61 00 62 00 63 00 00 00"},
        {u"\u00e9\U0001F600", "03 00 00 00 e9 00 3d d8 00 de 00 00"},
    };
    for (const auto &c : cases) {
        Parcel p;
        p.writeString16(c.text.data(), c.text.size());
        EXPECT_EQ(dump(p), c.wire);
        p.setDataPosition(0);
        size_t len = 99;
        const char16_t *s = p.readString16Inplace(&len);
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(std::u16string(s, len), c.text);
        EXPECT_EQ(p.dataPosition(), p.dataSize());
    }
}

TEST(ParcelTest, NullString16IsMinusOne) {
    Parcel p;
    p.writeString16(nullptr, 5);
    EXPECT_EQ(dump(p), "ff ff ff ff");
    p.setDataPosition(0);
    size_t len = 99;
    EXPECT_EQ(p.readString16Inplace(&len), nullptr);
    EXPECT_EQ(len, 0u);
}

TEST(ParcelTest, ReadsPastTheEndGiveZeroAndNull) {
    const std::vector<uint8_t> cases[] = {
        {},
        bytes("01 02"),
        bytes("05 00 00 00 61 00"),        // five units announced, one present
        bytes("7f ff ff ff"),              // huge count
        bytes("01 00 00 00 61 00 62 00"),  // terminator unit is not zero
    };
    for (const auto &data : cases) {
        Parcel p;
        p.setData(data.data(), data.size());
        size_t len = 99;
        EXPECT_EQ(p.readString16Inplace(&len), nullptr) << hex(data);
        EXPECT_EQ(len, 0u);
        p.setDataPosition(0);
        if (data.size() < 4) {
            EXPECT_EQ(p.readInt32(), 0);
        }
    }
    Parcel empty;
    EXPECT_EQ(empty.readInt32(), 0);
    EXPECT_EQ(empty.readInt32(), 0);
    EXPECT_EQ(empty.dataPosition(), 0u);
}

TEST(ParcelTest, PaddingBytesAreIgnoredOnRead) {
    // Some daemons pad with 0xFF.
    auto data = bytes("01 00 00 00 61 00 00 00 02 00 00 00 61 00 62 00 00 00 ff ff 07 00 00 00");
    Parcel p;
    p.setData(data.data(), data.size());
    size_t len;
    ASSERT_NE(p.readString16Inplace(&len), nullptr);
    const char16_t *s = p.readString16Inplace(&len);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(std::u16string(s, len), u"ab");
    EXPECT_EQ(p.readInt32(), 7);
}

TEST(ParcelTest, SetDataCopiesAndRewinds) {
    std::vector<uint8_t> data = bytes("2a 00 00 00");
    Parcel p;
    p.writeInt32(5);
    p.setData(data.data(), data.size());
    data[0] = 0;
    EXPECT_EQ(p.dataPosition(), 0u);
    EXPECT_EQ(p.dataSize(), 4u);
    EXPECT_EQ(p.readInt32(), 42);
    p.setData(nullptr, 0);
    EXPECT_EQ(p.dataSize(), 0u);
    EXPECT_EQ(p.readInt32(), 0);
}

TEST(ParcelTest, GrowsAcrossManyWrites) {
    Parcel p;
    for (int i = 0; i < 10000; i++) p.writeInt32(i);
    ASSERT_EQ(p.dataSize(), 40000u);
    p.setDataPosition(0);
    for (int i = 0; i < 10000; i++) ASSERT_EQ(p.readInt32(), i);
}

}  // namespace
