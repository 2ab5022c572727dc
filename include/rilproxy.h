// The entity's own types: private context and channel record, the outgoing request record, the
// handler-table rows, and the in-process payload records exchanged with other framework
// entities. Sizes and offsets that cross to the framework or the daemon are pinned below.
#ifndef ZOK_RILPROXY_H
#define ZOK_RILPROXY_H

#include <binder/Parcel.h>
#include <stddef.h>
#include <stdint.h>

#include <atomic>

#include "vopa.h"
#include "vopa_events.h"
#include "wire_format.h"
#include "zok_records.h"

#define RILPROXY_EVENT_POOL_SIZE 32
#define RILPROXY_SOCKET_NAME_SIZE 32
#define RILPROXY_VERSION_TEXT "1.0.20170215Icdb15d085"

struct rilproxy_entity_priv;
class RilChannel;

// One RIL socket channel. `fd` and `enabled` are read without a lock by design (the reader polls
// them between waits), so they are relaxed atomics of the size and place of an int32.
typedef struct rilproxy_thread_priv {
    std::atomic<int32_t> fd;  // connected socket, -1 when none
    int32_t pipe_fd[2];       // control pipe: read end, write end
    std::atomic<int32_t> enabled;
    // Empty: property or default. Written by the dispatcher, copied by the reader.
    char socket_name[RILPROXY_SOCKET_NAME_SIZE] RILPROXY_GUARDED_BY(sock_mutex);
    vopa_thread_t thread;
    struct rilproxy_entity_priv *entity;
    vopa_mutex_t sock_mutex;  // held by the task thread for a whole event
} rilproxy_thread_priv_t;

static_assert(sizeof(std::atomic<int32_t>) == sizeof(int32_t), "atomic int32 keeps its size");

// One per entity, zero-filled. Begins with the task object so that a context pointer is also the
// entity's task_ptr_t.
typedef struct rilproxy_entity_priv {
    vopa_task_t task;
    rilproxy_thread_priv_t cmd_thread;
    // Kept in step with cmd_thread (name, enabled, wake-up byte) but never served: no thread,
    // mutex never initialised, fd stays 0.
    rilproxy_thread_priv_t urc_thread;
    event_ptr_t event_pool[RILPROXY_EVENT_POOL_SIZE] RILPROXY_GUARDED_BY(event_pool_mutex);
    vopa_mutex_t event_pool_mutex;
    uint32_t serial_seq RILPROXY_GUARDED_BY(event_pool_mutex);
    // Slots whose event was handed back to the dispatcher (and freed) after an old-table failure.
    // They stay occupied until the pool is emptied but hold no event to touch.
    uint32_t held_without_event RILPROXY_GUARDED_BY(event_pool_mutex);  // bit per slot
    // The command channel's connection (transport/ril_channel.h). Appended after the fields the
    // layout fixes and held through a pointer, so no offset above moves and the zero-filled
    // context stays plain memory; set once at init, before the reader starts.
    RilChannel *channel;
} rilproxy_entity_priv_t;

static_assert(offsetof(rilproxy_entity_priv_t, task) == 0, "context doubles as the task");

// The per-frame record decoded from a response or unsolicited frame header.
typedef struct {
    int32_t sim_id;  // 0 when the header carries none
} ril_supported_feature_t;

// One outgoing RIL request, built on the caller's stack for exactly one send. The constructor
// builds only the Parcel: the caller sets all three integers. sim_id comes first so that the
// record may be passed where a ril_supported_feature_t * is expected.
struct rilproxy_ril_requset_param_t {
    int32_t sim_id;
    int32_t request_id;
    uint32_t serial_no;
    android::Parcel parcel;

    rilproxy_ril_requset_param_t() {}
    rilproxy_ril_requset_param_t(const rilproxy_ril_requset_param_t &) = delete;
    rilproxy_ril_requset_param_t &operator=(const rilproxy_ril_requset_param_t &) = delete;
};

static_assert(offsetof(rilproxy_ril_requset_param_t, sim_id) == 0, "sim_id leads the record");

typedef int (*ril_req_fn_t)(event_ptr_t event, android::Parcel &parcel,
                            ril_supported_feature_t *feature);
typedef int (*ril_req_tlv_fn_t)(event_ptr_t event, android::Parcel &parcel,
                                rilproxy_ril_requset_param_t *param);
