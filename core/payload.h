// Framework payloads read into the entity's fixed records. A payload is whatever the framework
// (or a requester) handed over: it may be shorter than its record, so every read goes through a
// zeroed copy bounded by the payload's actual length instead of running past its end. Any thread.
#ifndef ZOK_CORE_PAYLOAD_H
#define ZOK_CORE_PAYLOAD_H

#include <stddef.h>
#include <string.h>

#include "vopa.h"

// `record` gets the first `size` bytes of `data` (`len` bytes long), zero-filled past its end.
static inline void rilproxy_copy_bounded(void *record, size_t size, const void *data, int len) {
    memset(record, 0, size);
    if (data == nullptr || len <= 0) return;
    memcpy(record, data, static_cast<size_t>(len) < size ? static_cast<size_t>(len) : size);
}

// The event's payload into `record` as above. False when the event carries no payload at all.
static inline bool rilproxy_read_payload(event_ptr_t event, void *record, size_t size) {
    int len = 0;
    const void *data = event_get_data(event, 0, &len);
    rilproxy_copy_bounded(record, size, data, len);
    return data != nullptr;
}

#endif  // ZOK_CORE_PAYLOAD_H
