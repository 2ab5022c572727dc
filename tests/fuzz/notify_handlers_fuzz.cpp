// Each unsolicited handler of ril_notifys on arbitrary Parcels: the first byte picks the row, the
// rest is the payload. Every event the handler sends must be freed by the framework and match in
// number what the Parcel announced. (Where each kind goes and its fixed size do not depend on the
// payload: notify_test pins them byte for byte.)
#include <binder/Parcel.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "codec/wire_lists.h"
#include "fuzz/fuzz_check.h"
#include "rilproxy.h"
#include "rilproxy_entity.h"
#include "vopa_host.h"

namespace {

size_t rowCount() {
    size_t n = 0;
    while (ril_notifys[n].id != 0 && ril_notifys[n].handler != nullptr) n++;
    return n;
}

int32_t wordAt(const uint8_t *payload, size_t size, size_t index) {
    if (size < (index + 1) * 4) return 0;
    int32_t w;
    memcpy(&w, payload + index * 4, sizeof(w));
    return w;
}

size_t listEvents(int32_t num) {
    if (num <= 0) return 0;
    return num < kListEntriesMax ? static_cast<size_t>(num) : static_cast<size_t>(kListEntriesMax);
}

bool isList(int32_t id) {
    return id == RIL_UNSOL_DATA_CALL_LIST_CHANGED || id == RIL_UNSOL_DEDICATE_BEARER_ACTIVATED ||
           id == RIL_UNSOL_DEDICATE_BEARER_MODIFIED;
}

// The events a payload produces: exactly one per announced item for the lists (up to the
// per-frame ceiling, whatever the payload holds), one at most for the others. The count word is
// the payload's first (bearers) or second (after a version) word.
size_t maxEvents(int32_t id, const uint8_t *payload, size_t size) {
    switch (id) {
        case RIL_UNSOL_DATA_CALL_LIST_CHANGED:
            return listEvents(wordAt(payload, size, 1));
        case RIL_UNSOL_DEDICATE_BEARER_ACTIVATED:
        case RIL_UNSOL_DEDICATE_BEARER_MODIFIED:
            return listEvents(wordAt(payload, size, 0));
        case RIL_UNSOL_DEDICATE_BEARER_DEACTIVATED:
        case RIL_UNSOL_DATA_CALL_RESPONSE:
            return 1;
        default:
            return 0;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const size_t rows = rowCount();
    static task_ptr_t task = static_cast<task_ptr_t>(calloc(1, sizeof(vopa_task_t)));
    if (size < 1 || rows == 0) return 0;
    const ril_notify_t &row = ril_notifys[data[0] % rows];
    vopa_host::reset();

    android::Parcel parcel;
    parcel.setData(data + 1, size - 1);
    ril_supported_feature_t feature = {0};
    check(row.handler(task, parcel, &feature) == 0, "handlers always return 0");

    std::vector<vopa_host::Delivery> out = vopa_host::deliveries();
    size_t announced = maxEvents(row.id, data + 1, size - 1);
    check(isList(row.id) ? out.size() == announced : out.size() <= announced,
          "as many events as announced, up to the ceiling");
    vopa_host::Counters c = vopa_host::counters();
    check(c.live == 0 && c.bad_frees == 0, "every notification is freed exactly once");
    return 0;
}
