#include "DMX/ArtNetPollReplyParser.h"

#include "ArtPollReplyBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test::ArtPollReplyBytes;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ArtPollReply, ReadsEveryField) {
    ArtPollReplyBytes reply;
    reply.ip = {192, 168, 1, 250};
    reply.netSwitch = 0x81; // only the low 7 bits count
    reply.subSwitch = 0xF2; // only the low 4 bits count
    reply.numPorts = 4;
    reply.portTypes = {0x80, 0xC0, 0x40, 0x85};
    reply.goodOutput = {0x80, 0x00, 0x80, 0x80};
    reply.swOut = {0x01, 0xF3, 0x05, 0x0F};
    reply.shortName = "Stage left";
    reply.longName = "Two-port DMX node, rack 3";
    const auto seen = std::chrono::system_clock::time_point(std::chrono::seconds(1000));

    const auto node = ArtNetPollReplyParser::parse(reply.build(), seen);
    ASSERT_TRUE(node);
    EXPECT_EQ(node->ip, "192.168.1.250");
    EXPECT_EQ(node->mac, "00:1a:2b:3c:4d:fe");
    EXPECT_EQ(node->shortName, "Stage left");
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

TEST(ArtPollReply, ReadsAtMostFourPortsAndNoneForZero) {
    ArtPollReplyBytes reply;
    reply.numPorts = 6;
    reply.portTypes = {0x80, 0x80, 0x80, 0x80};
    reply.swOut = {1, 2, 3, 4};
    Bytes data = reply.build();
    data[178] = data[186] = 0x80; // just past the arrays: no ports 5 and 6
    EXPECT_THAT(ArtNetPollReplyParser::parse(data)->outputUniverses, ElementsAre(1, 2, 3, 4));
    reply.numPorts = 0;
    EXPECT_THAT(ArtNetPollReplyParser::parse(reply.build())->outputUniverses, IsEmpty());
    reply.numPorts = 0x0102; // big-endian
    reply.portTypes = {0x80, 0, 0, 0};
    EXPECT_THAT(ArtNetPollReplyParser::parse(reply.build())->outputUniverses, ElementsAre(1));
}

TEST(ArtPollReplyNames, StopAtZeroTrimSpacesAndTabsStayInBoundsAndReplaceBadUtf8) {
    const struct {
        Bytes bytes;
        std::size_t start, length;
        std::string expected;
    } cases[] = {
        {{' ', ' ', 'D', 'i', 'm', 0, 'j', 'u', 'n', 'k'}, 0, 10, "Dim"},
        {{'\t', 'A', ' ', 'B', '\t', ' ', '\n'}, 0, 7, "A B\t \n"},
        {{' ', '\t', ' ', 0}, 0, 4, ""},
        {{'a', 'b', 'c', 'd'}, 1, 2, "bc"},
        {{'a', 'b', 'c', 'd'}, 2, 100, "cd"},
        {{'a', 'b', 'c', 'd'}, 4, 1, ""},
        {{'a', 'b', 'c', 'd'}, SIZE_MAX, SIZE_MAX, ""},
        {{'a', 'b', 'c', 'd'}, 1, SIZE_MAX, "bcd"},
        {{'L', 0xC3, 0xBC, 'x'}, 0, 4, "L\xC3\xBCx"},
        {{'C', 'a', 'f', 0xE9}, 0, 4, "Caf\xEF\xBF\xBD"},
        {{0xE2, 0x82, 'A', 0x80},
         0,
         4,
         "\xEF\xBF\xBD"
         "A\xEF\xBF\xBD"},
        {{0xC0, 0xAF}, 0, 2, "\xEF\xBF\xBD\xEF\xBF\xBD"}, // overlong
    };
    for (const auto& c : cases)
        EXPECT_EQ(ArtNetPollReplyParser::asciiField(c.bytes, c.start, c.length), c.expected)
            << testing::PrintToString(c.bytes) << " at " << c.start;

    ArtPollReplyBytes reply; // a full short name runs into the long name's field
    reply.shortName = std::string(18, 'X');
    reply.longName = "Z";
    EXPECT_EQ(ArtNetPollReplyParser::parse(reply.build())->shortName, std::string(18, 'X'));
}

} // namespace
} // namespace kelvo
