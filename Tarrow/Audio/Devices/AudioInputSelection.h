#pragma once

#include "Audio/Devices/AudioInputDeviceTypes.h"

#include <optional>
#include <string_view>
#include <vector>

namespace kelvo {

/// Which input capture should use: a USB interface (a Pioneer DJM-A9 mixer first) over the
/// built-in microphone, unless the operator asked for the microphone.
struct AudioInputSelection {
    static constexpr const char* microphoneName = "Microphone";
    static constexpr const char* mixerName = "DJM-A9";

    static bool isPioneerMixerName(std::string_view name);
    static std::optional<AudioInputDeviceInfo>
    preferredUSBDevice(const std::vector<AudioInputDeviceInfo>& devices);
    static std::optional<AudioInputDeviceInfo>
    preferredMicrophoneDevice(const std::vector<AudioInputDeviceInfo>& devices);
    static std::string shortDisplayName(const AudioInputDeviceInfo& device);
    static ResolvedAudioInput resolve(const std::vector<AudioInputDeviceInfo>& devices,
                                      bool preferMicrophone);
};

/// True for built-in, DisplayPort and Thunderbolt inputs, and for displays named so: those
/// run from the playback clock and stay silent at another rate than the output.
struct AudioOutputClockPolicy {
    static bool followsOutputClock(AudioClockTransport transport, std::string_view deviceName);
};

} // namespace kelvo
