// Event payloads and the events the host framework delivered, as bytes written out in hex.
//
//     auto payload = bytesAt(704, {{0, "69 6d 73"}, {700, "01"}});  // zeros elsewhere
//     uint64_t start = lastDeliverySeq();
//     ... the entity answers ...
//     expectEvents(deliveriesTo(vopa_host::DeliveryKind::Reply, 77, start),
//                  {{4006, 8, {{0, "00 00 00 00"}}}});
#ifndef ZOK_TESTS_EVENT_BYTES_H
#define ZOK_TESTS_EVENT_BYTES_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

#include "vopa_host.h"

typedef std::vector<std::pair<size_t, std::string>> HexSlices;  // offset, hex

// `size` zero bytes with each slice's bytes written at its offset.
std::vector<uint8_t> bytesAt(size_t size, const HexSlices &slices);

struct ExpectedEvent {
    event_id_t id;
    size_t size;
    HexSlices slices;  // bytes that must be found at their offsets
};

// Deliveries of `kind` to `to` recorded after sequence number `after`, in order.
std::vector<vopa_host::Delivery> deliveriesTo(vopa_host::DeliveryKind kind, int32_t to,
                                              uint64_t after = 0);
// The sequence number of the last delivery so far, 0 if none.
uint64_t lastDeliverySeq();
// Count, ids, sizes and slices, as non-fatal gtest failures.
void expectEvents(const std::vector<vopa_host::Delivery> &got,
                  const std::vector<ExpectedEvent> &want);

#endif  // ZOK_TESTS_EVENT_BYTES_H
