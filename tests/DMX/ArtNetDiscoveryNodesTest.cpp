#include "DMX/ArtNetDiscoveryNodes.h"
#include "DMX/ArtNetDiscovery.h"
#include "DMX/ArtNetPollReplyParser.h"

#include "ArtPollReplyBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using namespace std::chrono_literals;
using test::ArtPollReplyBytes;
using testing::ElementsAre;

ArtNetNode parsed(const ArtPollReplyBytes& reply) {
    return *ArtNetPollReplyParser::parse(reply.build());
}

TEST(ArtNetDiscoveryNodes, OnlyAChangeReadersSeeIsPublished) {
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
}

TEST(ArtNetDiscoveryNodes, AFloodOfIdentitiesStaysWithinCapacityLongestSilentOutSortedAsText) {
    ArtNetDiscoveryNodes nodes(100);
    ArtPollReplyBytes steady;
    steady.mac = {2, 0, 0, 0, 0, 0};
    steady.ip = {10, 0, 0, 10};
    ArtPollReplyBytes changeling; // a new MAC every second
    changeling.ip = {10, 0, 0, 9};
    for (int second = 0; second < 5000; ++second) {
        nodes.record(parsed(steady), std::chrono::seconds(second));
        changeling.mac = {6, 0, 0, 0, std::uint8_t(second >> 8), std::uint8_t(second)};
        nodes.record(parsed(changeling), std::chrono::seconds(second));
    }
    EXPECT_EQ(nodes.size(), 100u);
    EXPECT_EQ(nodes.evicted(), 5001u - 100u);
    const auto list = nodes.sortedByAddress();
    EXPECT_EQ(list.front().mac, "02:00:00:00:00:00") << "a node still answering is kept";
    EXPECT_EQ(list.back().mac, "06:00:00:00:13:87") << "the newest identity is kept";
}

TEST(ArtNetDiscoveryPoll, DestinationsAreIPv4LiteralsEachOnce) {
    EXPECT_THAT(ArtNetDiscovery::pollDestinations({"10.1.255.255", "192.168.0.255"}, "10.1.0.7"),
                ElementsAre("10.1.0.7", "10.1.255.255", "192.168.0.255", "255.255.255.255"));
    EXPECT_THAT(ArtNetDiscovery::pollDestinations({"10.1.255.255"}, "10.1.255.255"),
                ElementsAre("10.1.255.255", "255.255.255.255"));
    for (const char* skipped : {"node.local", "", "10.1", "10.0.0.256", " 10.0.0.1", "::1"})
        EXPECT_THAT(ArtNetDiscovery::pollDestinations({}, std::string(skipped)),
                    ElementsAre("255.255.255.255"))
            << skipped;
    EXPECT_THAT(ArtNetDiscovery::pollDestinations({}, std::nullopt),
                ElementsAre("255.255.255.255"));
}

} // namespace
} // namespace kelvo
