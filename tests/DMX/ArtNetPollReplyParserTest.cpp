#include "DMX/ArtNetPollReplyParser.h"

#include "ArtPollReplyBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::ArtPollReplyBytes;

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
    // base = (0x01 << 8) | (0x2 << 4) = 0x120; port 2 cannot output and is ignored whatever
    // its GoodOutput says.
    EXPECT_THAT(node->outputUniverses, ElementsAre(0x121, 0x123, 0x12F));
    EXPECT_THAT(node->transmittingUniverses, ElementsAre(0x121, 0x12F));
    EXPECT_EQ(node->lastSeen, seen);
}

TEST(ArtPollReply, RejectsAnythingThatIsNotAWholeReply) {
    const Bytes good = ArtPollReplyBytes{}.build();
    ASSERT_TRUE(ArtNetPollReplyParser::parse(good));
    EXPECT_TRUE(ArtNetPollReplyParser::parse(Bytes(good.begin(), good.begin() + 207)));
    EXPECT_FALSE(ArtNetPollReplyParser::parse(Bytes(good.begin(), good.begin() + 206)));
    EXPECT_FALSE(ArtNetPollReplyParser::parse(Bytes{}));

    Bytes wrongID = good;
    wrongID[7] = ' '; // "Art-Net " without the terminating zero
    EXPECT_FALSE(ArtNetPollReplyParser::parse(wrongID));
    Bytes lowerCase = good;
    lowerCase[0] = 'a';
    EXPECT_FALSE(ArtNetPollReplyParser::parse(lowerCase));

    Bytes poll = good;
    poll[9] = 0x20; // OpPoll
    EXPECT_FALSE(ArtNetPollReplyParser::parse(poll));
    Bytes bigEndianOpCode = good;
    bigEndianOpCode[8] = 0x21;
    bigEndianOpCode[9] = 0x00;
    EXPECT_FALSE(ArtNetPollReplyParser::parse(bigEndianOpCode));
}

TEST(ArtPollReply, ReadsAtMostFourPortsAndNoneForZero) {
    ArtPollReplyBytes reply;
    reply.numPorts = 6;
    reply.portTypes = {0x80, 0x80, 0x80, 0x80};
    reply.swOut = {1, 2, 3, 4};
    Bytes data = reply.build();
    // Bytes just past the four-port arrays must not be read as ports 5 and 6.
    data[178] = data[179] = 0x80;
    data[186] = data[187] = 0x80;
    data[194] = data[195] = 0x09;
    auto node = ArtNetPollReplyParser::parse(data);
    ASSERT_TRUE(node);
    EXPECT_THAT(node->outputUniverses, ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(node->transmittingUniverses, ElementsAre(1));

    reply.numPorts = 0;
    node = ArtNetPollReplyParser::parse(reply.build());
    ASSERT_TRUE(node);
    EXPECT_THAT(node->outputUniverses, IsEmpty());
    EXPECT_THAT(node->transmittingUniverses, IsEmpty());

    reply.numPorts = 0x0102; // big-endian 258, not 0x0201
    reply.portTypes = {0x80, 0, 0, 0};
    node = ArtNetPollReplyParser::parse(reply.build());
    ASSERT_TRUE(node);
    EXPECT_THAT(node->outputUniverses, ElementsAre(1));
}

TEST(ArtPollReply, NodeWithoutMacStillGetsSixPairs) {
    ArtPollReplyBytes reply;
    reply.mac = {0, 0, 0, 0, 0, 0};
    const auto node = ArtNetPollReplyParser::parse(reply.build());
    ASSERT_TRUE(node);
    EXPECT_EQ(node->mac, "00:00:00:00:00:00");
    EXPECT_EQ(node->identity(), "00:00:00:00:00:00");
}

TEST(ArtPollReplyNames, FullFieldWithoutTerminatorIsTakenWhole) {
    ArtPollReplyBytes reply;
    reply.shortName = std::string(18, 'X');
    reply.longName = std::string(64, 'y');
    Bytes data = reply.build();
    data[44] = 'Z'; // the long name starts right after the unterminated short name
    const auto node = ArtNetPollReplyParser::parse(data);
    ASSERT_TRUE(node);
    EXPECT_EQ(node->shortName, std::string(18, 'X'));
    EXPECT_EQ(node->longName, "Z" + std::string(63, 'y'));
}

TEST(ArtPollReplyNames, TrimsSpacesAndTabsOnlyAndStopsAtZero) {
    const Bytes field = {' ', ' ', 'D', 'i', 'm', 'm', 'e', 'r', 0, 'j', 'u', 'n', 'k'};
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(field, 0, field.size()), "Dimmer");
    const Bytes padded = {'\t', 'A', ' ', 'B', '\t', ' ', '\n'};
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(padded, 0, padded.size()), "A B\t \n");
    const Bytes tabs = {'\t', 'A', '\t', ' '};
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(tabs, 0, tabs.size()), "A");
    const Bytes blank = {' ', '\t', ' ', 0};
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(blank, 0, blank.size()), "");
}

TEST(ArtPollReplyNames, FieldBoundsAreClampedToTheData) {
    const Bytes data = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(data, 1, 2), "bc");
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(data, 2, 100), "cd");
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(data, 4, 1), "");
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(data, 9, 1), "");
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(data, 0, 0), "");
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(data, SIZE_MAX, SIZE_MAX), "");
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(data, 1, SIZE_MAX), "bcd");
}

TEST(ArtPollReplyNames, InvalidUtf8BecomesReplacementCharacters) {
    const Bytes umlaut = {'L', 0xC3, 0xBC, 'x'};
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(umlaut, 0, 4), "L\xC3\xBCx");
    const Bytes latin1 = {'C', 'a', 'f', 0xE9};
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(latin1, 0, 4), "Caf\xEF\xBF\xBD");
    // A truncated three-byte sequence is one replacement; a stray continuation byte another.
    const Bytes truncated = {0xE2, 0x82, 'A', 0x80};
    EXPECT_EQ(ArtNetPollReplyParser::asciiField(truncated, 0, 4), "\xEF\xBF\xBD"
                                                                  "A\xEF\xBF\xBD");
    // Overlong encodings and surrogates are not let through.
    const Bytes overlong = {0xC0, 0xAF, 0xED, 0xA0, 0x80};
    EXPECT_EQ(decodeUtf8Lossy(overlong), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"
                                         "\xEF\xBF\xBD");
    // A name cut in the middle of a character at the field's end.
    const Bytes cut = {'A', 0xF0, 0x9F, 0x8E};
    EXPECT_EQ(decodeUtf8Lossy(cut), "A\xEF\xBF\xBD");
    const Bytes emoji = {0xF0, 0x9F, 0x8E, 0x9B};
    EXPECT_EQ(decodeUtf8Lossy(emoji), "\xF0\x9F\x8E\x9B");
}

} // namespace
} // namespace kelvo
