// Capture files (pcapng) and the frame splitter of the relaying tools.
#include <gtest/gtest.h>

#include <fstream>

#include "support/bytes.h"
#include "support/socket_dir.h"
#include "tools/capture/pcapng.h"

namespace {

using capture::Direction;

TEST(CaptureTest, BlockLayout) {
    // Section header (version 1.0, length not given), then one interface of link type 147.
    EXPECT_EQ(hex(capture::fileHeader()),
              "0a 0d 0d 0a 1c 00 00 00 4d 3c 2b 1a 01 00 00 00 ff ff ff ff ff ff ff ff 1c 00 00 00 "
              "01 00 00 00 14 00 00 00 93 00 00 00 00 00 00 00 14 00 00 00");
    const struct {
        Direction direction;
        std::string frame, block;
    } cases[] = {
        // An empty deactivate request, outbound (flags 2).
        {Direction::ToDaemon, "00 00 00 10 04 00 00 00 00 00 00 00 29 00 00 00 00 02 00 00",
         "06 00 00 00 40 00 00 00 00 00 00 00 01 00 00 00 02 00 00 00 14 00 00 00 14 00 00 00 "
         "00 00 00 10 04 00 00 00 00 00 00 00 29 00 00 00 00 02 00 00 "
         "02 00 04 00 02 00 00 00 00 00 00 00 40 00 00 00"},
        // Five bytes padded to eight, inbound (flags 1).
        {Direction::ToEntity, "00 00 00 01 aa",
         "06 00 00 00 34 00 00 00 00 00 00 00 01 00 00 00 02 00 00 00 05 00 00 00 05 00 00 00 "
         "00 00 00 01 aa 00 00 00 02 00 04 00 01 00 00 00 00 00 00 00 34 00 00 00"},
    };
    for (const auto &c : cases) {
        capture::Packet p;
        p.direction = c.direction;
        p.timestampUs = 0x100000002ull;
        p.frame = bytes(c.frame);
        EXPECT_EQ(hex(capture::packetBlock(p)), c.block);
    }
}

TEST(CaptureTest, WriterAndReaderRoundTrip) {
    ScopedSocketDir dir;
    const std::string path = dir.path() + "/s.pcapng";
    const std::vector<uint8_t> request = bytes(
        "00 00 00 14 04 00 00 00 01 00 00 00 17 00 00 00 "
        "00 03 00 00 01 00 00 00");
    const std::vector<uint8_t> odd = bytes("00 00 00 03 01 02 03");
    {
        capture::Writer w;
        std::string error;
        ASSERT_TRUE(w.open(path, &error)) << error;
        ASSERT_TRUE(w.write(Direction::ToDaemon, request));
        ASSERT_TRUE(w.write(Direction::ToEntity, odd));
        ASSERT_TRUE(w.writeClose(Direction::ToEntity));
    }
    std::vector<capture::Packet> packets;
    std::string error;
    ASSERT_TRUE(capture::readFile(path, &packets, &error)) << error;
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[0].direction, Direction::ToDaemon);
    EXPECT_EQ(hex(packets[0].frame), hex(request));
    EXPECT_EQ(packets[1].direction, Direction::ToEntity);
    EXPECT_EQ(hex(packets[1].frame), hex(odd));
    EXPECT_TRUE(packets[2].isClose());
    EXPECT_EQ(packets[2].direction, Direction::ToEntity);
    EXPECT_LE(packets[0].timestampUs, packets[2].timestampUs);
    EXPECT_GT(packets[0].timestampUs, 1500000000ull * 1000000u) << "not wall-clock time";

    // Damaged files are refused with a reason, never half read.
    std::ifstream in(path, std::ios::binary);
    std::string whole((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string otherLink = whole;
    otherLink[28 + 8] = 1;  // the interface's link type: Ethernet
    const struct {
        std::string bytes, error;
    } broken[] = {
        {whole.substr(0, whole.size() - 2), "broken block at byte 168"},
        {otherLink, "not a RIL socket capture (link type)"},
        {"\x0a\x0d\x0d\x0a" + whole.substr(4, 4) + "\x1a\x2b\x3c\x4d" + whole.substr(12),
         "not a pcapng file in this host's byte order"},
    };
    for (const auto &b : broken) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << b.bytes;
        EXPECT_FALSE(capture::readFile(path, &packets, &error));
        EXPECT_NE(error.find(b.error), std::string::npos) << error;
    }
}

TEST(CaptureTest, SplitterCutsFramesWhateverTheReads) {
    const std::vector<uint8_t> stream = bytes("00 00 00 02 aa bb 00 00 00 00 00 00 00 01 cc");
    for (size_t cut = 0; cut <= stream.size(); cut++) {
        capture::FrameSplitter s;
        std::vector<std::vector<uint8_t>> frames;
        ASSERT_TRUE(s.feed(stream.data(), cut, &frames));
        ASSERT_TRUE(s.feed(stream.data() + cut, stream.size() - cut, &frames));
        ASSERT_EQ(frames.size(), 3u) << cut;
        EXPECT_EQ(hex(frames[0]), "00 00 00 02 aa bb");
        EXPECT_EQ(hex(frames[1]), "00 00 00 00");
        EXPECT_EQ(hex(frames[2]), "00 00 00 01 cc");
        EXPECT_EQ(s.pending(), 0u);
    }
    // A length no frame can have (above 4 MiB) stops the cutting for good.
    capture::FrameSplitter s;
    std::vector<std::vector<uint8_t>> frames;
    const std::vector<uint8_t> huge = bytes("00 40 00 01 00 00 00 00");
    EXPECT_FALSE(s.feed(huge.data(), huge.size(), &frames));
    EXPECT_FALSE(s.feed(stream.data(), stream.size(), &frames));
    EXPECT_TRUE(frames.empty());
}

}  // namespace
