// Unsolicited response handlers, rows of ril_notifys. They run on the reader thread, decode the
// payload and send one framework event per item to task 402. All return 0.
#ifndef ZOK_CODEC_NOTIFY_H
#define ZOK_CODEC_NOTIFY_H

#include "rilproxy.h"

int rilproxy_UNSOL_DATA_CALL_LIST_CHANGED_notify(task_ptr_t task, android::Parcel &parcel,
                                                 ril_supported_feature_t *features);
int rilproxy_UNSOL_DEDICATE_BEARER_ACTIVATED_notify(task_ptr_t task, android::Parcel &parcel,
                                                    ril_supported_feature_t *features);
int rilproxy_UNSOL_DEDICATE_BEARER_MODIFIED_notify(task_ptr_t task, android::Parcel &parcel,
                                                   ril_supported_feature_t *features);
int rilproxy_UNSOL_DEDICATE_BEARER_DEACTIVATED_notify(task_ptr_t task, android::Parcel &parcel,
                                                      ril_supported_feature_t *features);
int rilproxy_UNSOL_DATA_CALL_RESPONSE_notify(task_ptr_t task, android::Parcel &parcel,
                                             ril_supported_feature_t *features);
int rilproxy_UNSOL_IGNORE_notify(task_ptr_t task, android::Parcel &parcel,
                                 ril_supported_feature_t *features);

#endif  // ZOK_CODEC_NOTIFY_H
