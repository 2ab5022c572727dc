// UTF-8 texts and integers written to Parcels as String16, and String16 read back into fixed
// buffers. Pure functions; run on the task thread (requests) and the reader thread (responses).
#include "codec/parcel_strings.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

void writeUtf8StringToParcel(android::Parcel &parcel, const char *text) {
    // A null text leaves the converter's result null and this count unset; the Parcel then
    // writes the null String16 whatever the count says, so start it at a known value.
    size_t units = 0;
    char16_t *converted = dupUtf8ToUtf16(text, &units);
    parcel.writeString16(converted, units);
    free(converted);
}

void writeIntAsStringToParcel(android::Parcel &parcel, int value) {
    char text[128];
    memset(text, 0, sizeof(text));
    snprintf(text, sizeof(text), "%d", value);
    writeUtf8StringToParcel(parcel, text);
}

void readUtf8StringFromParcel(android::Parcel &parcel, char *dest, int destSize) {
    size_t units = 0;
    const char16_t *wire = parcel.readString16Inplace(&units);
    if (dest == nullptr || destSize < 1) return;
    // A null String16 (length -1, or a Parcel that ran out) is spelled out as the device's C
    // library prints a null "%s"; handing the null itself to the formatter is undefined.
    if (wire == nullptr) {
        snprintf(dest, static_cast<size_t>(destSize), "%s", "(null)");
        return;
    }
    // Converted straight into the caller's field: no copy of the whole text is made only to be
    // cut to the field's size (the record readers read hundreds of texts per data call).
    copyUtf16ToUtf8Bounded(wire, units, dest, static_cast<size_t>(destSize));
}
