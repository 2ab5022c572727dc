// Host stand-in for Android's android::Parcel: the members this entity uses, with Android's
// signatures and wire format. Little-endian int32; a String16 is an int32 unit count, the units,
// one zero unit and zero padding to a multiple of 4; a null String16 is the int32 -1.
// Reads past the end yield 0 (int32) or null (String16) and never touch memory outside the data.
//
//     android::Parcel p;
//     p.writeInt32(7);
//     p.writeString16(u"ab", 2);           // 02 00 00 00 61 00 62 00 00 00 00 00
//     p.setDataPosition(0);
//     size_t n; const char16_t *s = (p.readInt32(), p.readString16Inplace(&n));  // n == 2
//
// Pitfall: a pointer from readString16Inplace points into the Parcel's buffer and dies with the
// next write or setData.
#ifndef ZOK_HOST_BINDER_PARCEL_H
#define ZOK_HOST_BINDER_PARCEL_H

#include <stddef.h>
#include <stdint.h>

namespace android {

typedef int32_t status_t;

enum {
    OK = 0,
    NO_ERROR = 0,
    NO_MEMORY = -12,
    BAD_VALUE = -22,
    NOT_ENOUGH_DATA = -61,
};

class Parcel {
public:
    Parcel();
    ~Parcel();
    Parcel(const Parcel &) = delete;
    Parcel &operator=(const Parcel &) = delete;

    const uint8_t *data() const;
    size_t dataSize() const;
    size_t dataPosition() const;
    void setDataPosition(size_t pos) const;
    // Copies `len` bytes and rewinds to position 0.
    status_t setData(const uint8_t *buffer, size_t len);

    status_t writeInt32(int32_t val);
    // A null `str` writes the null String16 (length -1) whatever `len` says.
    status_t writeString16(const char16_t *str, size_t len);

    int32_t readInt32() const;
    // Null with *outLen = 0 on any failure: null string, short data, or a terminator unit that
    // is not zero.
    const char16_t *readString16Inplace(size_t *outLen) const;

private:
    status_t growTo(size_t size);
    uint8_t *mData;
    size_t mDataSize;
    size_t mDataCapacity;
    mutable size_t mDataPos;
};

}  // namespace android

#endif  // ZOK_HOST_BINDER_PARCEL_H
