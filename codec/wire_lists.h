// Lists whose length the daemon (or the framework) chooses, read into and written from fixed
// arrays. Header-only helpers for the record readers and writers; any thread, no state.
//
//     for (int i = 0; i < wireCount; i++) {
//         T *slot = slotFor(parcel, record->list, i, &scratch);
//         if (slot == nullptr) break;
//         readOne(parcel, slot);
//     }
//     record->count = storedCount(wireCount, ARRAY_SIZE);
#ifndef ZOK_CODEC_WIRE_LISTS_H
#define ZOK_CODEC_WIRE_LISTS_H

#include <binder/Parcel.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "core/log.h"

// Counts above the array are clamped to it, so whoever indexes the record by its count stays
// inside it, and a written count always matches the elements after it. A negative count is kept
// as it is: it is the daemon's (or the framework's) value, and no element follows it either way.
inline int storedCount(int count, size_t capacity) {
    if (count < 0) return count;
    return static_cast<size_t>(count) < capacity ? count : static_cast<int>(capacity);
}

// Entries sent per list frame (bearer replies, list notifications), far above any real list: a
// modem has at most 15 EPS bearer ids and a few PDN connections. Up to it, a list announces its
// count and gets that many events, the entries the payload lacks decoded as zeros; only what a
// hostile count asks beyond it is dropped, since each entry costs an event of up to 47,872 bytes.
constexpr int kListEntriesMax = 256;

// How many entries of a list announcing `num` go out: num itself up to the ceiling (none for a
// count of zero or below). Logs under `signature`, the handler the list belongs to.
inline int listEntriesToSend(const char *signature, int num) {
    ZOK_LOG_AS(signature);
    if (num <= kListEntriesMax) return num;
    RLOGE("num = %d, only the first %d entries are sent", num, kListEntriesMax);
    return kListEntriesMax;
}

// Every list element starts with an int32. With fewer than four bytes left a read neither yields
// data nor moves the cursor, so "position < size" alone would let a surplus loop spin forever.
inline bool parcelHasInt32(const android::Parcel &parcel) {
    size_t pos = parcel.dataPosition();
    size_t size = parcel.dataSize();
    return pos <= size && size - pos >= sizeof(int32_t);
}

// Where element i goes: its slot while the array has room, else `scratch`, consumed to keep the
// rest of the Parcel aligned and then dropped. Null once the Parcel cannot hold another element:
// there is nothing left to align, and a hostile count must not spin.
template <typename T, size_t N>
T *slotFor(const android::Parcel &parcel, T (&slots)[N], int i, T *scratch) {
    if (static_cast<size_t>(i) < N) return &slots[i];
    return parcelHasInt32(parcel) ? scratch : nullptr;
}

// Address lists travel as one text of blank-separated tokens. Ends `token` at its first blank and
// returns the rest of the text, or null when it was the last token.
inline char *cutAtBlank(char *token) {
    char *blank = strchr(token, ' ');
    if (blank == nullptr) return nullptr;
    *blank = '\0';
    return blank + 1;
}

#endif  // ZOK_CODEC_WIRE_LISTS_H
