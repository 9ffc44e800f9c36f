#include "DMX/ArtNetPacketBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

namespace kelvo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;

const Bytes artNetID = {'A', 'r', 't', '-', 'N', 'e', 't', 0};

TEST(ArtDmxPacket, HeaderFieldsByteForByte) {
    const Bytes packet = ArtNetPacketBuilder::buildArtDmxPacket(0x1234, 0xA5, 0x03, Bytes{1, 2, 3});
    EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 8), artNetID);
    EXPECT_THAT(Bytes(packet.begin() + 8, packet.end()),
                ElementsAre(0x00, 0x50, // OpDmx, low byte first
                            0x00, 0x0E, // protocol 14, high byte first
                            0xA5, 0x03, // sequence, physical
                            0x34, 0x12, // SubUni, Net
                            0x00, 0x04, // length, high byte first
                            1, 2, 3, 0));
    EXPECT_EQ(ArtNetPacketBuilder::buildArtPollPacket(), [] {
        Bytes poll = artNetID;
        poll.insert(poll.end(), {0x00, 0x20, 0x00, 0x0E, 0x00, 0x00});
        return poll;
    }());
}

TEST(ArtDmxPacket, UniverseIsClampedToFifteenBits) {
    const std::pair<std::int64_t, Bytes> cases[] = {
        {-5, {0x00, 0x00}},     {INT64_MIN, {0x00, 0x00}}, {256, {0x00, 0x01}},
        {0x7FFF, {0xFF, 0x7F}}, {0x8000, {0xFF, 0x7F}},    {40000, {0xFF, 0x7F}}};
    for (const auto& [universe, expected] : cases) {
        const Bytes packet = ArtNetPacketBuilder::buildArtDmxPacket(universe, 1, 0, Bytes{7, 7});
        EXPECT_EQ((Bytes{packet[14], packet[15]}), expected) << universe;
    }
}

TEST(ArtDmxPacket, PayloadIsAnEvenLengthFromTwoTo512AndReusedBuffersHoldNothingOld) {
    Bytes full(513);
    std::iota(full.begin(), full.end(), 0);
    EXPECT_EQ(ArtNetPacketBuilder::normalizedPayload(full), Bytes(full.begin(), full.end() - 1));
    EXPECT_THAT(ArtNetPacketBuilder::normalizedPayload(Bytes{}), ElementsAre(0, 0));
    EXPECT_THAT(ArtNetPacketBuilder::normalizedPayload(Bytes{5}), ElementsAre(5, 0));
    const Bytes big = ArtNetPacketBuilder::buildArtDmxPacket(0, 1, 0, Bytes(511, 0xFF));
    ASSERT_EQ(big.size(), 18u + 512u);
    EXPECT_THAT(Bytes(big.begin() + 16, big.begin() + 18), ElementsAre(0x02, 0x00));
    EXPECT_EQ(ArtNetPacketBuilder::buildArtDmxPacket(0, 1, 0, Bytes{}).size(), 20u);

    Bytes packet;
    ArtNetPacketBuilder::writeArtDmxPacket(packet, 1, 1, 0, Bytes(512, 0xAA));
    ArtNetPacketBuilder::writeArtDmxPacket(packet, 2, 2, 0, Bytes{1, 2, 3});
    EXPECT_EQ(packet, ArtNetPacketBuilder::buildArtDmxPacket(2, 2, 0, Bytes{1, 2, 3}));
}

} // namespace
} // namespace kelvo
