#include "support/bytes.h"

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>

std::vector<uint8_t> bytes(const std::string &hexText) {
    std::string digits;
    for (char c : hexText) {
        if (!isspace(static_cast<unsigned char>(c))) digits += c;
    }
    if (digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != digits.npos) {
        fprintf(stderr, "bad hex text: %s\n", hexText.c_str());
        abort();
    }
    std::vector<uint8_t> out;
    for (size_t i = 0; i < digits.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
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
