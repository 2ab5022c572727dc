// The exported handler tables ril_handlers and ril_handlers_tlv (end rows only until the request
// handlers land). Read by the task thread and the reader thread; never written.
#include "rilproxy_entity.h"

extern "C" {
ril_handler_t ril_handlers[] = {
    {0, 0, 0, 0, nullptr, nullptr, nullptr},
};

ril_handler_tlv_t ril_handlers_tlv[] = {
    {0, 0, 0, 0, nullptr, nullptr, nullptr},
};
}
