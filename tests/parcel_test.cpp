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
