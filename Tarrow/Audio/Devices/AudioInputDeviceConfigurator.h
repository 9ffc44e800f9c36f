#pragma once

#include "Audio/Capture/AudioInputStream.h"
#include "Audio/Devices/AudioDeviceLayer.h"

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace kelvo {

/// Thrown when an input device cannot be prepared; also an `AudioInputException` so capture
/// reports it like any other start failure.
class AudioInputDeviceException : public AudioInputException {
public:
    explicit AudioInputDeviceException(AudioInputDeviceError error)
        : AudioInputException(error.description()), error_(std::move(error)) {}
    const AudioInputDeviceError& error() const { return error_; }

private:
    AudioInputDeviceError error_;
};

/// Prepares the chosen input before capture: finds it, and where it runs from the playback
/// clock, brings its nominal rate to the default output's.
struct AudioInputDeviceConfigurator {
    /// Waiting while a new nominal rate settles; replaced in tests.
    struct Waiting {
        std::function<std::chrono::steady_clock::time_point()> now;
        std::function<void(std::chrono::milliseconds)> sleep;
        static Waiting real();
    };

    static constexpr std::chrono::milliseconds settleTimeout{1500};
    static constexpr std::chrono::milliseconds settleSlice{20};

    /// Returns the layer's id of the device capture should open (absent: the system default
    /// input, left as it is). Throws `AudioInputDeviceException`.
    static std::optional<std::string> setInputDevice(AudioDeviceLayer& layer,
                                                     const std::optional<std::string>& uid,
                                                     const Waiting& waiting = Waiting::real());
    /// The device's nominal rate and input channels, or absent when either is unknown.
    static std::optional<CaptureFormat> captureFormat(AudioDeviceLayer& layer,
                                                      const std::optional<std::string>& uid);

    static void alignInputClock(AudioDeviceLayer& layer, const std::string& deviceID,
                                const Waiting& waiting);
    static void setNominalSampleRate(AudioDeviceLayer& layer, double hz,
                                     const std::string& deviceID, const Waiting& waiting);
};

} // namespace kelvo
