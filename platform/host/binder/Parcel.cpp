// Host android::Parcel: a growable byte buffer with a cursor, laid out as Android's Parcel lays
// out int32 and String16. Used on whatever thread owns the Parcel; no internal locking.
#include <binder/Parcel.h>
#include <stdlib.h>
#include <string.h>

namespace android {

namespace {

constexpr size_t kAlign = 4;

size_t padSize(size_t len) {
    return (len + kAlign - 1) & ~(kAlign - 1);
}

}  // namespace

Parcel::Parcel() : mData(nullptr), mDataSize(0), mDataCapacity(0), mDataPos(0) {}

Parcel::~Parcel() {
    free(mData);
}

const uint8_t *Parcel::data() const {
    return mData;
}

size_t Parcel::dataSize() const {
    return mDataSize;
}

size_t Parcel::dataPosition() const {
    return mDataPos;
}

void Parcel::setDataPosition(size_t pos) const {
    mDataPos = pos;
}

status_t Parcel::growTo(size_t size) {
    if (size <= mDataCapacity) return NO_ERROR;
    size_t capacity = mDataCapacity ? mDataCapacity : 64;
    while (capacity < size) {
        if (capacity > SIZE_MAX / 2) return NO_MEMORY;
        capacity *= 2;
    }
    uint8_t *grown = static_cast<uint8_t *>(realloc(mData, capacity));
    if (grown == nullptr) return NO_MEMORY;
    mData = grown;
    mDataCapacity = capacity;
    return NO_ERROR;
}

status_t Parcel::setData(const uint8_t *buffer, size_t len) {
    if (len > INT32_MAX) return BAD_VALUE;
    mDataSize = 0;
    mDataPos = 0;
    status_t err = growTo(len);
    if (err != NO_ERROR) return err;
    if (len > 0) memcpy(mData, buffer, len);
    mDataSize = len;
    return NO_ERROR;
}

status_t Parcel::writeInt32(int32_t val) {
    if (mDataPos > SIZE_MAX - sizeof(val)) return NO_MEMORY;
    size_t end = mDataPos + sizeof(val);
    status_t err = growTo(end);
    if (err != NO_ERROR) return err;
    if (mDataPos > mDataSize) memset(mData + mDataSize, 0, mDataPos - mDataSize);
    memcpy(mData + mDataPos, &val, sizeof(val));  // little-endian on every supported target
    mDataPos = end;
    if (end > mDataSize) mDataSize = end;
    return NO_ERROR;
}

status_t Parcel::writeString16(const char16_t *str, size_t len) {
    if (str == nullptr) return writeInt32(-1);
    if (len >= INT32_MAX) return BAD_VALUE;
    status_t err = writeInt32(static_cast<int32_t>(len));
    if (err != NO_ERROR) return err;
    size_t bytes = (len + 1) * sizeof(char16_t);
    size_t padded = padSize(bytes);
    if (mDataPos > SIZE_MAX - padded) return NO_MEMORY;
    err = growTo(mDataPos + padded);
    if (err != NO_ERROR) return err;
    uint8_t *out = mData + mDataPos;
    if (len > 0) memcpy(out, str, len * sizeof(char16_t));
    memset(out + len * sizeof(char16_t), 0, padded - len * sizeof(char16_t));
    mDataPos += padded;
    if (mDataPos > mDataSize) mDataSize = mDataPos;
    return NO_ERROR;
}

int32_t Parcel::readInt32() const {
    int32_t val = 0;
    if (mDataPos <= mDataSize && mDataSize - mDataPos >= sizeof(val)) {
        memcpy(&val, mData + mDataPos, sizeof(val));
        mDataPos += sizeof(val);
    }
    return val;
}

const char16_t *Parcel::readString16Inplace(size_t *outLen) const {
    int32_t size = readInt32();
    if (size >= 0 && size < INT32_MAX) {
        size_t bytes = (static_cast<size_t>(size) + 1) * sizeof(char16_t);
        size_t padded = padSize(bytes);
        if (mDataPos <= mDataSize && mDataSize - mDataPos >= padded) {
            const char16_t *str = reinterpret_cast<const char16_t *>(mData + mDataPos);
            char16_t terminator;
            memcpy(&terminator, mData + mDataPos + size * sizeof(char16_t), sizeof(terminator));
            mDataPos += padded;
            if (terminator == 0) {
                *outLen = static_cast<size_t>(size);
                return str;
            }
        }
    }
    *outLen = 0;
    return nullptr;
}

}  // namespace android
