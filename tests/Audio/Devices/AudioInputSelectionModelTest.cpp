#include "Audio/Devices/AudioInputSelectionModel.h"
#include "Audio/Capture/AudioInputStream.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

const AudioInputDeviceInfo mic{"mic", "Built-in Microphone", false, true};
const AudioInputDeviceInfo codec{"codec", "USB Audio CODEC", true, false};
const AudioInputDeviceInfo djm{"djm", "DJM-A9", true, false};

struct Starts {
    std::vector<std::pair<std::optional<std::string>, std::optional<int>>> calls;
    int dropDetectorReplacements = 0;
    std::vector<QString> statuses;
    bool running = true;
    std::optional<std::string> failWith;
};

class SelectionModelTest : public ::testing::Test {
protected:
    Starts starts;
    AudioInputSelectionModel model{AudioInputSelectionModel::Hooks{
        [this] { return starts.running; }, [this] { ++starts.dropDetectorReplacements; },
        [this](const std::optional<std::string>& uid, std::optional<int> channels) {
            starts.calls.emplace_back(uid, channels);
            if (starts.failWith)
                throw AudioInputException(*starts.failWith);
        },
        [this](const QString& s) { starts.statuses.push_back(s); }}};
};

TEST_F(SelectionModelTest, TheMixerIsChosenWithTwoChannels) {
    model.handleAudioDevicesChanged({mic, codec, djm});
    EXPECT_EQ(model.activeAudioDeviceUID(), "djm");
    EXPECT_EQ(model.audioInputKind(), AudioInputSourceKind::usb);
    EXPECT_EQ(model.audioInputDisplayName(), "DJM-A9");
    EXPECT_EQ(model.captureChannelCount(), 2);
    ASSERT_EQ(starts.calls.size(), 1u);
    EXPECT_EQ(starts.calls[0],
              (std::pair<std::optional<std::string>, std::optional<int>>{"djm", 2}));
    EXPECT_EQ(starts.dropDetectorReplacements, 1);

    // Nothing listed: the system default input.
    model.handleAudioDevicesChanged({});
    EXPECT_EQ(model.activeAudioDeviceUID(), std::nullopt);
    EXPECT_EQ(model.audioInputDisplayName(), "Microphone");
    EXPECT_EQ(starts.calls.back().first, std::nullopt);
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
    EXPECT_EQ(starts.calls.back().first, "codec");

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

TEST_F(SelectionModelTest, NoRestartWithoutAChangeOrWithoutTheEngineLoop) {
    model.handleAudioDevicesChanged({mic});
    const auto callsBefore = starts.calls.size();
    model.handleAudioDevicesChanged({mic, {"line", "Line In", false, false}});
    EXPECT_EQ(starts.calls.size(), callsBefore) << "the choice did not change";
    starts.running = false;
    model.handleAudioDevicesChanged({mic, codec});
    EXPECT_EQ(starts.calls.size(), callsBefore);
    EXPECT_EQ(model.activeAudioDeviceUID(), "codec");
}

TEST_F(SelectionModelTest, ARestartFailureEndsInTheStatusLine) {
    starts.failWith = "Audio input device not found (codec)";
    model.handleAudioDevicesChanged({codec});
    ASSERT_EQ(starts.statuses.size(), 1u);
    EXPECT_EQ(starts.statuses[0],
              QStringLiteral("Audio input unavailable: Audio input device not found (codec)"));
}

} // namespace
} // namespace kelvo
