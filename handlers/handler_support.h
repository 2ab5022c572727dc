// Pieces shared by the request and response functions of handlers/: reading a framework payload
// into a fixed record, bounding fixed text fields, and the eighteen set-up strings that the plain
// and TLV set-up requests both send. No logging here: every log line stays in the handler that
// owns it, whose signature opens the line. Any thread; no state.
#ifndef ZOK_HANDLERS_HANDLER_SUPPORT_H
#define ZOK_HANDLERS_HANDLER_SUPPORT_H

#include <string.h>

#include "codec/parcel_strings.h"
#include "rilproxy.h"

// Copies the event's payload into `record`, zero-filled first and bounded by the payload's
// actual length: a payload shorter than its record reads as zeros in the missing fields instead
// of running past its end. False when the event carries no payload at all.
static inline bool rilproxy_read_payload(event_ptr_t event, void *record, size_t size) {
    memset(record, 0, size);
    int len = 0;
    const void *data = event_get_data(event, 0, &len);
    if (data == nullptr) return false;
    size_t have = len > 0 ? static_cast<size_t>(len) : 0;
    memcpy(record, data, have < size ? have : size);
    return true;
}

// A fixed text field of the framework's records, bounded: the field need not hold its NUL.
static_assert(RILPROXY_APN_TEXT_SIZE == RILPROXY_SETUP_TEXT_SIZE, "one bound for both text fields");
struct rilproxy_field_text_t {
    char text[RILPROXY_SETUP_TEXT_SIZE + 1];
};

static inline rilproxy_field_text_t rilproxy_field_text(
    const char (&field)[RILPROXY_SETUP_TEXT_SIZE]) {
    rilproxy_field_text_t out;
    memcpy(out.text, field, sizeof(field));
    out.text[sizeof(field)] = '\0';
    return out;
}

static inline const char *rilproxy_protocol_text(int32_t protocol) {
    if (protocol == RILPROXY_PROTOCOL_IPV6) return "IPV6";
    if (protocol == RILPROXY_PROTOCOL_IPV4V6) return "IPV4V6";
    return "IP";
}

// The set-up Parcel counts strings; the TLV form adds the serial number as a nineteenth.
#define RILPROXY_SETUP_PARCEL_STRINGS 18
#define RILPROXY_SETUP_TLV_PARCEL_STRINGS 19

// Strings 1 to 8 of the set-up Parcel: the five texts, authType, protocol text, cid.
static inline void rilproxy_write_setup_head(android::Parcel &parcel,
                                             const DataCallSetupRequest &req) {
    for (int i = 0; i < RILPROXY_SETUP_STRINGS; i++) {
        writeUtf8StringToParcel(parcel, rilproxy_field_text(req.strings[i]).text);
    }
    writeIntAsStringToParcel(parcel, req.authType);
    writeUtf8StringToParcel(parcel, rilproxy_protocol_text(req.protocol));
    writeIntAsStringToParcel(parcel, req.cid);
}

// Strings 9 to 18: mIsValid and the nine WFC / RAN values.
static inline void rilproxy_write_setup_wfc(android::Parcel &parcel,
                                            const DataCallSetupRequest &req) {
    for (int i = 0; i < RILPROXY_SETUP_WFC_VALUES; i++) {
        writeIntAsStringToParcel(parcel, req.mIsValid[i]);
    }
}

#endif  // ZOK_HANDLERS_HANDLER_SUPPORT_H
