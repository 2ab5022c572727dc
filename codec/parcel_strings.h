// UTF-8 texts and integers as Parcel String16, and the entity's own converters between UTF-8 and
// UTF-16. Pure functions; any thread.
#ifndef ZOK_CODEC_PARCEL_STRINGS_H
#define ZOK_CODEC_PARCEL_STRINGS_H

#include <binder/Parcel.h>
#include <stddef.h>

// A null text is written as the null String16.
void writeUtf8StringToParcel(android::Parcel &parcel, const char *text);
// The signed decimal text of `value` as a String16, never an int32.
void writeIntAsStringToParcel(android::Parcel &parcel, int value);
// Reads one String16 into `dest` (at most destSize bytes, NUL-terminated when destSize >= 1).
// A null String16 gives "(null)".
void readUtf8StringFromParcel(android::Parcel &parcel, char *dest, int destSize);
// Newly allocated units (not NUL-terminated) or null for a null text; free() it.
char16_t *dupUtf8ToUtf16(const char *text, size_t *outUnits);
// Newly allocated NUL-terminated text or null for null units; free() it.
char *dupUtf16ToUtf8(const char16_t *units, size_t count);
// The bytes dupUtf16ToUtf8 would produce, written straight into `dest` and cut to destSize - 1
// bytes (possibly inside a sequence), then NUL-terminated. Returns the bytes written before the
// NUL; nothing is written when destSize is 0.
size_t copyUtf16ToUtf8Bounded(const char16_t *units, size_t count, char *dest, size_t destSize);

#endif  // ZOK_CODEC_PARCEL_STRINGS_H
