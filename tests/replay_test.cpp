// What rild-sim --replay takes from a capture: answers by request id in recorded order, the
// frames recorded before the first request, the closes, and the frames it refuses.
#include "tools/sim/replay.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/sim/rild_sim.h"

namespace {

using capture::Direction;

capture::Packet packet(Direction d, uint64_t us, std::vector<uint8_t> frame) {
    capture::Packet p;
    p.direction = d;
    p.timestampUs = us;
    p.frame = std::move(frame);
    return p;
}
capture::Packet req(int32_t id, uint32_t serial, uint64_t us) {
    return packet(Direction::ToDaemon, us, rild_sim::requestFrameBytes({0, 4, 0, id, serial, {}}));
}
capture::Packet resp(uint32_t serial, int32_t result, uint64_t us) {
    return packet(Direction::ToEntity, us, rild_sim::responseFrame(serial, result, {}));
}
capture::Packet unsol(int32_t id, uint64_t us) {
    return packet(Direction::ToEntity, us, rild_sim::unsolicitedFrame(id, {}));
}

TEST(Replay, RepeatedIdEarlyFramesAndClosesKeepTheirPlace) {
    const std::vector<capture::Packet> packets = {
        unsol(6002, 100),    // before the first request
        resp(0x77, 0, 150),  // answers nothing: sent like an unsolicited frame
        req(27, 1, 300),
        req(27, 2, 310),
        resp(2, 14, 320),  // the second 27 answered first
        resp(1, 0, 330),
        unsol(3030, 400),
        packet(Direction::ToDaemon, 450, {}),  // the entity's close: its own business
        packet(Direction::ToEntity, 500, {}),  // the daemon's close
    };
    rild_sim::Replay replay;
    std::string error;
    ASSERT_TRUE(rild_sim::buildReplay(packets, &replay, &error)) << error;
    ASSERT_EQ(replay.atConnect.size(), 2u);
    EXPECT_EQ(replay.atConnect[0].offsetUs, 0u);
    EXPECT_EQ(replay.atConnect[1].offsetUs, 50u);
    const auto &answers = replay.byRequest[27];
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(answers[0].response, rild_sim::responseFrame(1, 0, {}));
    EXPECT_EQ(answers[1].response, rild_sim::responseFrame(2, 14, {}));
    EXPECT_TRUE(answers[0].after.empty());
    ASSERT_EQ(answers[1].after.size(), 2u);  // after the latest request: 3030, then the close
    EXPECT_EQ(answers[1].after[0].offsetUs, 90u);
    EXPECT_EQ(answers[1].after[1].offsetUs, 190u);
    EXPECT_TRUE(answers[1].after[1].frame.empty());
}

TEST(Replay, RefusesFramesItCannotRead) {
    std::vector<uint8_t> wideHeader = req(41, 1, 0).frame;
    wideHeader[4] = 8;  // a request's header is 4 bytes
    for (const capture::Packet &bad :
         {packet(Direction::ToDaemon, 0, {0, 0, 0, 16, 4, 0}),
          packet(Direction::ToDaemon, 0, wideHeader),
          packet(Direction::ToEntity, 0, {0, 0, 0, 8, 0, 1, 0, 0, 0, 0, 0, 0})}) {
        rild_sim::Replay replay;
        std::string error;
        EXPECT_FALSE(rild_sim::buildReplay({req(23, 9, 0), bad}, &replay, &error));
        EXPECT_EQ(error.rfind("packet 2: ", 0), 0u) << error;
    }
}

}  // namespace
