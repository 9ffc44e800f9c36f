#include "DMX/ArtNetPacketBuilder.h"
#include "DMX/EnttecFrameBuilder.h"
#include "DMX/LiveDmxOutput.h"
#include "DMX/OutputConfiguration.h"
#include "DMX/UniverseRoute.h"

#include "OutputFakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using D = UniverseRoute::Destination;
using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using namespace test;

// The round trip through the settings file: StoredOutputSettings' tests.
TEST(UniverseRouteJson, ReadsTheDocumentedFormWithExtraKeys) {
    EXPECT_EQ(decodeUniverseRoutes(
                  R"([{"virtualUniverse":2,"destination":{"artnet":{"universe":0}}},
                      {"virtualUniverse":1,"destination":{"enttec":{}}},
                      {"virtualUniverse":3,"destination":{"unmapped":{}}},
                      {"virtualUniverse":4.0,"note":"x","destination":{"artnet":{"universe":4,"x":1}}}])"),
              (std::vector<UniverseRoute>{
                  {2, D::artnet(0)}, {1, D::enttec()}, {3, D::unmapped()}, {4, D::artnet(4)}}));
}

TEST(UniverseRouteJson, AnyBadEntryDiscardsTheWholeList) {
    const std::string keys = "Invalid number of keys found, expected one.";
    const char* hostile[] = {
        R"([{"virtualUniverse":1,"destination":{}}])", // the two with the "keys" text
        R"([{"virtualUniverse":1,"destination":{"enttec":{},"unmapped":{}}}])",
        "{",
        R"([{"virtualUniverse":1,"destination":{"dmx":{}}}])",
        R"([{"virtualUniverse":"1","destination":{"enttec":{}}}])",
        R"([{"virtualUniverse":1.5,"destination":{"enttec":{}}}])",
        R"([{"virtualUniverse":1}])",
        R"([{"virtualUniverse":1,"destination":{"enttec":{}}}, 5])",
        R"([{"virtualUniverse":18446744073709551615,"destination":{"enttec":{}}}])",
        R"([{"virtualUniverse":1,"destination":{"artnet":{"universe":9223372036854775808}}}])",
    };
    for (const char* json : hostile) {
        std::string error;
        EXPECT_EQ(decodeUniverseRoutes(json, &error), std::nullopt) << json;
        EXPECT_TRUE(json == hostile[0] || json == hostile[1] ? error == keys : !error.empty())
            << json << ": " << error;
    }
}

TEST(UniverseRouteTable, MappedUniversesKeepOrderAndRepeatsAndTheDeskReadsTheFirstMatch) {
    const std::vector<UniverseRoute> routes = {{1, D::enttec()},  {2, D::artnet(12)},
                                               {2, D::enttec()},  {3, D::unmapped()},
                                               {4, D::artnet(1)}, {5, D::artnet(12)}};
    EXPECT_EQ(mappedArtNetUniverses(routes), (std::vector<std::int64_t>{12, 1, 12}));
    EXPECT_EQ(routeDescription(routes, 2), "Art-Net 12");
    EXPECT_EQ(routeDescription(routes, 1), "Enttec");
    EXPECT_EQ(routeDescription(routes, 3), "unmapped (no output)");
    EXPECT_EQ(routeDescription(routes, 9), "unknown");
    EXPECT_EQ(deskRouteStatusLine(routes, 2, false),
              "Idle · virtual universe 2 → Art-Net 12 (enable Live to take over)");
    EXPECT_EQ(deskRouteStatusLine(routes, 1, true), "Live · virtual universe 1 → Enttec");
}

class FanOut : public testing::Test {
protected:
    EnttecSerialSender fakeEnttec() {
        serial.plugged = {"/dev/ttyUSB0"};
        return EnttecSerialSender(fakeScanning(serial));
    }

    SerialBench serial;
    std::shared_ptr<RecordingTransport> transport = std::make_shared<RecordingTransport>();
    LiveDmxOutput output{fakeEnttec(), transport};
    OutputSettings settings;
};

