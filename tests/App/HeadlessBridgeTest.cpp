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
    busy.capturing = busy.recording = true;
    busy.statusMessage = "Couldn’t switch mode: offline";
    EXPECT_EQ(formatBridgeStatusLine(busy),
              "60.0 ticks/s · 124.0 BPM · beat 57 ● · drop listening · Art-Net 120/s (Rack · 2 "
              "universes) · Enttec 0/s · recording · Couldn’t switch mode: offline");
    BridgeStatusSample quiet;
    quiet.seconds = 0; // no interval measured yet: counts are taken as per second
    quiet.ticks = quiet.artnetPackets = 59;
    quiet.dropStatus = "held";
    quiet.enttecFrames = 118;
    EXPECT_EQ(formatBridgeStatusLine(quiet),
              "59.0 ticks/s · 0.0 BPM · beat 0 · drop held · Art-Net 59/s · Enttec 118/s · "
              "no audio input");
}

/// A venue machine with a USB interface and a built-in microphone, and a cached show; what the
/// bridge prints is kept in `printed()`.
class HeadlessBridgeTest : public testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override {
        test::qtApplication();
        devices->addInput("usb-a", "USB Interface", AudioClockTransport::usb);
        devices->addInput("mic", "Built-in Microphone", AudioClockTransport::builtIn);
        seedCache();
    }
    void TearDown() override {
        bridge.reset();
        std::fclose(out);
        std::free(text);
    }
    void start(const LaunchOptions& options) {
        bridge = std::make_unique<HeadlessBridge>(makeModel(devices), options, out);
        bridge->start();
    }
    std::string printed() {
        std::fflush(out);
        return {text, size};
    }

    std::shared_ptr<test::FakeAudioDeviceLayer> devices =
        std::make_shared<test::FakeAudioDeviceLayer>();
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* out = ::open_memstream(&text, &size);
    std::unique_ptr<HeadlessBridge> bridge;
};

TEST_F(HeadlessBridgeTest, LaunchSettingsAreSavedAndInForceBeforeTheFirstTick) {
    // A fresh machine given only a host keeps it (the dashboard saves switch and host together).
    LaunchOptions options;
    options.artnetHost = " 10.1.1.1 ";
    start(options);
    EXPECT_EQ(bridge->model().artnetHost(), "10.1.1.1");
    EXPECT_FALSE(bridge->model().artnetEnabled());

    backend->opened.clear();
    options = {};
    options.routes = std::vector<UniverseRoute>{{1, D::artnet(7)}, {2, D::unmapped()}};
    options.artnetEnabled = true;
    options.enttecEnabled = false;
    options.audioDeviceUID = "mic";
    start(options);
    EXPECT_THAT(printed(), testing::Not(HasSubstr("not connected")));
    bridge->model().settings().flush();
    QSettings settings(settingsPath(), QSettings::IniFormat);
    EXPECT_EQ(decodeUniverseRoutes(
                  settings.value("kelvo.bridge.universe_routes").toByteArray().toStdString()),
              options.routes);
    EXPECT_EQ(settings.value("kelvo.bridge.artnet_enabled").toBool(), true);
    EXPECT_EQ(settings.value("kelvo.bridge.artnet_host").toString(), "10.1.1.1") << "kept";
    EXPECT_EQ(settings.value("kelvo.bridge.enttec_enabled").toBool(), false);
    // Capture opened once, on the chosen input rather than the USB interface it would prefer.
    EXPECT_EQ(backend->opened, (std::vector<std::optional<std::string>>{"mic"}));

    backend->last->deliver(std::vector<float>(2 * 512, 0.25f));
    test::pumpFor(std::chrono::milliseconds(20));
    bridge->model().tick();
    ASSERT_EQ(transport->sent.size(), 1u);
    EXPECT_EQ(transport->sent[0].host, "10.1.1.1");
    EXPECT_EQ(transport->sent[0].datagram[14], 7) << "Art-Net universe of the launch route";
}

TEST_F(HeadlessBridgeTest, AnAbsentAudioInputIsReportedAndTakenWhenItArrives) {
    LaunchOptions options;
    options.audioDeviceUID = "gone";
    start(options);
    EXPECT_THAT(printed(), HasSubstr("Audio input \"gone\" is not connected; using "));
    EXPECT_EQ(backend->opened, (std::vector<std::optional<std::string>>{"usb-a"}));
    devices->addInput("gone", "Late Interface", AudioClockTransport::usb);
    devices->listener();
    ASSERT_TRUE(test::pumpUntil([&] { return backend->opened.size() == 2; }));
    EXPECT_EQ(backend->opened.back(), "gone");
}

TEST_F(HeadlessBridgeTest, AnAutomaticRepairIsPrintedOnceWhenItHappens) {
    LaunchOptions options;
    options.artnetEnabled = true;
    options.artnetHost = "10.0.0.5";
    start(options);
    discovery->state.nodes = ArtNetNodeList({test::artnetNode("10.0.0.9", {0}, {0})});
    bridge->model().refreshArtNetHealth();
    bridge->model().refreshArtNetHealth();
    const std::string line = "Auto: Point Art-Net output at 10.0.0.9\n";
    const std::string all = printed();
    ASSERT_NE(all.find(line), std::string::npos) << all;
    EXPECT_EQ(all.find(line, all.find(line) + 1), std::string::npos) << all;
}

} // namespace
} // namespace kelvo
