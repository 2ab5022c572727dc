// The event pool and request tracking: parks framework events under serial numbers, drives one
// request through a handler-table row, re-sends refused TLV requests and empties the pool when the
// socket is lost. Task thread and reader thread; event_pool_mutex is held inside each operation.
#include "core/event_pool.h"

#include <string.h>

#include "core/capability_sim.h"
#include "core/event_handle.h"
#include "core/framework_calls.h"
#include "core/handler_lookup.h"
#include "core/log.h"
#include "core/payload.h"
#include "core/replies.h"
#include "rilproxy_entity.h"
#include "transport/frame.h"
#include "transport/ril_channel.h"

namespace {

const uint64_t kStatisticParked = 0x8000000000000000ull;
const uint64_t kStatisticTaken = 0x7FFFFFFFFFFFFFFFull;

bool slotHeld(const rilproxy_entity_priv_t *ctx, uint32_t slot)
    RILPROXY_REQUIRES(ctx->event_pool_mutex) {
    return (ctx->held_without_event & (1u << slot)) != 0;
}

// Error functions are logged by address, so a log line names the row that failed.
void *fnAddress(ril_err_fn_t fn) {
    return reinterpret_cast<void *>(fn);
}

int callRequest(ril_handler_t *row, event_ptr_t event, rilproxy_ril_requset_param_t &param) {
    // sim_id leads the record, so the request function may read it as the feature record.
    return row->req(event, param.parcel, reinterpret_cast<ril_supported_feature_t *>(&param));
}

int callRequest(ril_handler_tlv_t *row, event_ptr_t event, rilproxy_ril_requset_param_t &param) {
    return row->req(event, param.parcel, &param);
}

}  // namespace

ril_handler_t *rilproxy_find_handler(ril_handler_t *table, event_id_t id) {
    if (table == nullptr) return nullptr;
    for (ril_handler_t *row = table; row->req_event_id != 0 && row->resp_event_id != 0 &&
                                     row->ril_request_id != 0 && row->req != nullptr;
         ++row) {
        if (row->req_event_id == id) return row;
    }
    return nullptr;
}

ril_handler_tlv_t *rilproxy_find_handler_tlv(ril_handler_tlv_t *table, event_id_t id) {
    if (table == nullptr) return nullptr;
    for (ril_handler_tlv_t *row = table; row->req_event_id != 0 && row->resp_event_id != 0 &&
                                         row->ril_request_id != 0 && row->req != nullptr;
         ++row) {
        if (row->req_event_id == id) return row;
    }
    return nullptr;
}

namespace {

// A slot for a request whose event is not reachable yet: take by serial finds nothing in it until
// publishEvent. The request function reads the event while it builds the frame, so a daemon that
// guesses the serial cannot have the reader answer and free it meanwhile.
uint32_t reserveSlot(rilproxy_entity_priv_t *ctx) {
    RilproxyMutexHold hold(&ctx->event_pool_mutex);
    for (uint32_t slot = 0; slot < RILPROXY_EVENT_POOL_SIZE; ++slot) {
        // A held slot is empty but still owed to a request whose event went back to its caller.
        if (ctx->event_pool[slot] != nullptr || slotHeld(ctx, slot)) continue;
        ctx->held_without_event |= 1u << slot;
        ctx->serial_seq = ctx->serial_seq > RIL_SERIAL_SEQ_MAX ? 1 : ctx->serial_seq + 1;
        return slot | (ctx->serial_seq << RIL_SERIAL_SEQ_SHIFT);
    }
    return 0;
}

void publishEvent(rilproxy_entity_priv_t *ctx, uint32_t serial, event_ptr_t event) {
    uint32_t slot = serial & RIL_SERIAL_SLOT_MASK;
    {
        RilproxyMutexHold hold(&ctx->event_pool_mutex);
        ctx->held_without_event &= ~(1u << slot);
        ctx->event_pool[slot] = event;
    }
    vopa_event_do_statistic(event, kStatisticParked);
}

}  // namespace