TEST_F(FanOut, ServesRoutesInTableOrderEachOnItsOwn) {
    settings.artnetEnabled = true;
    settings.artnetHost = "10.0.0.5";
    settings.routes = {{3, D::artnet(7)}, {1, D::enttec()},  {2, D::unmapped()},
                       {1, D::artnet(0)}, {3, D::artnet(7)}, {9, D::artnet(1)}};
    const DmxFrame frame = {{1, {10, 11}}, {2, {20}}, {3, {30, 31, 32}}, {4, {40}}};
    output.send(frame, settings);

    std::vector<Bytes> datagrams;
    for (const auto& sent : transport->sent) {
        datagrams.push_back(sent.datagram);
        EXPECT_EQ(sent.host + ":" + std::to_string(sent.port), "10.0.0.5:6454");
    }
    using P = ArtNetPacketBuilder;
    EXPECT_THAT(datagrams, ElementsAre(P::buildArtDmxPacket(7, 1, 0, Bytes{30, 31, 32}),
                                       P::buildArtDmxPacket(0, 2, 0, Bytes{10, 11}),
                                       P::buildArtDmxPacket(7, 3, 0, Bytes{30, 31, 32})));
    EXPECT_THAT(serial.frames["/dev/ttyUSB0"],
                ElementsAre(EnttecFrameBuilder::buildSendDmxFrame(Bytes{10, 11})));
}

TEST_F(FanOut, SequenceIsSharedAndRunsOneTo255NeverZeroAndArtNetOffLeavesItAlone) {
    settings.routes = {{1, D::artnet(0)}, {2, D::artnet(1)}};
    output.send({{1, {1}}, {2, {2}}}, settings); // Art-Net is off
    EXPECT_TRUE(transport->sent.empty());
    settings.artnetEnabled = true;
    for (int i = 0; i < 128; ++i)
        output.send({{1, {1}}, {2, {2}}}, settings); // 256 packets
    ASSERT_EQ(transport->sent.size(), 256u);
    for (std::size_t i = 0; i < transport->sent.size(); ++i)
        ASSERT_EQ(transport->sent[i].datagram[12], i % 255 + 1) << i;
}

TEST_F(FanOut, FailingOrFullWidgetNeverStopsArtNet) {
    settings.artnetEnabled = true;
    settings.routes = {{1, D::enttec()}, {1, D::artnet(3)}, {2, D::enttec()}, {2, D::artnet(4)}};
    serial.fullDevices = {"/dev/ttyUSB0"};
    output.send({{1, {7}}}, settings);
    serial.failingWrites = {"/dev/ttyUSB0"};
    output.send({{2, {8}}}, settings);
    EXPECT_EQ(transport->sent.size(), 2u) << "every Art-Net route served";
    EXPECT_EQ(output.enttec.status(), (EnttecOutputStatus{std::nullopt, 0, 1, 1, {}}));
}

class OutputConfigurationTest : public FanOut {
protected:
    MemorySettingsStore store;
    OutputConfiguration configuration{output, store};
};

TEST_F(OutputConfigurationTest, EditorChangesTheFirstRouteSavesAndResendsTheLastFrame) {
    configuration.setArtNetEnabled(true);
    configuration.replaceRoutes({{1, D::enttec()}, {2, D::unmapped()}, {2, D::unmapped()}});
    configuration.outputFrame({{2, {200, 100}}}); // unmapped: nothing sent

    ASSERT_TRUE(configuration.changeDestination(2, D::artnet(9)));
    EXPECT_EQ(
        configuration.routes(),
        (std::vector<UniverseRoute>{{1, D::enttec()}, {2, D::artnet(9)}, {2, D::unmapped()}}));
    EXPECT_EQ(store.routes, configuration.routes());
    ASSERT_EQ(transport->sent.size(), 1u) << "the change goes out without waiting for a frame";
    EXPECT_EQ(transport->sent[0].datagram,
              ArtNetPacketBuilder::buildArtDmxPacket(9, 1, 0, Bytes{200, 100}));

    store.routes.reset();
    EXPECT_FALSE(configuration.changeDestination(7, D::enttec()));
    EXPECT_FALSE(store.routes) << "an unknown universe changes nothing";
}

// Saving host and Art-Net switch, and aiming discovery: AppModel's tests.
TEST_F(OutputConfigurationTest, SwitchesAreSavedAndTurningEnttecOffClosesTheWidgetAtOnce) {
    configuration.setArtNetAutoFix(false);
    configuration.persistArtNetConfig();
    EXPECT_EQ(store.artnetAutoFix, false);
    configuration.outputFrame({{1, {1}}}); // default table: universe 1 → Enttec
    ASSERT_EQ(output.enttec.connectedPortPath(), "/dev/ttyUSB0");

    configuration.setEnttecEnabled(false);
    configuration.persistEnttecConfig();
    EXPECT_THAT(serial.closed, ElementsAre("/dev/ttyUSB0"));
    EXPECT_EQ(store.enttecEnabled, false);

    configuration.outputFrame({{1, {1}}});
    EXPECT_EQ(serial.scans, 1) << "no rescan while off";
    configuration.setEnttecEnabled(true);
    configuration.outputFrame({{1, {1}}});
    EXPECT_EQ(serial.scans, 2) << "back on: scans at once, not a second after the last scan";
}

} // namespace
} // namespace kelvo
