#include "DMX/ArtNetDiscovery.h"
#include "DMX/ArtNetDiscoveryNodes.h"
#include "DMX/ArtNetPacketBuilder.h"
#include "DMX/ArtNetPollReplyParser.h"

#include "ArtPollReplyBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

namespace kelvo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test::ArtPollReplyBytes;
using testing::ElementsAre;
using namespace std::chrono_literals;

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
    const Bytes poll = ArtNetPacketBuilder::buildArtPollPacket();
    EXPECT_EQ(Bytes(poll.begin(), poll.begin() + 8), artNetID);
    EXPECT_THAT(Bytes(poll.begin() + 8, poll.end()),
                ElementsAre(0x00, 0x20, 0x00, 0x0E, 0x00, 0x00));
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

    Bytes packet;
    ArtNetPacketBuilder::writeArtDmxPacket(packet, 1, 1, 0, Bytes(512, 0xAA));
    ArtNetPacketBuilder::writeArtDmxPacket(packet, 2, 2, 0, Bytes{1, 2, 3});
    EXPECT_EQ(packet, ArtNetPacketBuilder::buildArtDmxPacket(2, 2, 0, Bytes{1, 2, 3}));
}

TEST(ArtPollReply, ReadsEveryField) {
    ArtPollReplyBytes reply;
    reply.ip = {192, 168, 1, 250};
    reply.netSwitch = 0x81; // only the low 7 bits count
    reply.subSwitch = 0xF2; // only the low 4 bits count
    reply.numPorts = 6;     // only four are described
    reply.portTypes = {0x80, 0xC0, 0x40, 0x85};
    reply.goodOutput = {0x80, 0x00, 0x80, 0x80};
    reply.swOut = {0x01, 0xF3, 0x05, 0x0F};
    reply.shortName = std::string(18, 'S'); // fills its field, up to the long name
    reply.longName = "Two-port DMX node, rack 3";
    const auto seen = std::chrono::system_clock::time_point(std::chrono::seconds(1000));

    Bytes data = reply.build();
    data[178] = data[186] = 0x80; // just past the arrays: no ports 5 and 6
    const auto node = ArtNetPollReplyParser::parse(data, seen);
    ASSERT_TRUE(node);
    EXPECT_EQ(node->ip, "192.168.1.250");
    EXPECT_EQ(node->mac, "00:1a:2b:3c:4d:fe");
    EXPECT_EQ(node->shortName, std::string(18, 'S'));
    EXPECT_EQ(node->longName, "Two-port DMX node, rack 3");
    // base 0x120; port 2 cannot output and is ignored whatever its GoodOutput says.
    EXPECT_THAT(node->outputUniverses, ElementsAre(0x121, 0x123, 0x12F));
    EXPECT_THAT(node->transmittingUniverses, ElementsAre(0x121, 0x12F));
    EXPECT_EQ(node->lastSeen, seen);
}

TEST(ArtPollReply, RejectsAnythingThatIsNotAWholeReply) {
    const Bytes good = ArtPollReplyBytes{}.build();
    EXPECT_TRUE(ArtNetPollReplyParser::parse(Bytes(good.begin(), good.begin() + 207)));
    const std::pair<std::size_t, std::uint8_t> damage[] = {
        {7, ' '}, {0, 'a'}, {9, 0x20} /* OpPoll */, {8, 0x21} /* op code big-endian */};
    for (const auto& [at, value] : damage) {
        Bytes bad = good;
        bad[at] = value;
        EXPECT_FALSE(ArtNetPollReplyParser::parse(bad)) << at;
    }
    EXPECT_FALSE(ArtNetPollReplyParser::parse(Bytes(good.begin(), good.begin() + 206)));
    EXPECT_FALSE(ArtNetPollReplyParser::parse(Bytes{}));
}

ArtNetNode parsed(const ArtPollReplyBytes& reply) {
    return *ArtNetPollReplyParser::parse(reply.build());
}

TEST(ArtNetDiscoveryNodes, OnlyAChangeReadersSeeIsPublishedAndSilentNodesExpire) {
    ArtNetDiscoveryNodes nodes(16);
    ArtPollReplyBytes reply;
    EXPECT_TRUE(nodes.record(parsed(reply), 1s));
    EXPECT_FALSE(nodes.record(parsed(reply), 2s)) << "a refresh of the time alone";
    reply.longName = "Renamed at length";
    EXPECT_FALSE(nodes.record(parsed(reply), 3s)) << "the long name is not watched";
    reply.goodOutput = {0, 0, 0, 0};
    EXPECT_TRUE(nodes.record(parsed(reply), 4s));
    reply.shortName = "Other";
    EXPECT_TRUE(nodes.record(parsed(reply), 5s));
    reply.ip = {10, 0, 0, 8};
    EXPECT_TRUE(nodes.record(parsed(reply), 6s));
    reply.swOut = {3, 0, 0, 0};
    EXPECT_TRUE(nodes.record(parsed(reply), 7s));
    EXPECT_EQ(nodes.size(), 1u) << "one MAC, one node";
    EXPECT_FALSE(nodes.expire(7s - 1ns)) << "heard after the cutoff";
    EXPECT_TRUE(nodes.expire(7s));
    EXPECT_EQ(nodes.size(), 0u);
}

// A node inventing a new MAC every second must not grow the table.
TEST(ArtNetDiscoveryNodes, PastCapacityTheLongestSilentMakesRoomAndTheListSortsAsText) {
    ArtNetDiscoveryNodes nodes(2);
    ArtPollReplyBytes reply;
    const std::uint8_t heard[] = {9, 10, 9, 11}; // .10 falls silent when .11 appears
    for (int second = 0; second < 4; ++second) {
        reply.ip[3] = reply.mac[5] = heard[second];
        nodes.record(parsed(reply), std::chrono::seconds(second));
    }
    EXPECT_EQ(nodes.evicted(), 1u);
    std::vector<std::string> addresses;
    for (const ArtNetNode& node : nodes.sortedByAddress())
        addresses.push_back(node.ip);
    EXPECT_THAT(addresses, ElementsAre("10.0.0.11", "10.0.0.9"));
}

TEST(ArtNetDiscoveryPoll, DestinationsAreIPv4LiteralsEachOnce) {
    EXPECT_THAT(ArtNetDiscovery::pollDestinations({"10.1.255.255", "192.168.0.255"}, "10.1.0.7"),
                ElementsAre("10.1.0.7", "10.1.255.255", "192.168.0.255", "255.255.255.255"));
    EXPECT_THAT(ArtNetDiscovery::pollDestinations({"10.1.255.255"}, "10.1.255.255"),
                ElementsAre("10.1.255.255", "255.255.255.255"));
    EXPECT_THAT(ArtNetDiscovery::pollDestinations({}, "node.local"),
                ElementsAre("255.255.255.255"));
}

} // namespace
} // namespace kelvo
