// The RIL names of request and unsolicited ids, as the daemon's lines and the replay print them.
// Any thread; no state.
#include <stddef.h>

#include "tools/sim/profile.h"
#include "wire_format.h"

namespace rild_sim {

namespace {

struct IdName {
    int32_t id;
    const char *name;
};

constexpr IdName kRequestNames[] = {
    {RIL_REQUEST_RADIO_POWER, "RIL_REQUEST_RADIO_POWER"},
    {RIL_REQUEST_SETUP_DATA_CALL, "RIL_REQUEST_SETUP_DATA_CALL"},
    {RIL_REQUEST_DEACTIVATE_DATA_CALL, "RIL_REQUEST_DEACTIVATE_DATA_CALL"},
    {RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE, "RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE"},
    {RIL_REQUEST_SET_INITIAL_ATTACH_APN, "RIL_REQUEST_SET_INITIAL_ATTACH_APN"},
    {ZOKRIL_REQUEST_SETUP_DEDICATE_DATA_CALL, "SETUP_DEDICATE_DATA_CALL"},
    {ZOKRIL_REQUEST_DEACTIVATE_DEDICATE_DATA_CALL, "DEACTIVATE_DEDICATE_DATA_CALL"},
    {ZOKRIL_REQUEST_MODIFY_DATA_CALL, "MODIFY_DATA_CALL"},
    {ZOKRIL_REQUEST_ABORT_SETUP_DATA_CALL, "ABORT_SETUP_DATA_CALL"},
    {ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO, "PCSCF_DISCOVERY_PCO"},
    // The AT relay has three request ids, one name.
    {ZOKRIL_REQUEST_SEND_AT_CMD, "SEND_AT_CMD"},
    {ZOKRIL_REQUEST_SEND_AT_CMD_307, "SEND_AT_CMD"},
    {ZOKRIL_REQUEST_SEND_AT_CMD_EXT, "SEND_AT_CMD"},
    {ZOKRIL_REQUEST_HANDOVER, "HANDOVER"},
    {ZOKRIL_REQUEST_DEACTIVATE_DATA_CALL_2, "DEACTIVATE_DATA_CALL_2"},
    {ZOKRIL_REQUEST_NOTIFY_PS_REG_STATE, "NOTIFY_PS_REG_STATE"},
    {ZOKRIL_REQUEST_PDN_INFO_IND, "PDN_INFO_IND"},
    {ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV, "SETUP_DATA_CALL_TLV"},
    {ZOKRIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE_TLV, "LAST_DATA_CALL_FAIL_CAUSE_TLV"},
    {ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV, "PCSCF_DISCOVERY_PCO_TLV"},
};

constexpr IdName kUnsolicitedNames[] = {
    {RIL_UNSOL_DATA_CALL_LIST_CHANGED, "RIL_UNSOL_DATA_CALL_LIST_CHANGED"},
    {RIL_UNSOL_DEDICATE_BEARER_ACTIVATED, "RIL_UNSOL_DEDICATE_BEARER_ACTIVATED"},
    {RIL_UNSOL_DEDICATE_BEARER_MODIFIED, "RIL_UNSOL_DEDICATE_BEARER_MODIFIED"},
    {RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED, "RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED"},
    {RIL_UNSOL_DATA_CALL_RESPONSE, "RIL_UNSOL_DATA_CALL_RESPONSE"},
};

template <size_t N>
const char *nameIn(const IdName (&table)[N], int32_t id) {
    for (const IdName &row : table) {
        if (row.id == id) return row.name;
    }
    return "UNKNOWN";
}

}  // namespace

const char *requestName(int32_t requestId) {
    return nameIn(kRequestNames, requestId);
}

const char *unsolicitedName(int32_t id) {
    return nameIn(kUnsolicitedNames, id);
}

}  // namespace rild_sim
