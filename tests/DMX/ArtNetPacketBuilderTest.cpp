#include "DMX/ArtNetPacketBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

namespace kelvo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::ElementsAreArray;

const Bytes artNetID = {'A', 'r', 't', '-', 'N', 'e', 't', 0};

TEST(ArtDmxPacket, HeaderFieldsByteForByte) {
    const Bytes channels = {1, 2, 3, 4};
    const Bytes packet = ArtNetPacketBuilder::buildArtDmxPacket(0x1234, 0xA5, 0x03, channels);
    ASSERT_EQ(packet.size(), 22u);
    EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 8), artNetID);
    EXPECT_THAT(Bytes(packet.begin() + 8, packet.end()),
                ElementsAre(0x00, 0x50, // OpDmx, low byte first
                            0x00, 0x0E, // protocol 14, high byte first
                            0xA5, 0x03, // sequence, physical
                            0x34, 0x12, // SubUni, Net
                            0x00, 0x04, // length, high byte first
                            1, 2, 3, 4));
}

TEST(ArtDmxPacket, UniverseIsClampedToFifteenBits) {
    const auto addressBytes = [](std::int64_t universe) {
        const Bytes packet = ArtNetPacketBuilder::buildArtDmxPacket(universe, 1, 0, Bytes{7, 7});
        return Bytes{packet[14], packet[15]};
    };
    EXPECT_EQ(addressBytes(-5), (Bytes{0x00, 0x00}));
    EXPECT_EQ(addressBytes(40000), (Bytes{0xFF, 0x7F}));
    EXPECT_EQ(addressBytes(0x7FFF), (Bytes{0xFF, 0x7F}));
    EXPECT_EQ(addressBytes(0x8000), (Bytes{0xFF, 0x7F}));
    EXPECT_EQ(addressBytes(INT64_MIN), (Bytes{0x00, 0x00}));
    EXPECT_EQ(addressBytes(256), (Bytes{0x00, 0x01}));
}

TEST(ArtDmxPacket, PayloadIsNormalizedToAnEvenLengthFromTwoTo512) {
    Bytes full(513);
    std::iota(full.begin(), full.end(), 0);
    const Bytes payload = ArtNetPacketBuilder::normalizedPayload(full);
    EXPECT_EQ(payload, Bytes(full.begin(), full.begin() + 512));
    EXPECT_THAT(ArtNetPacketBuilder::normalizedPayload(Bytes{9, 8, 7}), ElementsAre(9, 8, 7, 0));
    EXPECT_THAT(ArtNetPacketBuilder::normalizedPayload(Bytes{}), ElementsAre(0, 0));
    EXPECT_THAT(ArtNetPacketBuilder::normalizedPayload(Bytes{5}), ElementsAre(5, 0));

    const Bytes empty = ArtNetPacketBuilder::buildArtDmxPacket(0, 1, 0, Bytes{});
    EXPECT_EQ(empty.size(), 20u);
    EXPECT_THAT(Bytes(empty.begin() + 16, empty.end()), ElementsAre(0x00, 0x02, 0, 0));

    const Bytes big = ArtNetPacketBuilder::buildArtDmxPacket(0, 1, 0, full);
    ASSERT_EQ(big.size(), 18u + 512u);
    EXPECT_EQ(big[16], 0x02);
    EXPECT_EQ(big[17], 0x00);
    EXPECT_EQ(Bytes(big.begin() + 18, big.end()), payload);

    const Bytes odd = ArtNetPacketBuilder::buildArtDmxPacket(0, 1, 0, Bytes(511, 0xFF));
    ASSERT_EQ(odd.size(), 18u + 512u);
    EXPECT_EQ(odd.back(), 0x00);
    EXPECT_EQ(odd[odd.size() - 2], 0xFF);
}

TEST(ArtDmxPacket, ReusedBufferHoldsNoBytesOfTheLongerPreviousPacket) {
    Bytes packet;
    ArtNetPacketBuilder::writeArtDmxPacket(packet, 1, 1, 0, Bytes(512, 0xAA));
    ArtNetPacketBuilder::writeArtDmxPacket(packet, 2, 2, 0, Bytes{1, 2, 3});
    EXPECT_EQ(packet, ArtNetPacketBuilder::buildArtDmxPacket(2, 2, 0, Bytes{1, 2, 3}));
}

TEST(ArtPollPacket, FourteenBytesByteForByte) {
    Bytes expected = artNetID;
    expected.insert(expected.end(), {0x00, 0x20, 0x00, 0x0E, 0x00, 0x00});
    EXPECT_THAT(ArtNetPacketBuilder::buildArtPollPacket(), ElementsAreArray(expected));
}

} // namespace
} // namespace kelvo
