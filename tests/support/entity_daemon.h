// The whole entity on the host framework, connected to a simulated RIL daemon that listens on a
// real local socket in a private ANDROID_SOCKET_DIR: the peer of the end-to-end tests.
//
//     static void SetUpTestSuite() { gDaemon = startEntityWithDaemon(); }
//     ASSERT_TRUE(gDaemon->readRequest(&req, 5000));
//
// Pitfall: the connected reader ends the process when its socket closes, so the daemon is never
// deleted and there is one entity per process: later calls return the same daemon. Null (with a
// gtest failure) when the entity did not connect.
#ifndef ZOK_TESTS_ENTITY_DAEMON_H
#define ZOK_TESTS_ENTITY_DAEMON_H

#include "tools/sim/rild_sim.h"

rild_sim::RildSim *startEntityWithDaemon();

#endif  // ZOK_TESTS_ENTITY_DAEMON_H
