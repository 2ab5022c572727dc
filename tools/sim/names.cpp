// The RIL names of request, unsolicited and result ids, both ways. Any thread; no state.
#include "tools/sim/names.h"

#include "wire_format.h"

namespace rild_sim {

namespace {

// Every AT id has a name of its own: the id says which channel range the command went to.
constexpr IdName kRequestNames[] = {
    {RIL_REQUEST_RADIO_POWER, "RIL_REQUEST_RADIO_POWER"},
    {RIL_REQUEST_SETUP_DATA_CALL, "RIL_REQUEST_SETUP_DATA_CALL"},
    {RIL_REQUEST_DEACTIVATE_DATA_CALL, "RIL_REQUEST_DEACTIVATE_DATA_CALL"},
    {RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE, "RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE"},
    {RIL_REQUEST_SET_INITIAL_ATTACH_APN, "RIL_REQUEST_SET_INITIAL_ATTACH_APN"},
    {ZOKRIL_REQUEST_SETUP_DEDICATE_DATA_CALL, "ZOKRIL_REQUEST_SETUP_DEDICATE_DATA_CALL"},
    {ZOKRIL_REQUEST_DEACTIVATE_DEDICATE_DATA_CALL, "ZOKRIL_REQUEST_DEACTIVATE_DEDICATE_DATA_CALL"},
    {ZOKRIL_REQUEST_MODIFY_DATA_CALL, "ZOKRIL_REQUEST_MODIFY_DATA_CALL"},
    {ZOKRIL_REQUEST_ABORT_SETUP_DATA_CALL, "ZOKRIL_REQUEST_ABORT_SETUP_DATA_CALL"},
    {ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO, "ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO"},
    {ZOKRIL_REQUEST_SEND_AT_CMD, "ZOKRIL_REQUEST_SEND_AT_CMD"},
    {ZOKRIL_REQUEST_HANDOVER, "ZOKRIL_REQUEST_HANDOVER"},
    {ZOKRIL_REQUEST_SEND_AT_CMD_307, "ZOKRIL_REQUEST_SEND_AT_CMD_307"},
    {ZOKRIL_REQUEST_DEACTIVATE_DATA_CALL_2, "ZOKRIL_REQUEST_DEACTIVATE_DATA_CALL_2"},
    {ZOKRIL_REQUEST_NOTIFY_PS_REG_STATE, "ZOKRIL_REQUEST_NOTIFY_PS_REG_STATE"},
    {ZOKRIL_REQUEST_SEND_AT_CMD_EXT, "ZOKRIL_REQUEST_SEND_AT_CMD_EXT"},
    {ZOKRIL_REQUEST_PDN_INFO_IND, "ZOKRIL_REQUEST_PDN_INFO_IND"},
    {ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV, "ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV"},
    {ZOKRIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE_TLV, "ZOKRIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE_TLV"},
    {ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV, "ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV"},
};

constexpr IdName kUnsolicitedNames[] = {
    {RIL_UNSOL_IGNORED_1009, "RIL_UNSOL_IGNORED_1009"},
    {RIL_UNSOL_DEDICATE_BEARER_ACTIVATED, "RIL_UNSOL_DEDICATE_BEARER_ACTIVATED"},
    {RIL_UNSOL_DEDICATE_BEARER_MODIFIED, "RIL_UNSOL_DEDICATE_BEARER_MODIFIED"},
    {RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED, "RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED"},
    {RIL_UNSOL_DATA_CALL_RESPONSE, "RIL_UNSOL_DATA_CALL_RESPONSE"},
    {RIL_UNSOL_DATA_CALL_LIST_CHANGED, "RIL_UNSOL_DATA_CALL_LIST_CHANGED"},
};

// The standard RIL error codes; the entity itself acts on 0 and 6 only.
constexpr IdName kResultNames[] = {
    {0, "ZOKRIL_E_SUCCESS"},
    {1, "ZOKRIL_E_RADIO_NOT_AVAILABLE"},
    {2, "ZOKRIL_E_GENERIC_FAILURE"},
    {3, "ZOKRIL_E_PASSWORD_INCORRECT"},
    {4, "ZOKRIL_E_SIM_PIN2"},
    {5, "ZOKRIL_E_SIM_PUK2"},
    {6, "ZOKRIL_E_REQUEST_NOT_SUPPORTED"},
    {7, "ZOKRIL_E_CANCELLED"},
    {8, "ZOKRIL_E_OP_NOT_ALLOWED_DURING_VOICE_CALL"},
    {9, "ZOKRIL_E_OP_NOT_ALLOWED_BEFORE_REG_TO_NW"},
    {10, "ZOKRIL_E_SMS_SEND_FAIL_RETRY"},
    {11, "ZOKRIL_E_SIM_ABSENT"},
    {12, "ZOKRIL_E_SUBSCRIPTION_NOT_AVAILABLE"},
    {13, "ZOKRIL_E_MODE_NOT_SUPPORTED"},
    {14, "ZOKRIL_E_FDN_CHECK_FAILURE"},
    {15, "ZOKRIL_E_ILLEGAL_SIM_OR_ME"},
};
static_assert(ZOKRIL_E_SUCCESS == 0 && ZOKRIL_E_GENERIC_FAILURE == 2 &&
                  ZOKRIL_E_REQUEST_NOT_SUPPORTED == 6,
              "the wire format's result codes are the table's");

const char *nameIn(NameKind kind, int32_t id) {
    size_t count = 0;
    const IdName *rows = nameTable(kind, &count);
    for (size_t i = 0; i < count; i++) {
        if (rows[i].id == id) return rows[i].name;
    }
    return "UNKNOWN";
}

}  // namespace

const IdName *nameTable(NameKind kind, size_t *count) {
    switch (kind) {
        case NameKind::Request:
            *count = sizeof(kRequestNames) / sizeof(kRequestNames[0]);
            return kRequestNames;
        case NameKind::Unsolicited:
            *count = sizeof(kUnsolicitedNames) / sizeof(kUnsolicitedNames[0]);
            return kUnsolicitedNames;
        case NameKind::Result:
            break;
    }
    *count = sizeof(kResultNames) / sizeof(kResultNames[0]);
    return kResultNames;
}

const char *nameKindWord(NameKind kind) {
    switch (kind) {
        case NameKind::Request:
            return "request";
        case NameKind::Unsolicited:
            return "unsol";
        case NameKind::Result:
            break;
    }
    return "result";
}

const char *requestName(int32_t requestId) {
    return nameIn(NameKind::Request, requestId);
}

const char *unsolicitedName(int32_t id) {
    return nameIn(NameKind::Unsolicited, id);
}

const char *resultName(int32_t result) {
    return nameIn(NameKind::Result, result);
}

bool idByName(NameKind kind, const std::string &name, int32_t *id) {
    size_t count = 0;
    const IdName *rows = nameTable(kind, &count);
    for (size_t i = 0; i < count; i++) {
        if (name == rows[i].name) {
            *id = rows[i].id;
            return true;
        }
    }
    return false;
}

}  // namespace rild_sim
