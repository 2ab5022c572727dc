// The RIL socket frame shared by the sender, the reader and the simulated daemon: the length word
// is big-endian, every other header word is native, the payload is a Parcel's raw bytes.
#ifndef ZOK_WIRE_FORMAT_H
#define ZOK_WIRE_FORMAT_H

#include <stdint.h>

// Request frame, entity to daemon: length | header_size (4) | sim_id | request_id | serial_no.
#define RIL_REQ_HEADER_SIZE 20
#define RIL_REQ_HEADER_WORDS_AFTER_LENGTH 16  // length = payload size + this
#define RIL_REQ_FEATURE_HEADER_SIZE 4

// Response frame, daemon to entity: length | header_size H | H bytes | type | ...
#define RIL_RESP_TYPE_SOLICITED 0
#define RIL_RESP_TYPE_UNSOLICITED 1

// The reader's feature-header buffer. A header_size above it is a broken frame.
#define RIL_RESP_HEADER_BUF_SIZE 1024
// Mask words the feature-header parser keeps.
#define RIL_RESP_MASK_SLOTS 8
#define RIL_FEATURE_MASK_MORE 0x8000u  // another mask word follows
#define RIL_FEATURE_MASK_SIM_ID 0x1u   // first mask only: a SIM id word follows the masks

// The largest length word the reader accepts. Far above any real frame (a data-call list of
// sixteen fully populated entries is well under 1 MiB); anything larger is a broken frame.
#define RIL_FRAME_LENGTH_MAX (4u * 1024u * 1024u)

// Serial numbers: slot in bits 0-7, sequence in bits 8-28, retry flag in bit 30.
#define RIL_SERIAL_SLOT_MASK 0xFFu
#define RIL_SERIAL_SEQ_SHIFT 8
#define RIL_SERIAL_SEQ_MAX 0xFFFFFu
#define RIL_SERIAL_RETRY_FLAG 0x40000000u

// RIL result codes the entity names.
#define ZOKRIL_E_SUCCESS 0
#define ZOKRIL_E_GENERIC_FAILURE 2
#define ZOKRIL_E_REQUEST_NOT_SUPPORTED 6

// RIL request numbers: standard ones below 200, the daemon's extensions above 2000.
enum : int32_t {
    RIL_REQUEST_RADIO_POWER = 23,
    RIL_REQUEST_SETUP_DATA_CALL = 27,
    RIL_REQUEST_DEACTIVATE_DATA_CALL = 41,
    RIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE = 56,
    RIL_REQUEST_SET_INITIAL_ATTACH_APN = 111,
    ZOKRIL_REQUEST_SETUP_DEDICATE_DATA_CALL = 2077,
    ZOKRIL_REQUEST_DEACTIVATE_DEDICATE_DATA_CALL = 2078,
    ZOKRIL_REQUEST_MODIFY_DATA_CALL = 2079,
    ZOKRIL_REQUEST_ABORT_SETUP_DATA_CALL = 2080,
    ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO = 2081,
    ZOKRIL_REQUEST_SEND_AT_CMD = 2106,  // AT channels up to 306
    ZOKRIL_REQUEST_HANDOVER = 2112,
    ZOKRIL_REQUEST_SEND_AT_CMD_307 = 2123,  // AT channel 307
    ZOKRIL_REQUEST_DEACTIVATE_DATA_CALL_2 = 2124,
    ZOKRIL_REQUEST_NOTIFY_PS_REG_STATE = 2125,
    ZOKRIL_REQUEST_SEND_AT_CMD_EXT = 2126,  // AT channels from 308
    ZOKRIL_REQUEST_PDN_INFO_IND = 2127,
    ZOKRIL_REQUEST_SETUP_DATA_CALL_TLV = 2157,
    ZOKRIL_REQUEST_LAST_DATA_CALL_FAIL_CAUSE_TLV = 2158,
    ZOKRIL_REQUEST_PCSCF_DISCOVERY_PCO_TLV = 2159,
};

// Unsolicited response numbers.
enum : int32_t {
    RIL_UNSOL_IGNORED_1009 = 1009,
    RIL_UNSOL_DEDICATE_BEARER_ACTIVATED = 3030,
    RIL_UNSOL_DEDICATE_BEARER_MODIFIED = 3031,
    RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED = 3032,
    RIL_UNSOL_DATA_CALL_RESPONSE = 3072,
    RIL_UNSOL_DATA_CALL_LIST_CHANGED = 6002,
};

#endif  // ZOK_WIRE_FORMAT_H
