// The exported table ril_notifys (end row only until the unsolicited handlers land). Read by the
// reader thread; never written.
#include "rilproxy_entity.h"

extern "C" {
ril_notify_t ril_notifys[] = {
    {0, nullptr},
};
}
