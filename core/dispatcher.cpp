// The entity's task handler: routes every event addressed to task 202 (connection control, TLV
// results, the AT-command relay, the handler tables). Framework task thread, holding the command
// channel's sock_mutex for the whole event. Every line is logged under rilproxy_task_hdl's name,
// whichever of its parts writes it.
#include "core/dispatcher.h"

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "core/event_handle.h"
#include "core/event_pool.h"
#include "core/framework_calls.h"
#include "core/handler_lookup.h"
#include "core/log.h"
#include "core/payload.h"
#include "core/replies.h"
#include "rilproxy_entity.h"
#include "transport/frame.h"

namespace {

const uint32_t kAtChannelExt = 308;  // and above: the extended AT request
const uint32_t kAtChannel307 = 307;
const uint32_t kAtChannelBase = 301;  // index 0 of the plain AT request

// `name` is a fixed 32-byte field that need not hold a NUL.
void storeSocketName(char *dst, const char *name) {
    size_t n = strnlen(name, RILPROXY_SOCKET_NAME_SIZE - 1);
    memcpy(dst, name, n);
    dst[n] = '\0';
}

void wakeChannels(rilproxy_entity_priv_t *ctx) {
    // The byte only wakes the reader; nothing reads its value, so a failed write is not retried.
    ssize_t r = write(ctx->cmd_thread.pipe_fd[1], " ", 1);
    r = write(ctx->urc_thread.pipe_fd[1], " ", 1);
    (void)r;
}

void answerConnection(task_ptr_t task, event_ptr_t event) {
    RilproxyEvent reply(vopa_event_alloc(event));
    // Guard: the framework may fail the allocation; there is then nothing to answer with.
    if (!reply) return;
    int32_t result = 0;
    event_set_data(reply.get(), 0, &result, sizeof(result));
    if (task == nullptr) return;
    uint32_t requester = vopa_event_get_ext_id(reply.get());
    if (requester != 0) {
        vopa_context_common_send(task, reply.release(), static_cast<task_id_t>(requester));
    } else {
        vopa_task_bcast_ext_event(task, reply.release());
    }
}

// 2004 and 2005: switch both channels on or off, wake the reader, answer the requester.
void handleConnection(rilproxy_entity_priv_t *ctx, task_ptr_t task, event_ptr_t event,
                      bool enable) {
    ZOK_LOG_AS(kSigTaskHdl);
    if (enable) {
        RLOGI("EVENT_RILPROXY_CONNECT, enable the RIL Command/URC thread");
        int len = 0;
        void *data = event_get_data(event, 0, &len);
        if (data != nullptr) {
            RilproxyConnectRequest names;
            rilproxy_copy_bounded(&names, sizeof(names), data, len);
            // An empty name keeps what an earlier connect configured.
            if (names.cmd_socket_name[0] != '\0') {
                storeSocketName(ctx->cmd_thread.socket_name, names.cmd_socket_name);
                RLOGI("Update RIL Command socket name = %s", ctx->cmd_thread.socket_name);
            }
            if (names.urc_socket_name[0] != '\0') {
                storeSocketName(ctx->urc_thread.socket_name, names.urc_socket_name);
                RLOGI("Update RIL URC socket name = %s", ctx->urc_thread.socket_name);
            }
        }
    } else {
        RLOGI("EVENT_RILPROXY_DISCONNECT, disable the RIL Command/URC thread");
    }
    ctx->cmd_thread.enabled.store(enable ? 1 : 0, std::memory_order_relaxed);
    ctx->urc_thread.enabled.store(enable ? 1 : 0, std::memory_order_relaxed);
    wakeChannels(ctx);
    answerConnection(task, event);
}

// 2006 to 2008: the framework's result of an accepted TLV request answers the event parked under
// the serial number the result carries, with a reply of the result's fixed size.
struct TlvResult {
    event_id_t id;
    const char *name;
    event_id_t resp_id;
    size_t size;
};

const TlvResult kTlvResults[] = {
    {EVENT_RESP_DATA_CALL_INFO, "EVENT_RESP_DATA_CALL_INFO", EVENT_SETUP_DATA_CALL_RESP,
     RILPROXY_TLV_DATA_CALL_INFO_SIZE},
    {EVENT_RESP_PCSCF_PCO, "EVENT_RESP_PCSCF_PCO", EVENT_PCSCF_DISCOVERY_PCO_RESP,
     RILPROXY_TLV_PCSCF_INFO_SIZE},
    {EVENT_RESP_LAST_FAIL_CAUSE, "EVENT_RESP_LAST_FAIL_CAUSE", EVENT_LAST_DATA_CALL_FAIL_CAUSE_RESP,
     RILPROXY_TLV_FAIL_CAUSE_SIZE},
};

void forwardTlvResult(rilproxy_entity_priv_t *ctx, event_ptr_t event, const TlvResult &result) {
    ZOK_LOG_AS(kSigTaskHdl);
    RLOGI("%s", result.name);
    int len = 0;
    void *data = event_get_data(event, 0, &len);
    // Fewer than 4 bytes carry no serial number, so they count as no payload at all.
    if (data == nullptr || len < static_cast<int>(sizeof(uint32_t))) {
        RLOGE("data %p is NULL or data %d len is 0", data, len);
        return;
    }
    uint32_t serial_no;
    memcpy(&serial_no, data, sizeof(serial_no));
    RilproxyEvent waiting(rilproxy_take_event_by_serial(ctx, serial_no));
    if (!waiting) {
        RLOGE("not found req_event_ptr for serial_no %x", serial_no);
        return;
    }
    // The answer always has its record's fixed size. A shorter result is padded with zeros here
    // instead of being read past its end.
    unsigned char body[RILPROXY_TLV_DATA_CALL_INFO_SIZE];
    rilproxy_copy_bounded(body, result.size, static_cast<unsigned char *>(data) + sizeof(serial_no),
                          len - static_cast<int>(sizeof(serial_no)));
    rilproxy_reply_response(reinterpret_cast<task_ptr_t>(ctx), waiting.get(), result.resp_id, body,
                            static_cast<int>(result.size));
}

struct AtRoute {
    int32_t ril_request_id;
    int32_t index;
};

// Unsigned on purpose: a channel of 300 or less wraps the index below zero, which the daemon
// rejects.
AtRoute routeAtChannel(uint32_t channel) {
    ZOK_LOG_AS(kSigTaskHdl);
    AtRoute route;
    if (channel >= kAtChannelExt) {
        route = {ZOKRIL_REQUEST_SEND_AT_CMD_EXT, static_cast<int32_t>(channel - kAtChannel307)};
    } else if (channel == kAtChannel307) {
        route = {ZOKRIL_REQUEST_SEND_AT_CMD_307, 1};
    } else {
        route = {ZOKRIL_REQUEST_SEND_AT_CMD, static_cast<int32_t>(channel - kAtChannelBase)};
    }
    RLOGI("req channel = %d, ril_request_id = %d, channel = %d", static_cast<int>(channel),
          route.ril_request_id, route.index);
    return route;
}

// The Parcel form of an int32 and a NUL-terminated string padded to 4 bytes, built by hand. The
// length word and the body size follow the untruncated text. Returns the body size.
size_t buildAtBody(unsigned char (&body)[RILPROXY_AT_BODY_SIZE], int32_t index,
                   const char *command) {
    memset(body, 0, sizeof(body));
    size_t text_len = strlen(command);
    int32_t text_len32 = static_cast<int32_t>(text_len);
    memcpy(body, &index, sizeof(index));
    memcpy(body + 4, &text_len32, sizeof(text_len32));
    snprintf(reinterpret_cast<char *>(body) + 8, RILPROXY_AT_BODY_TEXT_SIZE, "%s", command);
    size_t body_len = ((text_len + 4) & ~static_cast<size_t>(3)) + 8;
    // Guard: a text of 512 characters or more would size the body past the buffer; the text is
    // cut at 511 there anyway, so the Parcel gets the whole buffer and no more.
    return body_len > sizeof(body) ? sizeof(body) : body_len;
}

// The AT command as the RIL request its channel maps to, under the serial of its pool slot.
bool sendAtRequest(rilproxy_entity_priv_t *ctx, const AtCommandRequest &request, uint32_t serial) {
    AtRoute route = routeAtChannel(request.channel);
    unsigned char body[RILPROXY_AT_BODY_SIZE];
    size_t body_len = buildAtBody(body, route.index, request.command);
    rilproxy_ril_requset_param_t param;
    param.sim_id = static_cast<int32_t>(request.sim_id);
    param.request_id = route.ril_request_id;
    param.serial_no = serial;
    param.parcel.setData(body, body_len);
    return rilproxy_channel_send(ctx, &param, RilproxySender::kTaskThread) == 0;
}

// 2002: relay the AT command as its RIL request. True when the event is parked for the answer;
// every failure has answered the requester.
bool relayAtCommand(rilproxy_entity_priv_t *ctx, event_ptr_t event) {
    ZOK_LOG_AS(kSigTaskHdl);
    task_ptr_t self = reinterpret_cast<task_ptr_t>(ctx);
    int len = 0;
    void *data = event_get_data(event, 0, &len);
    AtCommandRequest request;
    rilproxy_copy_bounded(&request, sizeof(request), data, len);
    // No payload reads as a zero token. A record without a text pointer (or too short to hold
    // one) has nothing to send either.
    if (data == nullptr || request.command == nullptr) {
        RLOGE("can't get the data");
        rilproxy_send_atcmd_response(self, event, request.token, AT_STATUS_NO_DATA, nullptr);
        return false;
    }
    if (ctx->cmd_thread.fd.load(std::memory_order_relaxed) < 0) {
        RLOGE("RILD is disconnected");
        rilproxy_send_atcmd_response(self, event, request.token, AT_STATUS_NOT_SENT, nullptr);
        return false;
    }
    uint32_t serial = rilproxy_add_event_to_pool(ctx, event);
    if (serial == 0) {
        RLOGE("event pool is full");
        rilproxy_send_atcmd_response(self, event, request.token, AT_STATUS_NOT_SENT, nullptr);
        return false;
    }
    if (sendAtRequest(ctx, request, serial)) return true;
    ctx->cmd_thread.fd.store(-1, std::memory_order_relaxed);
    RLOGE("send ril request fail");
    // The slot stays taken, but the event is freed by the dispatcher, so the slot must not keep
    // pointing at it. If the slot no longer holds it, the reader has answered the request while
    // the send was blocked and freed the event: nothing more is owed, nor may it be touched.
    if (!rilproxy_reclaim_event(ctx, serial, event, true)) {
        RLOGE("event of serial_no %x already answered", serial);
        return true;
    }
    rilproxy_send_atcmd_response(self, event, request.token, AT_STATUS_NOT_SENT, nullptr);
    return false;
}

// Any other id: the TLV table first, then the old one. A TLV row ends the lookup whatever its
// outcome: the old table is the TLV request's fallback only via the reader. True when parked.
bool handleTableRequest(rilproxy_entity_priv_t *ctx, event_ptr_t event, event_id_t id) {
    ZOK_LOG_AS(kSigTaskHdl);
    ril_handler_tlv_t *tlv_row = rilproxy_find_handler_tlv(ril_handlers_tlv, id);
    if (tlv_row != nullptr) return rilproxy_handle_ril_request_tlv(ctx, event, tlv_row) == 0;
    ril_handler_t *row = rilproxy_find_handler(ril_handlers, id);
    if (row != nullptr) return rilproxy_handle_ril_request(ctx, event, row) == 0;
    RLOGE("rilproxy_task_hdl(): an unknown event");
    return false;
}

}  // namespace

