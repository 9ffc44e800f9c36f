#include "Audio/Devices/AudioInputDeviceConfigurator.h"
#include "Audio/Devices/AudioInputDeviceMonitor.h"
#include "Audio/PulseAudio/PulseAudioDeviceLayer.h"

#include "support/PulseAudioServer.h"
#include "support/QtEventLoop.h"
#include "support/RequiredTool.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

constexpr const char* codecProperties = "device.description='USB Audio CODEC' device.bus=usb";
constexpr const char* micProperties =
    "device.description='Built-in Microphone' device.form_factor=internal";

class PulseAudioDevicesTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::qtApplication();
        KELVO_REQUIRE_TOOL(server.running(), server.failure());
        layer = std::make_shared<PulseAudioDeviceLayer>();
        ASSERT_TRUE(test::pumpUntil([&] { return !layer->unavailableReason(); }));
    }
    test::PulseAudioServer server;
    std::shared_ptr<PulseAudioDeviceLayer> layer;
};

TEST_F(PulseAudioDevicesTest, ListsClassifiesAndFollowsTheServerThroughARestart) {
    ASSERT_TRUE(server.loadPipeSource("mic", micProperties, 44100, 1));
    ASSERT_TRUE(server.loadPipeSource("codec", codecProperties, 44100, 2));
    ASSERT_TRUE(
        server.loadPipeSource("djm", "device.description='DJM-A9' device.bus=usb", 48000, 2));
    AudioInputDeviceMonitor monitor(layer);
    monitor.refresh();
    ASSERT_TRUE(monitor.startListening());
    ASSERT_TRUE(test::pumpUntil([&] { return monitor.devices().size() == 3; }));
    // No monitor of a sink is listed; a mixer first, then USB, then built-in.
    EXPECT_EQ(monitor.devices(),
              (std::vector<AudioInputDeviceInfo>{{"djm", "DJM-A9", true, false},
                                                 {"codec", "USB Audio CODEC", true, false},
                                                 {"mic", "Built-in Microphone", false, true}}));
    // A built-in input is opened at the playback rate.
    AudioInputDeviceConfigurator::setInputDevice(*layer, "mic");
    EXPECT_EQ(AudioInputDeviceConfigurator::captureFormat(*layer, "mic"),
              (CaptureFormat{48000, 1}));

    // While no server answers, a listing keeps the previous list: nothing was unplugged.
    server.kill();
    ASSERT_TRUE(test::pumpUntil([&] { return layer->unavailableReason().has_value(); }));
    monitor.refresh();
    test::pumpFor(std::chrono::milliseconds(200));
    EXPECT_EQ(monitor.devices().size(), 3u);

    // The server comes back with other devices: the layer reconnects, subscribes again and
    // the monitor follows without being asked, hot-plug included.
    ASSERT_TRUE(server.restart()) << server.failure();
    ASSERT_TRUE(server.loadPipeSource("codec2", codecProperties, 48000, 2));
    ASSERT_TRUE(test::pumpUntil(
        [&] { return monitor.devices().size() == 1 && monitor.devices()[0].uid == "codec2"; },
        std::chrono::seconds(15)));
    ASSERT_TRUE(server.loadPipeSource("mic2", micProperties, 48000, 1));
    ASSERT_TRUE(test::pumpUntil([&] { return monitor.devices().size() == 2; }));
}

} // namespace
} // namespace kelvo
