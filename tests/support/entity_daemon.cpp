#include "support/entity_daemon.h"

#include <cutils/properties_host.h>
#include <gtest/gtest.h>

#include "rilproxy_entity.h"
#include "support/socket_dir.h"
#include "vopa_host.h"

bool startEntity(const std::function<void()> &listen, const std::function<bool()> &accepted,
                 rilproxy_entity_priv_t **ctx) {
    static vopa_entity_t entity = {};
    static bool connected = false;
    if (!connected) {
        property_host_reset();
        zok_prop_ver = 1;
        ScopedSocketDir dir;
        listen();
        if (rilproxy_entity_init(&entity, nullptr) != &entity) {
            ADD_FAILURE() << "entity init failed";
            return false;
        }
        vopa_host::open_entity_init_gate();
        if (!accepted() || !vopa_host::wait_for_id(EVENT_RILPROXY_STATE_IND, 5000)) {
            ADD_FAILURE() << "the entity did not connect to the simulated daemon";
            return false;
        }
        connected = true;
    }
    if (ctx != nullptr) *ctx = static_cast<rilproxy_entity_priv_t *>(entity.priv);
    return true;
}

rild_sim::RildSim *startEntityWithDaemon(rilproxy_entity_priv_t **ctx) {
    // Kept reachable through the static so that leak checkers do not count it.
    static rild_sim::RildSim *daemon = nullptr;
    if (!startEntity([] { daemon = new rild_sim::RildSim("rild-zok"); },
                     [] { return daemon->acceptClient(5000); }, ctx)) {
        return nullptr;
    }
    return daemon;
}
