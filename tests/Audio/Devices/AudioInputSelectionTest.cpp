#include "Audio/Devices/AudioInputSelection.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

TEST(AudioInputSelectionNames, RecogniseThePioneerMixer) {
    for (const char* name : {"DJM-A9", "Pioneer DJM A9 USB", "djm-a9 (2)", "PIONEER A9"})
        EXPECT_TRUE(AudioInputSelection::isPioneerMixerName(name)) << name;
    for (const char* name : {"DJM-900", "Pioneer DJM-V10", "A9 interface", ""})
        EXPECT_FALSE(AudioInputSelection::isPioneerMixerName(name)) << name;

    const std::tuple<const char*, bool, bool, const char*> names[] = {
        {"Pioneer DJM-A9", true, false, "DJM-A9"},
        {"Built-in Microphone", false, true, "Microphone"},
        {"", false, false, "Microphone"},
        {"Scarlett 2i2", true, false, "Scarlett 2i2"}};
    for (const auto& [name, usb, builtIn, shown] : names)
        EXPECT_EQ(AudioInputSelection::shortDisplayName({"u", name, usb, builtIn}), shown) << name;
}

const std::vector<AudioInputDeviceInfo> studio = {
    {"mic", "Built-in Microphone", false, true},
    {"codec", "USB Audio CODEC", true, false},
    {"djm", "DJM-A9", true, false},
};

TEST(AudioInputSelectionResolve, PrefersTheMixerThenTheMicrophoneWhenAsked) {
    EXPECT_EQ(AudioInputSelection::resolve(studio, false),
              (ResolvedAudioInput{AudioInputSourceKind::usb, "djm", "DJM-A9"}));
    EXPECT_EQ(AudioInputSelection::resolve(studio, true),
              (ResolvedAudioInput{AudioInputSourceKind::microphone, "mic", "Microphone"}));
    EXPECT_EQ(AudioInputSelection::resolve({}, false),
              (ResolvedAudioInput{AudioInputSourceKind::microphone, std::nullopt, "Microphone"}));
    // Only USB devices and the microphone asked for: the system default input.
    EXPECT_EQ(AudioInputSelection::resolve({studio[1]}, true),
              (ResolvedAudioInput{AudioInputSourceKind::microphone, std::nullopt, "Microphone"}));
    // No built-in device: the first non-USB one serves as the microphone.
    const std::vector<AudioInputDeviceInfo> lineOnly = {{"line", "Line In", false, false}};
    EXPECT_EQ(AudioInputSelection::resolve(lineOnly, false),
              (ResolvedAudioInput{AudioInputSourceKind::microphone, "line", "Line In"}));
}

TEST(AudioInputDeviceErrorTexts, RoundTheRatesAndNameTheUnit) {
    const AudioInputDeviceError mismatch{
        AudioInputDeviceError::InputClockMismatch{44099.6, 47999.5}};
    EXPECT_EQ(mismatch.description(),
              "Audio input is 44100 Hz but playback is 48000 Hz, so the meter stays silent. "
              "The input can't switch to match.");
    EXPECT_EQ(AudioInputDeviceError{AudioInputDeviceError::AudioUnitUnavailable{}}.description(),
              "Audio input unit unavailable");
}

} // namespace
} // namespace kelvo
