#include "support/bytes.h"

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>

std::vector<uint8_t> bytes(const std::string &hexText) {
    std::vector<uint8_t> out;
    int high = -1;
    for (char c : hexText) {
        if (isspace(static_cast<unsigned char>(c))) continue;
        if (!isxdigit(static_cast<unsigned char>(c))) {
            fprintf(stderr, "bad hex text: %s\n", hexText.c_str());
            abort();
        }
        int v = isdigit(static_cast<unsigned char>(c)) ? c - '0' : (tolower(c) - 'a' + 10);
        if (high < 0) {
            high = v;
        } else {
            out.push_back(static_cast<uint8_t>(high << 4 | v));
            high = -1;
        }
    }
    if (high >= 0) {
        fprintf(stderr, "odd hex text: %s\n", hexText.c_str());
        abort();
    }
    return out;
}

std::string hex(const void *data, size_t len) {
    std::string out;
    const uint8_t *p = static_cast<const uint8_t *>(data);
    char buf[4];
    for (size_t i = 0; i < len; i++) {
        snprintf(buf, sizeof(buf), i ? " %02x" : "%02x", p[i]);
        out += buf;
    }
    return out;
}

std::string hex(const std::vector<uint8_t> &data) {
    return hex(data.data(), data.size());
}
