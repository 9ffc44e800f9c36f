#include "App/HeadlessBridge.h"
#include "App/BridgeStatusLine.h"

#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

namespace kelvo {
namespace {

using D = UniverseRoute::Destination;
using testing::HasSubstr;

TEST(BridgeStatusLine, ExactTexts) {
    BridgeStatusSample busy;
    busy.seconds = 2.0;
    busy.ticks = 120;
    busy.beat = {124.0, 57, true, 0.9, 0.0};
    busy.dropStatus = "listening";
    busy.artnetPackets = 240;
    busy.artnetHealth = "Rack · 2 universes";
    busy.enttecFrames = 0;
    busy.capturing = true;
    busy.recording = true;
    busy.statusMessage = "Couldn’t switch mode: offline";
    EXPECT_EQ(formatBridgeStatusLine(busy),
              "60.0 ticks/s · 124.0 BPM · beat 57 ● · drop listening · Art-Net 120/s (Rack · 2 "
              "universes) · Enttec 0/s · recording · Couldn’t switch mode: offline");

    BridgeStatusSample quiet;
    quiet.seconds = 0; // no interval measured yet: counts are taken as per second
    quiet.ticks = 59;
    quiet.dropStatus = "held";
    quiet.artnetPackets = 59;
    quiet.enttecFrames = 118;
    EXPECT_EQ(formatBridgeStatusLine(quiet),
              "59.0 ticks/s · 0.0 BPM · beat 0 · drop held · Art-Net 59/s · Enttec 118/s · "
              "no audio input");
}

/// A venue machine with a USB interface and a built-in microphone, and a cached show.
class HeadlessBridgeTest : public testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override {
        test::qtApplication();
        devices->addInput("usb-a", "USB Interface", AudioClockTransport::usb);
        devices->addInput("mic", "Built-in Microphone", AudioClockTransport::builtIn);
        seedCache();
    }

    /// Starts a bridge with these options; returns what it printed.
    std::string start(std::unique_ptr<HeadlessBridge>& bridge, const LaunchOptions& options) {
        bridge.reset();
        char* text = nullptr;
        std::size_t size = 0;
        std::FILE* out = ::open_memstream(&text, &size);
        bridge = std::make_unique<HeadlessBridge>(makeModel(devices), options, out);
        bridge->start();
        std::fclose(out);
        std::string printed(text, size);
        std::free(text);
        return printed;
    }

    std::shared_ptr<test::FakeAudioDeviceLayer> devices =
        std::make_shared<test::FakeAudioDeviceLayer>();
};

TEST_F(HeadlessBridgeTest, LaunchSettingsAreSavedAndInForceBeforeTheFirstTick) {
    std::unique_ptr<HeadlessBridge> bridge;
    // A fresh machine given only a host keeps it (the dashboard saves switch and host together).
    LaunchOptions hostOnly;
    hostOnly.artnetHost = " 10.1.1.1 ";
    start(bridge, hostOnly);
    EXPECT_EQ(bridge->model().artnetHost(), "10.1.1.1");
    EXPECT_FALSE(bridge->model().artnetEnabled());

    LaunchOptions options;
    options.routes = std::vector<UniverseRoute>{{1, D::artnet(7)}, {2, D::unmapped()}};
    options.artnetEnabled = true;
    options.enttecEnabled = false;
    options.audioDeviceUID = "mic";
    backend->opened.clear();
    const std::string printed = start(bridge, options);
    EXPECT_EQ(printed.find("not connected"), std::string::npos) << printed;

    bridge->model().settings().flush();
    QSettings settings(settingsPath(), QSettings::IniFormat);
    EXPECT_EQ(decodeUniverseRoutes(
                  settings.value("kelvo.bridge.universe_routes").toByteArray().toStdString()),
              options.routes);
    EXPECT_EQ(settings.value("kelvo.bridge.artnet_enabled").toBool(), true);
    EXPECT_EQ(settings.value("kelvo.bridge.artnet_host").toString(), "10.1.1.1") << "kept";
    EXPECT_EQ(settings.value("kelvo.bridge.artnet_auto_fix").toBool(), true);
    EXPECT_EQ(settings.value("kelvo.bridge.enttec_enabled").toBool(), false);

    // Capture was opened once, on the chosen input rather than the USB interface the automatic
    // choice prefers.
    EXPECT_EQ(backend->opened, (std::vector<std::optional<std::string>>{"mic"}));
    AppModel& model = bridge->model();

    backend->last->deliver(std::vector<float>(2 * 512, 0.25f));
    test::pumpFor(std::chrono::milliseconds(20));
    model.tick();
    ASSERT_EQ(transport->sent.size(), 1u);
    EXPECT_EQ(transport->sent[0].host, "10.1.1.1");
    EXPECT_EQ(transport->sent[0].datagram[14], 7) << "Art-Net universe of the launch route";
}

TEST_F(HeadlessBridgeTest, AnAbsentAudioInputIsReportedAndTheAutomaticChoiceStands) {
    std::unique_ptr<HeadlessBridge> bridge;
    LaunchOptions options;
    options.audioDeviceUID = "gone";
    const std::string printed = start(bridge, options);
    EXPECT_THAT(printed, HasSubstr("Audio input \"gone\" is not connected; using "));
    EXPECT_EQ(backend->opened, (std::vector<std::optional<std::string>>{"usb-a"}));

    // Plugged in later, it is taken then.
    devices->addInput("gone", "Late Interface", AudioClockTransport::usb);
    devices->listener();
    ASSERT_TRUE(test::pumpUntil([&] { return backend->opened.size() == 2; }));
    EXPECT_EQ(backend->opened.back(), "gone");
    EXPECT_EQ(bridge->model().audioSelection().activeAudioDeviceUID(), "gone");
}

TEST_F(HeadlessBridgeTest, AnAutomaticRepairIsPrintedOnceWhenItHappens) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* out = ::open_memstream(&text, &size);
    LaunchOptions options;
    options.artnetEnabled = true;
    options.artnetHost = "10.0.0.5";
    HeadlessBridge bridge(makeModel(devices), options, out);
    bridge.start();
    discovery->state.nodes = ArtNetNodeList({test::artnetNode("10.0.0.9", {0}, {0})});
    bridge.model().refreshArtNetHealth();
    bridge.model().refreshArtNetHealth();
    bridge.shutdown();
    std::fclose(out);
    const std::string printed(text, size);
    std::free(text);
    const std::string line = "Auto: Point Art-Net output at 10.0.0.9\n";
    const auto first = printed.find(line);
    ASSERT_NE(first, std::string::npos) << printed;
    EXPECT_EQ(printed.find(line, first + 1), std::string::npos) << printed;
}

} // namespace
} // namespace kelvo
