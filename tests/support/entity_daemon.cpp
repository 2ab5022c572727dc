#include "support/entity_daemon.h"

#include <cutils/properties_host.h>
#include <gtest/gtest.h>

#include "rilproxy_entity.h"
#include "support/socket_dir.h"
#include "vopa_host.h"

rild_sim::RildSim *startEntityWithDaemon(rilproxy_entity_priv_t **ctx) {
    static rild_sim::RildSim *daemon = nullptr;
    static vopa_entity_t entity = {};
    if (daemon == nullptr) {
        property_host_reset();
        zok_prop_ver = 1;
        ScopedSocketDir dir;
        // Kept reachable through the static so that leak checkers do not count it.
        static rild_sim::RildSim *listening = new rild_sim::RildSim("rild-zok");
        if (rilproxy_entity_init(&entity, nullptr) != &entity) {
            ADD_FAILURE() << "entity init failed";
            return nullptr;
        }
        vopa_host::open_entity_init_gate();
        if (!listening->acceptClient(5000) ||
            !vopa_host::wait_for_id(EVENT_RILPROXY_STATE_IND, 5000)) {
            ADD_FAILURE() << "the entity did not connect to the simulated daemon";
            return nullptr;
        }
        daemon = listening;
    }
    if (ctx != nullptr) *ctx = static_cast<rilproxy_entity_priv_t *>(entity.priv);
    return daemon;
}
