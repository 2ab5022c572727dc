// The one table of RIL names the tools print and read: request ids, unsolicited ids and result
// codes, spelled as the Wireshark dissector spells them (tools/wireshark/zok_ril.lua), so a name
// seen in a capture, in the daemon's lines or in the runner's JSON can be typed back into a
// script. A test compares the two tables. Any thread; no state.
//
//     rild_sim::requestName(2157);                         // "ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV"
//     int32_t id;
//     rild_sim::idByName(rild_sim::NameKind::Request, "RIL_REQUEST_SETUP_DATA_CALL", &id);  // 27
#ifndef ZOK_TOOLS_SIM_NAMES_H
#define ZOK_TOOLS_SIM_NAMES_H

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace rild_sim {

enum class NameKind { Request, Unsolicited, Result };

struct IdName {
    int32_t id;
    const char *name;
};

// The rows of one kind, in id order; `*count` gets their number.
const IdName *nameTable(NameKind kind, size_t *count);
// "request", "unsol", "result": the first word of rilproxy-host --list-names.
const char *nameKindWord(NameKind kind);
// The name of an id, or "UNKNOWN" when the table lacks it.
const char *requestName(int32_t requestId);
const char *unsolicitedName(int32_t id);
const char *resultName(int32_t result);
// The id of a name of that kind; false when the table lacks it.
bool idByName(NameKind kind, const std::string &name, int32_t *id);

}  // namespace rild_sim

#endif  // ZOK_TOOLS_SIM_NAMES_H