typedef int (*ril_resp_fn_t)(task_ptr_t task, event_ptr_t event, event_id_t resp_event_id,
                             android::Parcel &parcel, int result, ril_supported_feature_t *feature);
typedef int (*ril_err_fn_t)(task_ptr_t task, event_ptr_t event, event_id_t resp_event_id,
                            int error);
typedef int (*ril_notify_fn_t)(task_ptr_t task, android::Parcel &parcel,
                               ril_supported_feature_t *features);

// A table ends at the first row whose request event id, response event id or RIL request id is
// 0, or whose req pointer is null (the reader tests resp instead). Both tables end with an
// all-zero row.
typedef struct {
    event_id_t req_event_id;
    event_id_t resp_event_id;
    int32_t ril_request_id;
    int32_t reserved;
    ril_req_fn_t req;
    ril_resp_fn_t resp;
    ril_err_fn_t err;
} ril_handler_t;

typedef struct {
    event_id_t req_event_id;
    event_id_t resp_event_id;
    int32_t ril_request_id;
    int32_t reserved;
    ril_req_tlv_fn_t req;
    ril_resp_fn_t resp;
    ril_err_fn_t err;
} ril_handler_tlv_t;

static_assert(sizeof(ril_handler_t) == sizeof(ril_handler_tlv_t), "rows share one layout");
static_assert(offsetof(ril_handler_t, req) == 16, "row req pointer");
static_assert(offsetof(ril_handler_tlv_t, err) == offsetof(ril_handler_t, err), "row err");
static_assert(offsetof(ril_handler_t, resp) == 16 + sizeof(void *), "row resp pointer");
static_assert(offsetof(ril_handler_t, err) == 16 + 2 * sizeof(void *), "row err pointer");
static_assert(sizeof(ril_handler_t) == 16 + 3 * sizeof(void *), "row size");

// Rows of ril_notifys; the table ends at the row whose id is 0 or whose handler is null.
typedef struct {
    int32_t id;
    ril_notify_fn_t handler;
} ril_notify_t;

static_assert(offsetof(ril_notify_t, handler) == sizeof(void *), "notify row handler");
static_assert(sizeof(ril_notify_t) == 2 * sizeof(void *), "notify row size");

// ---- Payload records exchanged with other framework entities -----------------------------

// EVENT_RILPROXY_ATCMD_REQ payload.
typedef struct {
    void *token;  // the requester's opaque handle, returned unchanged
    uint32_t channel;
    uint32_t sim_id;
    const char *command;  // NUL-terminated AT command text, owned by the requester
} AtCommandRequest;

#define RILPROXY_AT_TEXT_SIZE 4096

// AT-command answer statuses.
enum : uint32_t {
    AT_STATUS_OK = 0,
    AT_STATUS_AT_ERROR = 1,
    AT_STATUS_NO_DATA = 4,
    AT_STATUS_NOT_SENT = 5,
    AT_STATUS_RIL_ERROR = 6,
};

// EVENT_RILPROXY_ATCMD_RESP payload.
typedef struct {
    void *token;
    unsigned char reserved[8];
    uint32_t status;
    char text[RILPROXY_AT_TEXT_SIZE];
} AtCommandResponse;

static_assert(sizeof(AtCommandResponse) == 4120, "AT response size");
static_assert(offsetof(AtCommandResponse, reserved) == 8, "AT response reserved");
static_assert(offsetof(AtCommandResponse, status) == 16, "AT response status");
static_assert(offsetof(AtCommandResponse, text) == 20, "AT response text");
static_assert(sizeof(AtCommandRequest) == 24, "AT request size");
static_assert(offsetof(AtCommandRequest, channel) == 8, "AT request channel");
static_assert(offsetof(AtCommandRequest, sim_id) == 12, "AT request SIM id");
static_assert(offsetof(AtCommandRequest, command) == 16, "AT request text pointer");

// The AT relay's hand-built request body: channel index, text length, text bounded to 512.
#define RILPROXY_AT_BODY_SIZE 520
#define RILPROXY_AT_BODY_TEXT_SIZE 512
static_assert(RILPROXY_AT_BODY_SIZE == 8 + RILPROXY_AT_BODY_TEXT_SIZE, "AT body size");

typedef struct {
    int32_t status;
    int32_t unused;
} StatusOnlyReply;

static_assert(sizeof(StatusOnlyReply) == 8, "status-only reply size");
static_assert(offsetof(StatusOnlyReply, status) == 0, "status-only reply status");

