// Writes the fuzz targets' seed files: real frames and Parcels of each kind, as the daemon sends
// them. Usage: make_corpus <dir>   (writes <dir>/<target>/<seed>; existing files are replaced)
//
// The frame seeds name the slots the frame_reader target parks its requests in: 0 deactivate,
// 1 set-up (plain, or TLV with bit 30), 2 AT command, 3 dedicated bearer, 4 P-CSCF, 5 fail cause.
#include <binder/Parcel.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "codec/parcel_strings.h"
#include "tools/sim/payloads.h"
#include "tools/sim/rild_sim.h"
#include "wire_format.h"

namespace {

using rild_sim::atAnswerPayload;
using rild_sim::int32Parcel;
using rild_sim::parcelBytes;
using rild_sim::responseFrame;
using rild_sim::textParcel;
using rild_sim::unsolicitedFrame;
using rild_sim::writeDataCallEntry;
using Bytes = std::vector<uint8_t>;

constexpr const char *kPcscfPair = "10.0.0.1 32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.2";

std::string gDir;

void put(const std::string &target, const std::string &name, const Bytes &data) {
    std::string dir = gDir + "/" + target;
    mkdir(dir.c_str(), 0755);
    std::string path = dir + "/" + name;
    FILE *f = fopen(path.c_str(), "wb");
    if (f == nullptr || fwrite(data.data(), 1, data.size(), f) != data.size()) {
        perror(path.c_str());
        exit(1);
    }
    fclose(f);
}

// The targets that read several shapes take a selector byte first.
Bytes selected(uint8_t selector, const Bytes &rest) {
    Bytes out{selector};
    out.insert(out.end(), rest.begin(), rest.end());
    return out;
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes &p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

void text(android::Parcel &p, const char *s) {
    writeUtf8StringToParcel(p, s);
}

void dataCallEntry(android::Parcel &p, int version, bool withBearer) {
    // Prefix lengths, colon-form IPv6 and more servers than the record holds, on purpose.
    writeDataCallEntry(p, version, 1,
                       {"10.1.2.3/24 32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.1",
                        "8.8.8.8 2001:4860:4860::8888 1.1.1.1 9.9.9.9",
                        "10.1.2.1 32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.254", kPcscfPair});
    if (version <= 1000) return;
    p.writeInt32(withBearer ? 1 : 0);
    if (withBearer) {
        for (int i = 0; i < 7; i++) p.writeInt32(i + 1);
        p.writeInt32(0);  // hasQos
        p.writeInt32(0);  // hasTft
        p.writeInt32(0);  // no P-CSCF
    }
    p.writeInt32(7);  // default bearer ddcId
    for (int i = 0; i < 7; i++) p.writeInt32(i + 10);
    p.writeInt32(0);
    p.writeInt32(0);
    p.writeInt32(1);
    text(p, "10.0.0.2");
    p.writeInt32(3);  // eran_type
}

void tft(android::Parcel &p, int filters) {
    p.writeInt32(1);  // operation
    p.writeInt32(filters);
    for (int i = 0; i < filters; i++) {
        for (int v = 0; v < 5; v++) p.writeInt32(i * 10 + v);
        text(p, "10.1.2.3");
        text(p, "255.255.255.0");
        for (int v = 0; v < 9; v++) p.writeInt32(v);
    }
    p.writeInt32(2);
    p.writeInt32(1);
    p.writeInt32(2);
    p.writeInt32(1);  // one auth token entry
    p.writeInt32(2);
    p.writeInt32(11);
    p.writeInt32(12);
    p.writeInt32(1);
    for (int v = 0; v < 4; v++) p.writeInt32(v);
}

void bearer(android::Parcel &p, bool full) {
    for (int i = 0; i < 7; i++) p.writeInt32(i + 1);
    p.writeInt32(full ? 1 : 0);
    if (full) {
        for (int v = 0; v < 5; v++) p.writeInt32(v + 5);
    }
    p.writeInt32(full ? 1 : 0);
    if (full) tft(p, 2);
    p.writeInt32(full ? 1 : 0);
    if (full) text(p, kPcscfPair);
}

Bytes dataCallList(int version, int entries) {
    android::Parcel p;
    p.writeInt32(version);
    p.writeInt32(entries);
    for (int i = 0; i < entries; i++) dataCallEntry(p, version, i == 0);
    return parcelBytes(p);
}

Bytes bearerList(int entries) {
    android::Parcel p;
    p.writeInt32(entries);
    for (int i = 0; i < entries; i++) bearer(p, i == 0);
    return parcelBytes(p);
}

void frameSeeds() {
    const char *t = "frame_reader";
    const uint32_t retry = RIL_SERIAL_RETRY_FLAG;
    put(t, "deactivate_ok", responseFrame(0x200, 0, {}));
    put(t, "deactivate_error", responseFrame(0x200, 2, {}));
    put(t, "setup_v11", responseFrame(0x301, 0, dataCallList(11, 1)));
    put(t, "setup_v1001_sim1", responseFrame(0x301, 0, dataCallList(1001, 1), {1, 1}));
    put(t, "setup_old_version", responseFrame(0x301, 0, dataCallList(4, 1)));
    // Refused TLV set-up: re-sent through the plain row, which lands in slot 1 again.
    put(t, "setup_tlv_refused_then_plain",
        join({responseFrame(retry | 0x301, 6, {}), responseFrame(0x801, 0, dataCallList(11, 1))}));
    put(t, "setup_tlv_accepted_then_failed",
        join({responseFrame(retry | 0x301, 0, {}), responseFrame(retry | 0x301, 2, {})}));
    put(t, "at_ok", responseFrame(0x402, 0, atAnswerPayload("\r\nOK\r\n")));
    put(t, "at_cme_error", responseFrame(0x402, 0, atAnswerPayload("\r\n+CME ERROR: 10\r\n")));
    put(t, "at_ril_error", responseFrame(0x402, 3, {}));
    put(t, "bearer_setup", responseFrame(0x503, 0, bearerList(2)));
    put(t, "pcscf", responseFrame(0x604, 0, textParcel(kPcscfPair)));
    put(t, "fail_cause", responseFrame(0x705, 0, int32Parcel({1, 26})));
    put(t, "stale_and_foreign_serials",
        join(
            {responseFrame(0x1f, 0, {}), responseFrame(0x40, 0, {}), responseFrame(0x200, 0, {})}));
    put(t, "unsol_list_changed",
        unsolicitedFrame(RIL_UNSOL_DATA_CALL_LIST_CHANGED, dataCallList(11, 2)));
    put(t, "unsol_bearers",
        join({unsolicitedFrame(RIL_UNSOL_DEDICATE_BEARER_ACTIVATED, bearerList(1)),
              unsolicitedFrame(RIL_UNSOL_DEDICATE_BEARER_MODIFIED, bearerList(1)),
              unsolicitedFrame(RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED, int32Parcel({1, 5}))}));
    put(t, "unsol_data_call_response",
        join({unsolicitedFrame(RIL_UNSOL_DATA_CALL_RESPONSE, dataCallList(1001, 1)),
              unsolicitedFrame(RIL_UNSOL_IGNORED_1009, int32Parcel({1}))}));
    put(t, "unsol_other_sim",
        unsolicitedFrame(RIL_UNSOL_DATA_CALL_LIST_CHANGED, dataCallList(11, 1), {0x8001, 0, 1}));
    // Broken frames: an unknown type, a length word beyond the cap, a header beyond its buffer.
    put(t, "unknown_type",
        Bytes{0x00, 0x00, 0x00, 0x10, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    put(t, "huge_length", Bytes{0x7f, 0xff, 0xff, 0xff, 0, 0, 0, 0});
    put(t, "huge_header", Bytes{0x00, 0x00, 0x08, 0x00, 0x00, 0x10, 0x00, 0x00});
    put(t, "short_length", Bytes{0x00, 0x00, 0x00, 0x04, 0, 0, 0, 0, 0, 0, 0, 0});
}

void parcelSeeds() {
    const char *t = "parcel_readers";
    android::Parcel v6, v11, v1001, b, f, pc;
    dataCallEntry(v6, 6, false);
    dataCallEntry(v11, 11, false);
    dataCallEntry(v1001, 1001, true);
    bearer(b, true);
    tft(f, 3);
    text(pc, "10.0.0.1 32.1.13.184.0.0.0.0.0.0.0.0.0.0.0.2 2001:db8::1");
    put(t, "data_call_v6", selected(0, parcelBytes(v6)));
    put(t, "data_call_v11", selected(1, parcelBytes(v11)));
    put(t, "data_call_v1001", selected(2, parcelBytes(v1001)));
    put(t, "bearer", selected(3, parcelBytes(b)));
    put(t, "tft", selected(4, parcelBytes(f)));
    put(t, "pcscf", selected(5, parcelBytes(pc)));
    put(t, "tft_counts_beyond_arrays", selected(4, int32Parcel({1, 40, 0})));
}

void converterSeeds() {
    const char *t = "converters";
    put(t, "utf8_mixed",
        selected(0, Bytes{'A', 0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98, 0x80}));
    put(t, "utf8_broken",
        selected(0, Bytes{0xC3, 'A', 0x80, 0xF4, 0x8F, 0xBF, 0xBF, 0xED, 0xA0, 0x80}));
    put(t, "utf8_f8_leads", selected(0, Bytes{0xF8, 0x88, 0x80, 0x80, 0x80, 0xFF}));
    put(t, "utf16_units",
        selected(1, Bytes{0x41, 0x00, 0x00, 0x00, 0x3D, 0xD8, 0x00, 0xDE, 0xFF, 0x07}));
    put(t, "utf16_lone_surrogates", selected(1, Bytes{0x00, 0xDC, 0x00, 0xD8, 0x80, 0x00}));
}

void notifySeeds() {
    const char *t = "notify_handlers";
    // Rows in table order: 6002, 3030, 3031, 3032, 3072, 1009.
    put(t, "list_changed_v11", selected(0, dataCallList(11, 2)));
    put(t, "list_changed_v1001", selected(0, dataCallList(1001, 1)));
    put(t, "list_changed_v6", selected(0, dataCallList(6, 1)));
    put(t, "bearer_activated", selected(1, bearerList(2)));
    put(t, "bearer_modified", selected(2, bearerList(1)));
    put(t, "bearer_deactivated", selected(3, int32Parcel({3, 5, 6, 7})));
    put(t, "bearer_deactivated_none", selected(3, int32Parcel({0})));
    put(t, "data_call_response", selected(4, dataCallList(11, 1)));
    put(t, "data_call_response_none", selected(4, int32Parcel({11, 0})));
    put(t, "ignored", selected(5, int32Parcel({1, 2})));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s <corpus dir>\n", argv[0]);
        return 2;
    }
    gDir = argv[1];
    mkdir(gDir.c_str(), 0755);
    frameSeeds();
    parcelSeeds();
    converterSeeds();
    notifySeeds();
    return 0;
}
