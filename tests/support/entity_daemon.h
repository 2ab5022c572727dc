// The whole entity on the host framework, connected to a simulated RIL daemon that listens on a
// real local socket in a private ANDROID_SOCKET_DIR: the peer of the end-to-end tests.
//
//     static void SetUpTestSuite() { gDaemon = startEntityWithDaemon(); }
//     ASSERT_TRUE(gDaemon->readRequest(&req, 5000));
//
// `ctx`, when given, receives the entity's private context. startEntity serves a test that brings
// its own daemon (the simulated daemon's profile, say): `listen` opens the daemon's socket in the
// private directory before the entity looks for it, `accepted` then waits for the connection.
//
// Pitfall: the connected reader ends the process when its socket closes, so the daemon is never
// deleted and there is one entity per process: later calls return the same daemon, and only the
// first call's `listen` runs. Null or false (with a gtest failure) when the entity did not
// connect.
#ifndef ZOK_TESTS_ENTITY_DAEMON_H
#define ZOK_TESTS_ENTITY_DAEMON_H

#include <functional>

#include "tools/sim/rild_sim.h"

struct rilproxy_entity_priv;

rild_sim::RildSim *startEntityWithDaemon(struct rilproxy_entity_priv **ctx = nullptr);

bool startEntity(const std::function<void()> &listen, const std::function<bool()> &accepted,
                 struct rilproxy_entity_priv **ctx = nullptr);

#endif  // ZOK_TESTS_ENTITY_DAEMON_H
