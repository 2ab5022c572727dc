// The unsolicited response handlers: each decodes one unsolicited Parcel and notifies the data
// manager's task, one event per decoded item. Reader thread.
#include "codec/notify.h"

#include <string.h>

#include "codec/bearer_record.h"
#include "codec/data_call_record.h"
#include "codec/wire_lists.h"
#include "core/log.h"
#include "core/replies.h"
#include "vopa_events.h"

// Every daemon that reports data calls appends the access network type.
constexpr int kHasEranType = 1;

// Activated and modified share this body: one event per announced bearer, a bearer the payload
// lacks decoded as zeros.
static void notifyBearers(const char *signature, task_ptr_t task, android::Parcel &parcel,
                          event_id_t id) {
    ZOK_LOG_AS(signature);
    int num = parcel.readInt32();
    RLOGI("num = %d", num);
    BearerNotification notification;
    int count = listEntriesToSend(signature, num);
    for (int i = 0; i < count; i++) {
        // The reader fills only what the wire carries (no QoS, TFT or P-CSCF addresses when
        // their flags are clear); cleared per entry, a bearer never shows its predecessor's.
        memset(&notification, 0, sizeof(notification));
        notification.status = 0;
        readDedicateDataFromParcel(parcel, &notification.bearer);
        rilproxy_send_notify(task, TASK_ID_DATAMNGR, id, &notification, sizeof(notification));
    }
}

int rilproxy_UNSOL_DATA_CALL_LIST_CHANGED_notify(task_ptr_t task, android::Parcel &parcel,
                                                 ril_supported_feature_t *) {
    ZOK_LOG_SELF(RILPROXY_NOTIFY_SIGNATURE(UNSOL_DATA_CALL_LIST_CHANGED));
    RLOGI("RIL_UNSOL_DATA_CALL_LIST_CHANGED");
    int ver = parcel.readInt32();
    int num = parcel.readInt32();
    RLOGI("ver %d num = %d", ver, num);
    // One record for the whole list, on this thread's stack: the reader thread's stack is sized
    // for it, and an allocation per entry would buy nothing.
    DataCallSetupReply notification;
    int count = listEntriesToSend(zok_log_signature, num);
    for (int i = 0; i < count; i++) {
        // The record reader leaves whatever an entry does not carry (bearers, addresses, the
        // default bearer's QoS and TFT) as it found it; cleared, no field leaks between entries.
        memset(&notification, 0, sizeof(notification));
        notification.status = 0;
        readDataCallFromParcel(parcel, &notification.dcall, ver, kHasEranType);
        // The list event deliberately carries four bytes less than the record: receivers
        // have always been sent this length, and accept both.
        rilproxy_send_notify(task, TASK_ID_DATAMNGR, EVENT_DATA_CALL_LIST_CHANGED_IND,
                             &notification, RILPROXY_DCALL_LIST_NOTIFY_SIZE);
    }
    return 0;
}

int rilproxy_UNSOL_DEDICATE_BEARER_ACTIVATED_notify(task_ptr_t task, android::Parcel &parcel,
                                                    ril_supported_feature_t *) {
    ZOK_LOG_SELF(RILPROXY_NOTIFY_SIGNATURE(UNSOL_DEDICATE_BEARER_ACTIVATED));
    RLOGI("RIL_UNSOL_DEDICATE_BEARER_ACTIVATED");
    notifyBearers(zok_log_signature, task, parcel, EVENT_DEDICATE_BEARER_ACTIVATED_IND);
    return 0;
}

int rilproxy_UNSOL_DEDICATE_BEARER_MODIFIED_notify(task_ptr_t task, android::Parcel &parcel,
                                                   ril_supported_feature_t *) {
    ZOK_LOG_SELF(RILPROXY_NOTIFY_SIGNATURE(UNSOL_DEDICATE_BEARER_MODIFIED));
    RLOGI("RIL_UNSOL_DEDICATE_BEARER_MODIFIED");
    notifyBearers(zok_log_signature, task, parcel, EVENT_DEDICATE_BEARER_MODIFIED_IND);
    return 0;
}

int rilproxy_UNSOL_DEDICATE_BEARER_DEACTIVATED_notify(task_ptr_t task, android::Parcel &parcel,
                                                      ril_supported_feature_t *) {
    ZOK_LOG_SELF(RILPROXY_NOTIFY_SIGNATURE(UNSOL_DEDICATE_BEARER_DEACTIVATED));
    RLOGI("RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED");
    ShortStatusNotification notification;
    memset(&notification, 0, sizeof(notification));
    int num = parcel.readInt32();
    if (num < 1) {
        RLOGI("RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED, num = %d", num);
        notification.status = ZOKRIL_E_GENERIC_FAILURE;
    } else {
        // The event has room for one cid: a release of several bearers reports the first only,
        // and the other cids stay unread.
        notification.status = 0;
        notification.cid = parcel.readInt32();
    }
    rilproxy_send_notify(task, TASK_ID_DATAMNGR, EVENT_DEDICATE_BEARER_DEACTIVATED_IND,
                         &notification, sizeof(notification));
    return 0;
}

int rilproxy_UNSOL_DATA_CALL_RESPONSE_notify(task_ptr_t task, android::Parcel &parcel,
                                             ril_supported_feature_t *) {
    ZOK_LOG_SELF(RILPROXY_NOTIFY_SIGNATURE(UNSOL_DATA_CALL_RESPONSE));
    RLOGI("RIL_UNSOL_DATA_CALL_RESPONSE");
    int ver = parcel.readInt32();
    int num = parcel.readInt32();
    RLOGI("ver %d num = %d", ver, num);
    if (num == 0) {
        RLOGE("UNSOL_DATA_CALL_RESPONSE num = %d", num);
        ShortStatusNotification failure;
        memset(&failure, 0, sizeof(failure));
        failure.status = ZOKRIL_E_GENERIC_FAILURE;
        rilproxy_send_notify(task, TASK_ID_DATAMNGR, EVENT_DATA_CALL_RESPONSE_FAIL_IND, &failure,
                             sizeof(failure));
    } else if (num == 1) {
        DataCallSetupReply notification;
        memset(&notification, 0, sizeof(notification));
        notification.status = 0;
        readDataCallFromParcel(parcel, &notification.dcall, ver, kHasEranType);
        rilproxy_send_notify(task, TASK_ID_DATAMNGR, EVENT_DATA_CALL_RESPONSE_IND, &notification,
                             sizeof(notification));
    } else {
        // A late result answers exactly one set-up; any other count cannot be matched to one.
        RLOGE("UNSOL_DATA_CALL_RESPONSE invalid num = %d", num);
    }
    return 0;
}

int rilproxy_UNSOL_IGNORE_notify(task_ptr_t, android::Parcel &, ril_supported_feature_t *) {
    return 0;
}
