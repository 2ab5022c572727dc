// Text summaries of the events the entity delivers to the framework, decoded from the records a
// person following the flow cares about (statuses, cids, addresses, bearers, AT answers).
#ifndef ZOK_TOOLS_RUNNER_SUMMARY_H
#define ZOK_TOOLS_RUNNER_SUMMARY_H

#include <stdint.h>

#include <string>
#include <vector>

namespace runner {

// A payload shorter than its record is read as if zero-padded; a longer one is cut to it.
std::string describeEvent(int32_t id, const std::vector<uint8_t> &data);
// The same records as a JSON object of named fields (addresses as text, lists as arrays), for a
// harness that should not decode a 47876-byte record by offset; "" for an event without one.
//     {"status":0,"cid":1,"active":2,"type":"IPV4V6","ifname":"rmnet_data0",...}
std::string eventFields(int32_t id, const std::vector<uint8_t> &data);

}  // namespace runner

#endif  // ZOK_TOOLS_RUNNER_SUMMARY_H
