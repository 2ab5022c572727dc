// The capability SIM from the SIM-switch property; read afresh on every call, on any thread.
#include "core/capability_sim.h"

#include <cutils/properties.h>
#include <stdlib.h>
#include <string.h>

#include "vopa.h"

int rilproxy_get_capability_sim(void) {
    char value[PROPERTY_VALUE_MAX];
    memset(value, 0, sizeof(value));
    // The property holds the 1-based SIM number; the entity works with 0-based indices.
    property_get(zok_prop_ver >= 1 ? "persist.vendor.radio.simswitch" : "persist.radio.simswitch",
                 value, "1");
    return atoi(value) - 1;
}
