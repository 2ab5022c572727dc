// Pieces shared by the request and response functions of handlers/: reading a framework payload
// into a fixed record, bounding fixed text fields, and the eighteen set-up strings that the plain
// and TLV set-up requests both send. No logging here: every log line stays in the handler that
// owns it, whose signature opens the line. Any thread; no state.
#ifndef ZOK_HANDLERS_HANDLER_SUPPORT_H
#define ZOK_HANDLERS_HANDLER_SUPPORT_H

#include <string.h>

#include "codec/parcel_strings.h"
#include "core/payload.h"
#include "rilproxy.h"

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