uint32_t rilproxy_add_event_to_pool(rilproxy_entity_priv_t *ctx, event_ptr_t event) {
    uint32_t serial = reserveSlot(ctx);
    if (serial != 0) publishEvent(ctx, serial, event);
    return serial;
}

event_ptr_t rilproxy_take_event_by_serial(rilproxy_entity_priv_t *ctx, uint32_t serial_no) {
    // Only the slot part is matched: a stale serial takes whatever its slot holds now. Slot
    // numbers 32-255 fit the byte but name no slot, so they find nothing.
    uint32_t slot = serial_no & RIL_SERIAL_SLOT_MASK;
    event_ptr_t event = nullptr;
    if (slot < RILPROXY_EVENT_POOL_SIZE) {
        RilproxyMutexHold hold(&ctx->event_pool_mutex);
        event = ctx->event_pool[slot];
        ctx->event_pool[slot] = nullptr;
    }
    vopa_event_do_statistic(event, kStatisticTaken);
    return event;
}

bool rilproxy_reclaim_event(rilproxy_entity_priv_t *ctx, uint32_t serial_no, event_ptr_t event,
                            bool holdSlot) {
    uint32_t slot = serial_no & RIL_SERIAL_SLOT_MASK;
    if (serial_no == 0 || slot >= RILPROXY_EVENT_POOL_SIZE) return true;  // never parked
    RilproxyMutexHold hold(&ctx->event_pool_mutex);
    // Only the entity parks events, and only a thread that has taken its own out of the pool
    // parks it again, so a slot that holds this event holds this request's.
    if (ctx->event_pool[slot] != event) return false;
    ctx->event_pool[slot] = nullptr;
    if (holdSlot) {
        ctx->held_without_event |= 1u << slot;
    } else {
        ctx->held_without_event &= ~(1u << slot);
    }
    return true;
}

int rilproxy_channel_send(rilproxy_entity_priv_t *ctx, rilproxy_ril_requset_param_t *param,
                          RilproxySender sender) {
    int fd = ctx->cmd_thread.fd.load(std::memory_order_relaxed);
    return sender == RilproxySender::kReader ? ctx->channel->queue(fd, param)
                                             : ctx->channel->send(fd, param);
}

namespace {

// One request through a row of either table.
template <typename Row>
int handleRequest(const char *signature, rilproxy_entity_priv_t *ctx, event_ptr_t event, Row *row,
                  bool tlv, RilproxySender sender) {
    ZOK_LOG_AS(signature);
    event_id_t resp_event_id = row->resp_event_id;
    rilproxy_ril_requset_param_t param;
    uint32_t serial = 0;

    if (ctx->cmd_thread.fd.load(std::memory_order_relaxed) < 0) {
        RLOGE("RILD is disconnected (%p)", fnAddress(row->err));
        goto fail;
    }
    serial = reserveSlot(ctx);
    if (serial == 0) {
        RLOGE("event pool is full (%p)", fnAddress(row->err));
        goto fail;
    }
    // The retry flag lets the reader re-send through ril_handlers if the daemon refuses it.
    if (tlv) serial |= RIL_SERIAL_RETRY_FLAG;
    param.sim_id = rilproxy_get_capability_sim();
    param.request_id = row->ril_request_id;
    param.serial_no = serial;
    if (callRequest(row, event, param) < 0) {
        RLOGE("callback error (%p)", fnAddress(row->err));
        // Never reachable by the reader: the plain path keeps the slot taken, the TLV path gives
        // it back.
        if (tlv) rilproxy_reclaim_event(ctx, serial, nullptr, false);
        goto answer;
    }
    publishEvent(ctx, serial, event);
    if (rilproxy_channel_send(ctx, &param, sender) == 0) return 0;
    ctx->cmd_thread.fd.store(-1, std::memory_order_relaxed);
    RLOGE("send ril error (%p)", fnAddress(row->err));

fail:
    // The event goes back to the caller only if its slot still holds it. The reader may have
    // answered the serial (and freed the event) while this send was blocked: then it is neither
    // answered nor touched again here, and the caller must not free it. The plain path keeps
    // its slot taken; the TLV path gives it back.
    if (!rilproxy_reclaim_event(ctx, serial, event, !tlv)) {
        RLOGE("event of serial_no %x already answered", serial);
        return 0;
    }
answer:
    if (row->err != nullptr) {
        row->err(reinterpret_cast<task_ptr_t>(ctx), event, resp_event_id, ZOKRIL_E_GENERIC_FAILURE);
    }
    return -1;
}

}  // namespace

