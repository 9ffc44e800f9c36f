#include "Audio/Devices/AudioInputSelectionModel.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

// Which device the listing resolves to is AudioInputSelection's; here: what the model keeps.
const AudioInputDeviceInfo mic{"mic", "Built-in Microphone", false, true};
const AudioInputDeviceInfo codec{"codec", "USB Audio CODEC", true, false};
const AudioInputDeviceInfo djm{"djm", "DJM-A9", true, false};
using Restart = std::pair<std::optional<std::string>, std::optional<int>>;

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
    std::vector<Restart> restarts;
};

TEST_F(SelectionModelTest, TheMixerIsCapturedWithTwoChannelsAndOnlyAChangeRestartsCapture) {
    model.handleAudioDevicesChanged({mic, codec, djm});
    model.handleAudioDevicesChanged({mic, codec, djm, {"line", "Line In", false, false}});
    EXPECT_EQ(restarts, (std::vector<Restart>{{"djm", 2}}));
}

TEST_F(SelectionModelTest, TheFirstUSBDeviceResetsTheMicrophonePreferenceAndMovesCapture) {
    model.handleAudioDevicesChanged({mic});
    model.setPreferMicrophoneOverUSB(true);
    EXPECT_EQ(model.captureChannelCount(), std::nullopt);

    model.handleAudioDevicesChanged({mic, codec});
    EXPECT_FALSE(model.preferMicrophoneOverUSB());
    EXPECT_EQ(restarts, (std::vector<Restart>{{"mic", std::nullopt}, {"codec", std::nullopt}}))
        << "moved once for each list";

    // The switch moves capture at once; a second USB device keeps a preference made now.
    model.setPreferMicrophoneOverUSB(true);
    EXPECT_EQ(restarts.back().first, "mic");
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
    model.handleAudioDevicesChanged({mic, codec, djm});
    EXPECT_EQ(model.activeAudioDeviceUID(), "mic");
    model.selectAudioInputDevice("nope"); // not listed: changes nothing
    EXPECT_EQ(model.selectedAudioDeviceUID(), "mic");

    model.handleAudioDevicesChanged({codec, djm});
    EXPECT_EQ(model.selectedAudioDeviceUID(), std::nullopt);
    EXPECT_EQ(model.activeAudioDeviceUID(), "djm");
}

TEST_F(SelectionModelTest, TheLaunchChoiceIsTakenWheneverItIsListedUntilOneIsPickedByHand) {
    model.preferAudioInputDevice("codec"); // before the audio server has listed anything
    model.handleAudioDevicesChanged({mic});
    EXPECT_EQ(model.activeAudioDeviceUID(), "mic");
    model.handleAudioDevicesChanged({mic, codec, djm});
    EXPECT_EQ(model.activeAudioDeviceUID(), "codec") << "over the mixer the rules would take";
    model.handleAudioDevicesChanged({mic, djm}); // unplugged, or the server lists it late
    EXPECT_EQ(model.activeAudioDeviceUID(), "djm");
    model.handleAudioDevicesChanged({mic, codec, djm});
    EXPECT_EQ(model.activeAudioDeviceUID(), "codec") << "back, and taken again";

    model.selectAudioInputDevice("mic");
    model.handleAudioDevicesChanged({codec, djm});
    model.handleAudioDevicesChanged({mic, codec, djm});
    EXPECT_EQ(model.activeAudioDeviceUID(), "djm") << "a pick by hand ends the launch choice";
}

} // namespace
} // namespace kelvo
