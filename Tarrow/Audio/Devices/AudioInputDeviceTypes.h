#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kelvo {

/// One audio input as the picker and the selection rules see it.
struct AudioInputDeviceInfo {
    std::string uid;
    std::string name;
    bool isUSB = false;
    bool isBuiltIn = false;
    friend bool operator==(const AudioInputDeviceInfo&, const AudioInputDeviceInfo&) = default;
};

enum class AudioInputSourceKind { microphone, usb };

constexpr std::string_view textValue(AudioInputSourceKind kind) {
    return kind == AudioInputSourceKind::usb ? "usb" : "microphone";
}
std::optional<AudioInputSourceKind> audioInputSourceKindFromText(std::string_view text);

/// The outcome of choosing an input: an absent UID means the system default input.
struct ResolvedAudioInput {
    AudioInputSourceKind kind = AudioInputSourceKind::microphone;
    std::optional<std::string> uid;
    std::string displayName;
    friend bool operator==(const ResolvedAudioInput&, const ResolvedAudioInput&) = default;
};

/// A device's transport as far as clocking matters.
enum class AudioClockTransport { builtIn, displayPort, thunderbolt, usb, other };

/// One entry of a device's available nominal sample rates, in Hz.
struct AudioSampleRateRange {
    double minimum = 0.0;
    double maximum = 0.0;
    friend bool operator==(const AudioSampleRateRange&, const AudioSampleRateRange&) = default;
};

/// Why an input device could not be prepared for capture.
struct AudioInputDeviceError {
    struct DeviceNotFound {
        std::string uid;
        friend bool operator==(const DeviceNotFound&, const DeviceNotFound&) = default;
    };
    struct SetDeviceFailed {
        std::int32_t status = 0;
        friend bool operator==(const SetDeviceFailed&, const SetDeviceFailed&) = default;
    };
    struct InputClockMismatch {
        double inputHz = 0.0;
        double outputHz = 0.0;
        friend bool operator==(const InputClockMismatch&, const InputClockMismatch&) = default;
    };
    struct AudioUnitUnavailable {
        friend bool operator==(const AudioUnitUnavailable&, const AudioUnitUnavailable&) = default;
    };

    std::variant<DeviceNotFound, SetDeviceFailed, InputClockMismatch, AudioUnitUnavailable> value;

    std::string description() const;
    friend bool operator==(const AudioInputDeviceError&, const AudioInputDeviceError&) = default;
};

} // namespace kelvo