void *rilproxy_task_hdl(task_ptr_t task, event_ptr_t event, void *user) {
    ZOK_LOG_SELF(kSigTaskHdl);
    rilproxy_entity_priv_t *ctx = static_cast<rilproxy_entity_priv_t *>(user);
    RilproxyEvent owned(event);
    event_id_t id = event_get_id(event);
    bool parked = false;

    RLOGI("rilproxy_task_hdl(), receive event ID %s(%d)\n", event_get_name(id), id);
    if (ctx == nullptr) return nullptr;

    rilproxy_mutex_lock(&ctx->cmd_thread.sock_mutex);
    switch (id) {
        case EVENT_RILPROXY_CONNECT:
        case EVENT_RILPROXY_DISCONNECT:
            handleConnection(ctx, task, event, id == EVENT_RILPROXY_CONNECT);
            break;
        case EVENT_RESP_DATA_CALL_INFO:
        case EVENT_RESP_PCSCF_PCO:
        case EVENT_RESP_LAST_FAIL_CAUSE:
            for (const TlvResult &result : kTlvResults) {
                if (result.id == id) forwardTlvResult(ctx, event, result);
            }
            break;
        case EVENT_RILPROXY_ATCMD_REQ:
            parked = relayAtCommand(ctx, event);
            break;
        default:
            // 2003 has no case of its own and ends up here.
            parked = handleTableRequest(ctx, event, id);
            break;
    }
    rilproxy_mutex_unlock(&ctx->cmd_thread.sock_mutex);

    if (parked) owned.release();  // the pool holds it, or another thread already freed it
    return nullptr;
}