int rilproxy_handle_ril_request_by(rilproxy_entity_priv_t *ctx, event_ptr_t event,
                                   ril_handler_t *row, RilproxySender sender) {
    return handleRequest(kSigHandleRilRequest, ctx, event, row, false, sender);
}

int rilproxy_handle_ril_request(rilproxy_entity_priv_t *ctx, event_ptr_t event,
                                ril_handler_t *row) {
    ZOK_LOG_SELF(kSigHandleRilRequest);
    return handleRequest(zok_log_signature, ctx, event, row, false, RilproxySender::kTaskThread);
}

int rilproxy_handle_ril_request_tlv(rilproxy_entity_priv_t *ctx, event_ptr_t event,
                                    ril_handler_tlv_t *row) {
    ZOK_LOG_SELF(kSigHandleRilRequestTlv);
    return handleRequest(zok_log_signature, ctx, event, row, true, RilproxySender::kTaskThread);
}

int rilproxy_retry_old_request(rilproxy_entity_priv_t *ctx, event_ptr_t event) {
    ZOK_LOG_SELF(kSigRetryOldRequest);
    RilproxyEvent owned(event);
    event_id_t id = event_get_id(event);
    RLOGI("retry old request for event ID %s(%d)\n", event_get_name(id), id);
    ril_handler_t *row = rilproxy_find_handler(ril_handlers, id);
    if (row == nullptr) {
        RLOGE("rilproxy_task_hdl(): an unknown event");
        return 0;
    }
    // This runs on the reader thread, which must not wait for sock_mutex or the write token: the
    // task thread may hold them inside a send to a daemon that waits for the reader to read. The
    // frame is queued in the channel's outbox instead and written whole between reads.
    if (rilproxy_handle_ril_request_by(ctx, event, row, RilproxySender::kReader) == 0) {
        owned.release();  // parked again (or already answered by another thread)
    }
    // Otherwise the error function has answered, and nobody else holds it: freed here.
    return 0;
}

int rilproxy_free_all_event(rilproxy_entity_priv_t *ctx) {
    ZOK_LOG_SELF(kSigFreeAllEvent);
    RilproxyMutexHold hold(&ctx->event_pool_mutex);
    for (uint32_t slot = 0; slot < RILPROXY_EVENT_POOL_SIZE; ++slot) {
        event_ptr_t event = ctx->event_pool[slot];
        if (event == nullptr) continue;
        if (event_get_id(event) == EVENT_RILPROXY_ATCMD_REQ) {
            // Bounded copy: a payload shorter than the record yields a zero token, not an
            // over-read.
            AtCommandRequest request;
            rilproxy_read_payload(event, &request, sizeof(request));
            rilproxy_send_atcmd_response(reinterpret_cast<task_ptr_t>(ctx), event, request.token,
                                         AT_STATUS_RIL_ERROR, nullptr);
        }
        ctx->event_pool[slot] = nullptr;
        RilproxyEvent(event).reset();
        RLOGI("release the event index = %d", static_cast<int>(slot));
    }
    ctx->held_without_event = 0;
    ctx->serial_seq = 1;
    return 0;
}
