// Line output shared by the host runner and the simulated daemon: each line leaves in one piece
// even when the entity's threads, the daemon's thread and the script print at the same time, and
// it is out of the process before the next line starts, because the entity may end the process
// at any moment (its teardown uses exit_group, which flushes nothing).
//
//     tool_output::writeLine("{\"kind\":\"rx\",...}");
//     tool_output::hexLower(bytes, n);      // "0a1b..."
//     tool_output::jsonString("a\"b");      // "\"a\\\"b\""
#ifndef ZOK_TOOLS_SIM_OUTPUT_H
#define ZOK_TOOLS_SIM_OUTPUT_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace tool_output {

// Appends "\n" and writes the line to `fd` (standard output by default) under a process-wide
// lock, retrying short writes, so no other line can land in the middle of it.
void writeLine(const std::string &line, int fd = 1);

// Writes a JSON object line with "mono_us" (microseconds of CLOCK_MONOTONIC) added as its last
// member. The clock is read under the same lock, so the times never go backwards down the stream.
void writeTimedJson(const std::string &object, int fd = 1);

std::string hexLower(const uint8_t *data, size_t len);
std::string hexLower(const std::vector<uint8_t> &data);
// "0x1f": how the tools print serial numbers.
std::string hex32(uint32_t value);
// A JSON string literal, quotes included; bytes outside printable ASCII become \u00XX.
std::string jsonString(const std::string &text);
// Printable ASCII kept, \r \n \t \\ \" spelled as in C, other bytes as \xNN.
std::string escapeText(const std::string &text);

}  // namespace tool_output

#endif  // ZOK_TOOLS_SIM_OUTPUT_H