#define RILPROXY_DATA_NOTIFICATION_SIZE 128
#define RILPROXY_DATA_NOTIFICATION_TEXT "rildproxy"

enum : int32_t {
    RILPROXY_STATE_CONNECTED = 0,
    RILPROXY_STATE_CLOSED = 1,
};

// EVENT_RILPROXY_CONNECT payload.
typedef struct {
    char cmd_socket_name[RILPROXY_SOCKET_NAME_SIZE];
    char urc_socket_name[RILPROXY_SOCKET_NAME_SIZE];
} RilproxyConnectRequest;

static_assert(sizeof(RilproxyConnectRequest) == 64, "connect payload size");
static_assert(offsetof(RilproxyConnectRequest, urc_socket_name) == 32, "connect URC name");

#define RILPROXY_SETUP_STRINGS 5
#define RILPROXY_SETUP_TEXT_SIZE 128
#define RILPROXY_SETUP_WFC_VALUES 10

// Protocol numbers used by the set-up and attach requests; anything else means "IP".
enum : int32_t {
    RILPROXY_PROTOCOL_IPV6 = 1,
    RILPROXY_PROTOCOL_IPV4V6 = 2,
};

// EVENT_SETUP_DATA_CALL_REQ payload.
typedef struct {
    char strings[RILPROXY_SETUP_STRINGS][RILPROXY_SETUP_TEXT_SIZE];
    int32_t authType;
    int32_t protocol;
    int32_t cid;
    int32_t reserved0;
    int32_t mIsValid[RILPROXY_SETUP_WFC_VALUES];  // mIsValid and the nine WFC / RAN values
    int32_t reserved1;
    uint8_t simId;
    uint8_t reserved2[3];
} DataCallSetupRequest;

static_assert(offsetof(DataCallSetupRequest, authType) == 640, "setup authType");
static_assert(offsetof(DataCallSetupRequest, protocol) == 644, "setup protocol");
static_assert(offsetof(DataCallSetupRequest, cid) == 648, "setup cid");
static_assert(offsetof(DataCallSetupRequest, mIsValid) == 656, "setup mIsValid");
static_assert(offsetof(DataCallSetupRequest, reserved1) == 696, "setup unused word");
static_assert(offsetof(DataCallSetupRequest, simId) == 700, "setup simId");
static_assert(sizeof(DataCallSetupRequest) == 704, "setup request size");

// Payload of 4005, 9322, 4011, 4013 and 4015.
typedef struct {
    int32_t id;
    int32_t cause;
    uint8_t simId;  // read by the P-CSCF TLV request only
    uint8_t reserved[3];
} CallIdCauseRequest;

static_assert(offsetof(CallIdCauseRequest, simId) == 8, "id/cause simId");
static_assert(offsetof(CallIdCauseRequest, cause) == 4, "id/cause cause");
static_assert(sizeof(CallIdCauseRequest) == 12, "id/cause size");

#define RILPROXY_APN_TEXT_SIZE 128

// EVENT_SET_INITIAL_ATTACH_APN_REQ payload.
typedef struct {
    char apn[RILPROXY_APN_TEXT_SIZE];
    int32_t protocol;
    int32_t authType;
    char username[RILPROXY_APN_TEXT_SIZE];
    char password[RILPROXY_APN_TEXT_SIZE];
    char extra[RILPROXY_APN_TEXT_SIZE];
    int32_t flag;
} InitialAttachApnRequest;

static_assert(offsetof(InitialAttachApnRequest, protocol) == 128, "apn protocol");
static_assert(offsetof(InitialAttachApnRequest, authType) == 132, "apn authType");
static_assert(offsetof(InitialAttachApnRequest, username) == 136, "apn username");
static_assert(offsetof(InitialAttachApnRequest, password) == 264, "apn password");
static_assert(offsetof(InitialAttachApnRequest, extra) == 392, "apn extra text");
static_assert(offsetof(InitialAttachApnRequest, flag) == 520, "apn flag");
static_assert(sizeof(InitialAttachApnRequest) == 524, "apn size");

// EVENT_RB_DM_HO_REQ payload.
typedef struct {
    uint8_t reserved;
    uint8_t hoStatus;
    uint8_t hoResult;
    uint8_t cid;
    uint8_t srcRanType;
    uint8_t targetRanType;
} HandoverRequest;

