// What rild-sim --replay takes from a capture: answers by request id in recorded order, the
// frames recorded before the first request, the closes. (Captures it refuses:
// tests/tools/bad_inputs.sh.)
#include "tools/sim/replay.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/sim/rild_sim.h"

namespace {

using capture::Direction;
using Bytes = std::vector<uint8_t>;

capture::Packet at(uint64_t us, Direction d, Bytes frame) {
    return capture::Packet{d, us, std::move(frame)};
}
Bytes req(int32_t id, uint32_t serial) {
    return rild_sim::requestFrameBytes({0, 4, 0, id, serial, {}});
}
Bytes resp(uint32_t serial, int32_t result) {
    return rild_sim::responseFrame(serial, result, {});
}
std::vector<uint64_t> offsets(const std::vector<rild_sim::Replay::Timed> &items) {
    std::vector<uint64_t> out;
    for (const auto &t : items) out.push_back(t.frame.empty() ? ~t.offsetUs : t.offsetUs);
    return out;  // a close's offset inverted, to tell it from a frame's
}

TEST(Replay, RepeatedIdEarlyFramesAndClosesKeepTheirPlace) {
    const auto in = Direction::ToEntity, out = Direction::ToDaemon;
    rild_sim::Replay replay;
    std::string error;
    ASSERT_TRUE(rild_sim::buildReplay(
        {at(100, in, rild_sim::unsolicitedFrame(6002, {})),  // before the first request
         at(150, in, resp(0x77, 0)),                         // answers nothing: kept in time
         at(300, out, req(27, 1)), at(310, out, req(27, 2)),
         at(320, in, resp(2, 14)),  // the second 27 answered first
         at(330, in, resp(1, 0)), at(400, in, rild_sim::unsolicitedFrame(3030, {})),
         at(450, out, {}), at(500, in, {})},  // the entity's close (not replayed), the daemon's
        &replay, &error))
        << error;
    EXPECT_EQ(offsets(replay.atConnect), (std::vector<uint64_t>{0, 50}));
    const auto &answers = replay.byRequest[27];
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(answers[0].response, resp(1, 0));
    EXPECT_EQ(answers[1].response, resp(2, 14));
    EXPECT_EQ(offsets(answers[0].after), std::vector<uint64_t>{});
    EXPECT_EQ(offsets(answers[1].after), (std::vector<uint64_t>{90, ~190ull}));
}

}  // namespace
