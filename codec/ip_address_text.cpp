// The daemon's address texts turned into bytes: dotted decimal for both families, colon form
// accepted for IPv6. Reader thread (data-call and bearer records); no state.
#include "codec/ip_address_text.h"

#include <arpa/inet.h>
#include <stdlib.h>
#include <string.h>

// Up to `wanted` dotted decimal numbers, each truncated to a byte. Numbers past `wanted` are
// ignored; so is anything after a number's digits (a "/24" prefix length, for one).
static int dottedTextToBytes(char *text, unsigned char *out, int wanted) {
    unsigned char parsed[16];
    int count = 0;
    for (char *p = text; p != nullptr && count < wanted; count++) {
        parsed[count] = static_cast<unsigned char>(strtoul(p, nullptr, 10));
        p = strchr(p, '.');
        // A trailing dot ends the text; it does not stand for one more number.
        if (p != nullptr && *++p == '\0') p = nullptr;
    }
    if (count != wanted) return -1;
    memcpy(out, parsed, static_cast<size_t>(wanted));
    return 0;
}

int classifyIpAddressText(char *text) {
    if (text == nullptr) return -1;
    int dots = 0;
    for (const char *p = text; *p != '\0'; p++) dots += (*p == '.');
    if (dots >= 15) return 1;
    if (dots >= 3) return 0;
    // Neither dotted form; callers take it the IPv6 way, so colon-form IPv6 still converts.
    return -1;
}

int ipv6TextToBytes(char *text, unsigned char *out16) {
    if (text == nullptr || out16 == nullptr) return -1;
    if (strchr(text, '.') != nullptr) return dottedTextToBytes(text, out16, 16);
    // The daemon's dotted form is the norm; a colon-form text is converted in place, but the
    // result is still reported as not parsed, as callers have always seen it.
    inet_pton(AF_INET6, text, out16);
    return -1;
}

int ipv4TextToBytes(char *text, unsigned char *out4) {
    if (text == nullptr || out4 == nullptr) return -1;
    return dottedTextToBytes(text, out4, 4);
}
