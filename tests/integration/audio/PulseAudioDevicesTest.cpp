#include "Audio/Devices/AudioInputDeviceConfigurator.h"
#include "Audio/Devices/AudioInputDeviceMonitor.h"
#include "Audio/Devices/AudioInputSelection.h"
#include "Audio/Devices/AudioInputSelectionModel.h"
#include "Audio/PulseAudio/PulseAudioDeviceLayer.h"

#include "support/PulseAudioServer.h"
#include "support/QtEventLoop.h"
#include "support/RequiredTool.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

constexpr const char* djmProperties = "device.description='DJM-A9' device.bus=usb";
constexpr const char* codecProperties = "device.description='USB Audio CODEC' device.bus=usb";
constexpr const char* micProperties =
    "device.description='Built-in Microphone' device.form_factor=internal";

class PulseAudioDevicesTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::qtApplication();
        KELVO_REQUIRE_TOOL(server.running(), server.failure());
        layer = std::make_shared<PulseAudioDeviceLayer>();
    }
    test::PulseAudioServer server;
    std::shared_ptr<PulseAudioDeviceLayer> layer;
};

std::vector<std::string> uidsOf(const std::vector<AudioInputDeviceInfo>& devices) {
    std::vector<std::string> uids;
    for (const auto& d : devices)
        uids.push_back(d.uid);
    return uids;
}

TEST_F(PulseAudioDevicesTest, ListsAndClassifiesSourcesButNotMonitors) {
    ASSERT_TRUE(server.loadPipeSource("mic", micProperties, 48000, 1));
    ASSERT_TRUE(server.loadPipeSource("codec", codecProperties, 44100, 2));
    ASSERT_TRUE(server.loadPipeSource("djm", djmProperties, 48000, 2));

    const auto inputs = AudioInputDeviceMonitor::listInputDevices(*layer);
    EXPECT_EQ(uidsOf(inputs), (std::vector<std::string>{"djm", "codec", "mic"}));
    ASSERT_EQ(inputs.size(), 3u);
    EXPECT_EQ(inputs[0], (AudioInputDeviceInfo{"djm", "DJM-A9", true, false}));
    EXPECT_EQ(inputs[1], (AudioInputDeviceInfo{"codec", "USB Audio CODEC", true, false}));
    EXPECT_EQ(inputs[2], (AudioInputDeviceInfo{"mic", "Built-in Microphone", false, true}));

    EXPECT_EQ(AudioInputSelection::resolve(inputs, false),
              (ResolvedAudioInput{AudioInputSourceKind::usb, "djm", "DJM-A9"}));
    EXPECT_EQ(AudioInputSelection::resolve(inputs, true),
              (ResolvedAudioInput{AudioInputSourceKind::microphone, "mic", "Microphone"}));

    EXPECT_EQ(layer->defaultOutputDevice(), "sink:speakers");
    EXPECT_EQ(layer->nominalSampleRate("sink:speakers"), 48000);
    EXPECT_EQ(layer->nominalSampleRate("source:codec"), 44100);
    EXPECT_EQ(AudioInputDeviceConfigurator::captureFormat(*layer, "codec"),
              (CaptureFormat{44100, 2}));
}

TEST_F(PulseAudioDevicesTest, ABuiltInInputIsOpenedAtThePlaybackRate) {
    ASSERT_TRUE(server.loadPipeSource("mic", micProperties, 44100, 1));
    ASSERT_TRUE(server.loadPipeSource("codec", codecProperties, 44100, 2));
    AudioInputDeviceConfigurator::setInputDevice(*layer, "mic");
    EXPECT_EQ(AudioInputDeviceConfigurator::captureFormat(*layer, "mic"),
              (CaptureFormat{48000, 1}));
    // USB keeps its own clock.
    AudioInputDeviceConfigurator::setInputDevice(*layer, "codec");
    EXPECT_EQ(AudioInputDeviceConfigurator::captureFormat(*layer, "codec"),
              (CaptureFormat{44100, 2}));
    try {
        AudioInputDeviceConfigurator::setInputDevice(*layer, "unplugged");
        FAIL();
    } catch (const AudioInputDeviceException& e) {
        EXPECT_STREQ(e.what(), "Audio input device not found (unplugged)");
    }
}

TEST_F(PulseAudioDevicesTest, HotPlugMovesCaptureAndResetsThePreference) {
    const auto mic = server.loadPipeSource("mic", micProperties, 48000, 1);
    ASSERT_TRUE(mic);
    AudioInputDeviceMonitor monitor(layer);
    monitor.refresh();
    ASSERT_TRUE(monitor.startListening());

    std::vector<std::pair<std::optional<std::string>, std::optional<int>>> starts;
    AudioInputSelectionModel model(
        {[] { return true; }, [] {},
         [&](const std::optional<std::string>& uid, std::optional<int> channels) {
             starts.emplace_back(uid, channels);
         },
         [](const QString&) {}});
    model.startAudioDeviceMonitoring(monitor);
    EXPECT_EQ(model.activeAudioDeviceUID(), "mic");
    model.setPreferMicrophoneOverUSB(true);

    // The first USB device appears: the preference resets and capture moves to it.
    const auto djm = server.loadPipeSource("djm", djmProperties, 48000, 2);
    ASSERT_TRUE(djm);
    ASSERT_TRUE(test::pumpUntil([&] { return model.activeAudioDeviceUID() == "djm"; }));
    EXPECT_FALSE(model.preferMicrophoneOverUSB());
    ASSERT_FALSE(starts.empty());
    EXPECT_EQ(starts.back(), (std::pair<std::optional<std::string>, std::optional<int>>{"djm", 2}));

    // A manual choice survives another device arriving...
    model.selectAudioInputDevice("mic");
    EXPECT_EQ(model.activeAudioDeviceUID(), "mic");
    const auto codec = server.loadPipeSource("codec", codecProperties, 48000, 2);
    ASSERT_TRUE(codec);
    ASSERT_TRUE(test::pumpUntil([&] { return model.audioInputDevices().size() == 3; }));
    EXPECT_EQ(model.activeAudioDeviceUID(), "mic");

    // ...until its own device goes; then the rules choose the mixer again.
    ASSERT_TRUE(server.unloadModule(mic->module));
    ASSERT_TRUE(test::pumpUntil([&] { return model.audioInputDevices().size() == 2; }));
    EXPECT_EQ(model.selectedAudioDeviceUID(), std::nullopt);
    EXPECT_EQ(model.activeAudioDeviceUID(), "djm");
    EXPECT_EQ(model.audioInputDisplayName(), "DJM-A9");
}

} // namespace
} // namespace kelvo
