// The exported table ril_notifys: unsolicited response id to handler. Read by the reader thread;
// never written.
#include "codec/notify.h"
#include "rilproxy_entity.h"
#include "wire_format.h"

extern "C" {
ril_notify_t ril_notifys[] = {
    {RIL_UNSOL_DATA_CALL_LIST_CHANGED, rilproxy_UNSOL_DATA_CALL_LIST_CHANGED_notify},
    {RIL_UNSOL_DEDICATE_BEARER_ACTIVATED, rilproxy_UNSOL_DEDICATE_BEARER_ACTIVATED_notify},
    {RIL_UNSOL_DEDICATE_BEARER_MODIFIED, rilproxy_UNSOL_DEDICATE_BEARER_MODIFIED_notify},
    {RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED, rilproxy_UNSOL_DEDICATE_BEARER_DEACTIVATED_notify},
    {RIL_UNSOL_DATA_CALL_RESPONSE, rilproxy_UNSOL_DATA_CALL_RESPONSE_notify},
    {RIL_UNSOL_IGNORED_1009, rilproxy_UNSOL_IGNORE_notify},
    {0, nullptr},
};
}
