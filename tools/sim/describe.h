// The request payloads as the daemon's "rild <-" lines show them, and the string list the answers
// also read. Daemon's thread; no state.
#ifndef ZOK_TOOLS_SIM_DESCRIBE_H
#define ZOK_TOOLS_SIM_DESCRIBE_H

#include <stdint.h>

#include <string>
#include <vector>

namespace rild_sim {

// int32 count, then that many String16s and nothing after them (the count is bounded by what the
// payload holds). `shown` gets the list as JSON-like text, nulls as null.
bool readCountedStrings(const std::vector<uint8_t> &payload, std::vector<std::string> *out,
                        std::string *shown);

}  // namespace rild_sim

#endif  // ZOK_TOOLS_SIM_DESCRIBE_H
