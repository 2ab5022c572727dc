// The event pool: framework events waiting for a RIL response, parked in 32 slots under serial
// numbers (slot in bits 0-7, sequence from bit 8, retry flag in bit 30), and the drive of one
// request through a handler-table row. Task thread and reader thread; event_pool_mutex guards
// the slots and the sequence, taken inside each operation only (after sock_mutex if both).
#ifndef ZOK_CORE_EVENT_POOL_H
#define ZOK_CORE_EVENT_POOL_H

#include <stdint.h>

#include "rilproxy.h"

// Serial number of the parked event, 0 when every slot is taken.
uint32_t rilproxy_add_event_to_pool(rilproxy_entity_priv_t *ctx, event_ptr_t event);
// The event parked under the serial's slot, or null (also for slots 32-255); the slot is freed.
event_ptr_t rilproxy_take_event_by_serial(rilproxy_entity_priv_t *ctx, uint32_t serial_no);
// 0: sent and parked, or the send failed after the reader had already taken the event out of its
// slot (answered it): either way the caller no longer owns it. -1: failed, the row's error
// function already answered with 2, and the caller owns the event again (the old-table path
// keeps its slot held without it).
int rilproxy_handle_ril_request(rilproxy_entity_priv_t *ctx, event_ptr_t event, ril_handler_t *row);
int rilproxy_handle_ril_request_tlv(rilproxy_entity_priv_t *ctx, event_ptr_t event,
                                    ril_handler_tlv_t *row);
// Which thread sends a request's frame: the task thread blocks under the write token, the reader
// queues it in the channel's outbox.
enum class RilproxySender { kTaskThread, kReader };
int rilproxy_handle_ril_request_by(rilproxy_entity_priv_t *ctx, event_ptr_t event,
                                   ril_handler_t *row, RilproxySender sender);
// The frame of `param` through the entity's channel, on the published socket.
int rilproxy_channel_send(rilproxy_entity_priv_t *ctx, rilproxy_ril_requset_param_t *param,
                          RilproxySender sender);
// Takes `event` back out of the slot of `serial_no` after a failure. False when the slot no
// longer holds it: another thread took it (and answers and frees it). With `holdSlot` the slot
// stays occupied without an event, for a request whose event goes back to its caller (and is
// freed there): it is not handed out again and take finds nothing in it until
// rilproxy_free_all_event empties the pool. True for a serial that was never parked (0).
bool rilproxy_reclaim_event(rilproxy_entity_priv_t *ctx, uint32_t serial_no, event_ptr_t event,
                            bool holdSlot);
// Re-sends an event taken out of the pool through ril_handlers. Always 0: the event is handed
// over, to the pool again or, when it could not be re-sent, released here.
int rilproxy_retry_old_request(rilproxy_entity_priv_t *ctx, event_ptr_t event);
// Releases every parked event (AT requesters answered with status 6). Always 0.
int rilproxy_free_all_event(rilproxy_entity_priv_t *ctx);

#endif  // ZOK_CORE_EVENT_POOL_H
