#include "Audio/Devices/AudioInputSelectionModel.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

const AudioInputDeviceInfo mic{"mic", "Built-in Microphone", false, true};
const AudioInputDeviceInfo codec{"codec", "USB Audio CODEC", true, false};
const AudioInputDeviceInfo djm{"djm", "DJM-A9", true, false};

class SelectionModelTest : public ::testing::Test {
protected:
    SelectionModelTest() {
        QObject::connect(
            &model, &AudioInputSelectionModel::captureRestartNeeded,
            [this](const std::optional<std::string>& uid, std::optional<int> channels) {
                restarts.emplace_back(uid, channels);
            });
    }
    AudioInputSelectionModel model;
    std::vector<std::pair<std::optional<std::string>, std::optional<int>>> restarts;
};

TEST_F(SelectionModelTest, TheMixerIsChosenWithTwoChannelsAndOnlyAChangeRestartsCapture) {
    model.handleAudioDevicesChanged({mic, codec, djm});
    EXPECT_EQ(model.audioInputDisplayName(), "DJM-A9");
    ASSERT_EQ(restarts.size(), 1u);
    EXPECT_EQ(restarts[0], (std::pair<std::optional<std::string>, std::optional<int>>{"djm", 2}));
    model.handleAudioDevicesChanged({mic, codec, djm, {"line", "Line In", false, false}});
    EXPECT_EQ(restarts.size(), 1u) << "the choice did not change";

    // Nothing listed: the system default input.
    model.handleAudioDevicesChanged({});
    EXPECT_EQ(restarts.back().first, std::nullopt);
}

TEST_F(SelectionModelTest, TheFirstUSBDeviceResetsTheMicrophonePreferenceAndMovesCapture) {
    model.handleAudioDevicesChanged({mic});
    model.setPreferMicrophoneOverUSB(true);
    model.applyAudioInputSelection(true);
    EXPECT_EQ(model.activeAudioDeviceUID(), "mic");
    EXPECT_EQ(model.captureChannelCount(), std::nullopt);

    model.handleAudioDevicesChanged({mic, codec});
    EXPECT_FALSE(model.preferMicrophoneOverUSB());
    EXPECT_EQ(model.activeAudioDeviceUID(), "codec");
    EXPECT_EQ(restarts.back().first, "codec");

    // A second USB device while one is present keeps a preference made now.
    model.setPreferMicrophoneOverUSB(true);
    model.applyAudioInputSelection(true);
    EXPECT_EQ(model.activeAudioDeviceUID(), "mic");
    model.handleAudioDevicesChanged({mic, codec, djm});
    EXPECT_TRUE(model.preferMicrophoneOverUSB());
    EXPECT_EQ(model.activeAudioDeviceUID(), "mic");

    // All USB devices gone: the preference is reset again.
    model.handleAudioDevicesChanged({mic});
    EXPECT_FALSE(model.preferMicrophoneOverUSB());
}

TEST_F(SelectionModelTest, AManualChoiceSurvivesUntilItsDeviceGoes) {
    model.handleAudioDevicesChanged({mic, codec});
    model.selectAudioInputDevice("mic");
    EXPECT_EQ(model.activeAudioDeviceUID(), "mic");
    EXPECT_EQ(model.audioInputKind(), AudioInputSourceKind::microphone);
    EXPECT_EQ(model.audioInputDisplayName(), "Microphone");

    model.handleAudioDevicesChanged({mic, codec, djm});
    EXPECT_EQ(model.activeAudioDeviceUID(), "mic");
    EXPECT_EQ(model.selectedAudioDeviceUID(), "mic");

    model.selectAudioInputDevice("nope"); // not listed: changes nothing
    EXPECT_EQ(model.selectedAudioDeviceUID(), "mic");

    model.handleAudioDevicesChanged({codec, djm});
    EXPECT_EQ(model.selectedAudioDeviceUID(), std::nullopt);
    EXPECT_EQ(model.activeAudioDeviceUID(), "djm");
}

} // namespace
} // namespace kelvo
