// Row lookup in the handler tables, with the tables as parameters so that callers other than the
// dispatcher (the retry, tests) can scan rows of their own. Any thread; the tables are read-only.
//
//     ril_handler_tlv_t *tlv = rilproxy_find_handler_tlv(ril_handlers_tlv, id);
//
// A scan stops at the first row whose request event id, response event id or RIL request id is
// 0, or whose req pointer is null: rows after such a row are never found. The reader's response
// walk stops on a null resp pointer instead and does not use these.
#ifndef ZOK_CORE_HANDLER_LOOKUP_H
#define ZOK_CORE_HANDLER_LOOKUP_H

#include "rilproxy.h"

// The first row whose request event id is `id`, or null.
ril_handler_t *rilproxy_find_handler(ril_handler_t *table, event_id_t id);
ril_handler_tlv_t *rilproxy_find_handler_tlv(ril_handler_tlv_t *table, event_id_t id);

#endif  // ZOK_CORE_HANDLER_LOOKUP_H
