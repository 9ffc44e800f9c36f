#pragma once

#include "Audio/Capture/AudioInputStream.h"
#include "Audio/Devices/AudioDeviceLayer.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace kelvo {

/// What the application model needs to list devices and capture: the device layer for the
/// monitor and the backend for `MicCapture`. Chosen once at start-up.
struct AudioInputPlatform {
    std::shared_ptr<AudioDeviceLayer> deviceLayer;
    std::shared_ptr<AudioInputBackend> backend;

    /// The audio server's devices, or with `audioFile` that file in place of any device.
    /// Never throws nor waits for a server: the device list stays empty until one answers,
    /// and capture reports why when it starts.
    static AudioInputPlatform make(const std::optional<std::filesystem::path>& audioFile);
};

/// A device layer with no devices, for when devices are not in use or not reachable.
class EmptyAudioDeviceLayer : public AudioDeviceLayer {
public:
    std::vector<AudioDeviceRecord> devices() override { return {}; }
    std::optional<std::string> defaultInputDevice() override { return std::nullopt; }
    std::optional<std::string> defaultOutputDevice() override { return std::nullopt; }
    std::optional<double> nominalSampleRate(const std::string&) override { return std::nullopt; }
    int setNominalSampleRate(const std::string&, double) override { return -1; }
    std::vector<AudioSampleRateRange> availableSampleRates(const std::string&) override {
        return {};
    }
    bool setChangeListener(std::function<void()>) override { return false; }
};

} // namespace kelvo
