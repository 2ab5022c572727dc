// The whole entity on the host framework, connected to a simulated RIL daemon that listens on a
// real local socket in a private ANDROID_SOCKET_DIR: the peer of the end-to-end tests.
//
//     static void SetUpTestSuite() { gDaemon = startEntityWithDaemon(); }
//     ASSERT_TRUE(gDaemon->readRequest(&req, 5000));
//
// `ctx`, when given, receives the entity's private context.
//
// Pitfall: the connected reader ends the process when its socket closes, so the daemon is never
// deleted and there is one entity per process: later calls return the same daemon. Null (with a
// gtest failure) when the entity did not connect.
#ifndef ZOK_TESTS_ENTITY_DAEMON_H
#define ZOK_TESTS_ENTITY_DAEMON_H

#include "tools/sim/rild_sim.h"

struct rilproxy_entity_priv;

rild_sim::RildSim *startEntityWithDaemon(struct rilproxy_entity_priv **ctx = nullptr);

#endif  // ZOK_TESTS_ENTITY_DAEMON_H
