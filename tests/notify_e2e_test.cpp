// Unsolicited frames from the simulated daemon on a real local socket, through the whole entity
// (reader thread, ril_notifys) to the events task 402 receives. What each handler decodes is in
// notify_test.cpp; the SIM filter and the ids without a row are in reader_test.cpp.
#include <gtest/gtest.h>

#include "rilproxy_entity.h"
#include "support/bytes.h"
#include "support/entity_daemon.h"
#include "support/event_bytes.h"
#include "vopa_events.h"
#include "vopa_host.h"

namespace {

TEST(NotifyE2eTest, UnsolicitedFramesReachTheDataManagerInOrder) {
    rild_sim::RildSim *daemon = startEntityWithDaemon();
    ASSERT_NE(daemon, nullptr);
    uint64_t start = lastDeliverySeq();
    const struct {
        int32_t id;
        const char *payload;
        std::vector<uint32_t> featureHeader;
    } frames[] = {
        {1009, "00 00 00 00", {}},
        {3031, "01 00 00 00 01 00 00 00 05 00 00 00 0a 00 00 00", {}},
        // One version-6 data call, status 33, cid 6, active 1, all texts null.
        {6002,
         "06 00 00 00 01 00 00 00 21 00 00 00 00 00 00 00 06 00 00 00 01 00 00 00 ff ff ff ff ff "
         "ff ff ff ff ff ff ff ff ff ff ff ff ff ff ff",
         {}},
        // Last, so that its event shows every frame before it was handled.
        {3032, "01 00 00 00 77 77 00 00", {1, 0}},
    };
    for (const auto &f : frames) {
        ASSERT_TRUE(daemon->writeUnsolicited(f.id, bytes(f.payload), f.featureHeader));
    }
    ASSERT_TRUE(vopa_host::wait_for_id(4026, 5000, nullptr, start));
    expectEvents(deliveriesTo(vopa_host::DeliveryKind::Send, TASK_ID_DATAMNGR, start),
                 {{4025, 3960, {{8, "01 00 00 00 05 00 00 00 0a 00 00 00"}}},
                  {4021, 47872, {{4, "21 00 00 00 00 00 00 00 06 00 00 00 01 00 00 00"}}},
                  {4026, 8, {{0, "00 00 00 00 77 77 00 00"}}}});
    EXPECT_TRUE(vopa_host::wait_no_live_events(5000));
    EXPECT_EQ(vopa_host::counters().bad_frees, 0u);
}

}  // namespace
