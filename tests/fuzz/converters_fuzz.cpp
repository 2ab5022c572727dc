// The UTF-8 <-> UTF-16 converters on arbitrary input. The first byte picks the direction:
// - even: the rest as a NUL-terminated UTF-8 text; the unit count never exceeds the documented
//   count (one unit per lead or stray continuation byte, two per 4-byte lead);
// - odd: the rest as UTF-16 units; the text has exactly the documented byte count, holds no NUL
//   before its end, and converts back to the very same units (each unit is encoded on its own),
//   so every BMP character round-trips; parcel_strings_test pins the bytes of each class.
// The counts are computed here from the documented rules, not by the code under test.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "codec/parcel_strings.h"
#include "fuzz/fuzz_check.h"

namespace {

size_t expectedMaxUnits(const unsigned char *text) {
    size_t units = 0;
    int expected = 0;
    for (; *text != 0; text++) {
        if ((*text & 0xC0) == 0x80) {
            if (--expected < 0) units++;
            continue;
        }
        int length = *text < 0xC0 ? 1 : *text < 0xE0 ? 2 : *text < 0xF0 ? 3 : 4;
        expected = length - 1;
        units += length == 4 ? 2 : 1;
    }
    return units;
}

size_t expectedBytes(const std::vector<char16_t> &units) {
    size_t bytes = 0;
    for (char16_t u : units) bytes += u > 0x7FF ? 3 : (u > 0x7F || u == 0) ? 2 : 1;
    return bytes;
}

void utf8Direction(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    text = text.c_str();  // up to the first NUL, as the entity sees a C text
    size_t units = 0;
    char16_t *out = dupUtf8ToUtf16(text.c_str(), &units);
    check(out != nullptr, "a text always converts");
    check(units <= expectedMaxUnits(reinterpret_cast<const unsigned char *>(text.c_str())),
          "never more units than counted");
    check(units <= text.size(), "every unit consumes at least one byte");
    free(out);
}

void utf16Direction(const uint8_t *data, size_t size) {
    std::vector<char16_t> units;
    for (size_t i = 0; i + 1 < size; i += 2) {
        units.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
    }
    // A heap copy of exactly the units, so a read past the count is caught.
    char16_t *exact = static_cast<char16_t *>(malloc(units.size() * sizeof(char16_t) + 1));
    if (!units.empty()) memcpy(exact, units.data(), units.size() * sizeof(char16_t));
    char *text = dupUtf16ToUtf8(exact, units.size());
    check(text != nullptr, "units always convert");
    check(strlen(text) == expectedBytes(units), "byte count as documented, no NUL inside");
    size_t again = 0;
    char16_t *back = dupUtf8ToUtf16(text, &again);
    check(back != nullptr && again == units.size() &&
              (again == 0 || memcmp(back, units.data(), again * sizeof(char16_t)) == 0),
          "units survive a trip through the entity's UTF-8");
    free(back);
    free(text);
    free(exact);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    if (data[0] % 2 == 0) {
        utf8Direction(data + 1, size - 1);
    } else {
        utf16Direction(data + 1, size - 1);
    }
    return 0;
}