static_assert(sizeof(HandoverRequest) == 6, "handover size");
static_assert(offsetof(HandoverRequest, hoStatus) == 1, "handover status");
static_assert(offsetof(HandoverRequest, cid) == 3, "handover cid");
static_assert(offsetof(HandoverRequest, targetRanType) == 5, "handover target ran type");

// EVENT_RB_DM_PDN_INFO_IND payload.
typedef struct {
    int32_t reserved0[3];
    int32_t interfaceId;
    int32_t reserved1;
    int32_t mtu;
} PdnInfoIndication;

static_assert(offsetof(PdnInfoIndication, interfaceId) == 12, "pdn interface id");
static_assert(offsetof(PdnInfoIndication, mtu) == 20, "pdn mtu");

// EVENT_NWMNGR_NOTIFY_PS_REG_STATE payload: an unused int32, then the state text.
#define RILPROXY_PS_STATE_TEXT_OFFSET 4

// EVENT_SETUP_DATA_CALL_RESP, and the 4051 notification.
typedef struct {
    int32_t status;
    ZOK_Data_Call_Response_v11 dcall;
} DataCallSetupReply;

static_assert(sizeof(DataCallSetupReply) == 47876, "set-up reply size");
static_assert(offsetof(DataCallSetupReply, dcall) == 4, "set-up reply record");
static_assert(offsetof(DataCallSetupReply, dcall) + offsetof(ZOK_Data_Call_Response_v11, simId) ==
                  47868,
              "set-up reply simId");

// The data-call list notification copies four bytes less than the reply.
#define RILPROXY_DCALL_LIST_NOTIFY_SIZE 47872
static_assert(RILPROXY_DCALL_LIST_NOTIFY_SIZE == sizeof(DataCallSetupReply) - 4, "4021 length");

// EVENT_SETUP_DEDICATE_DATA_CALL_RESP / EVENT_MODIFY_DATA_CALL_RESP, one per bearer.
typedef struct {
    int32_t status;
    uint16_t num;
    uint16_t index;
    ZOK_Dedicate_Data_Call_Struct bearer;
} DedicateBearerReply;

static_assert(sizeof(DedicateBearerReply) == 3964, "bearer reply size");
static_assert(offsetof(DedicateBearerReply, num) == 4, "bearer reply num");
static_assert(offsetof(DedicateBearerReply, index) == 6, "bearer reply index");
static_assert(offsetof(DedicateBearerReply, bearer) == 8, "bearer reply record");

// Events 4024 / 4025.
typedef struct {
    int32_t status;
    ZOK_Dedicate_Data_Call_Struct bearer;
} BearerNotification;

static_assert(sizeof(BearerNotification) == 3960, "bearer notification size");
static_assert(offsetof(BearerNotification, bearer) == 4, "bearer notification record");

typedef struct {
    int32_t status;
    dm_pcscf_t pcscf;
} PcscfDiscoveryReply;

static_assert(sizeof(PcscfDiscoveryReply) == 264, "P-CSCF reply size");
static_assert(offsetof(PcscfDiscoveryReply, pcscf) == 4, "P-CSCF reply list");

typedef struct {
    int32_t status;
    int32_t cause;
} FailCauseReply;

static_assert(sizeof(FailCauseReply) == 8, "fail cause reply size");
static_assert(offsetof(FailCauseReply, cause) == 4, "fail cause reply cause");

// Events 4026 and 4052: a status and a cid (or nothing).
typedef struct {
    int32_t status;
    int32_t cid;
} ShortStatusNotification;

static_assert(sizeof(ShortStatusNotification) == 8, "short status notification size");
static_assert(offsetof(ShortStatusNotification, cid) == 4, "short status notification cid");

// Sizes of the TLV results forwarded by the dispatcher (2006..2008), after their serial word.
#define RILPROXY_TLV_DATA_CALL_INFO_SIZE 47876
#define RILPROXY_TLV_PCSCF_INFO_SIZE 264
#define RILPROXY_TLV_FAIL_CAUSE_SIZE 8
static_assert(RILPROXY_TLV_DATA_CALL_INFO_SIZE == sizeof(DataCallSetupReply), "2006 body");
static_assert(RILPROXY_TLV_PCSCF_INFO_SIZE == sizeof(PcscfDiscoveryReply), "2007 body");
static_assert(RILPROXY_TLV_FAIL_CAUSE_SIZE == sizeof(FailCauseReply), "2008 body");

#endif  // ZOK_RILPROXY_H
