// Byte vectors written out in tests: hex text to bytes and back.
//
//     EXPECT_EQ(hex(frame), "00 00 00 10 04 00 00 00");
//     auto b = bytes("02 00 00 00 61 00");
#ifndef ZOK_TESTS_BYTES_H
#define ZOK_TESTS_BYTES_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

// Whitespace between bytes is ignored; anything but hex digits and blanks aborts the test program.
std::vector<uint8_t> bytes(const std::string &hexText);
// Lower-case, one blank between bytes.
std::string hex(const void *data, size_t len);
std::string hex(const std::vector<uint8_t> &data);

#endif  // ZOK_TESTS_BYTES_H
