#pragma once

#include "Audio/Devices/AudioInputDeviceTypes.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// One device of the audio server, inputs and outputs alike.
struct AudioDeviceRecord {
    /// How the layer addresses the device.
    std::string id;
    /// Stable identity across restarts; absent when unreadable.
    std::optional<std::string> uid;
    /// Human name; absent when unreadable.
    std::optional<std::string> name;
    AudioClockTransport transport = AudioClockTransport::other;
    /// Channels of its input streams; absent when the configuration cannot be read.
    std::optional<int> inputChannels;
    friend bool operator==(const AudioDeviceRecord&, const AudioDeviceRecord&) = default;
};

/// The platform's device enumeration and properties: what the listing, selection and clock
/// rules need and nothing more. Implementations are thread-safe.
class AudioDeviceLayer {
public:
    virtual ~AudioDeviceLayer() = default;

    /// Every device, in the server's order.
    virtual std::vector<AudioDeviceRecord> devices() = 0;
    virtual std::optional<std::string> defaultInputDevice() = 0;
    virtual std::optional<std::string> defaultOutputDevice() = 0;
    /// Nominal sample rate in Hz; absent when unreadable.
    virtual std::optional<double> nominalSampleRate(const std::string& id) = 0;
    /// Returns 0 on success, else the platform's status code.
    virtual int setNominalSampleRate(const std::string& id, double hz) = 0;
    virtual std::vector<AudioSampleRateRange> availableSampleRates(const std::string& id) = 0;
    /// Called from any thread whenever the device list or a default device changes.
    /// Returns false when the layer cannot deliver changes.
    virtual bool setChangeListener(std::function<void()> listener) = 0;
    /// Whether a query may wait for an audio server; such a layer is never asked on the main
    /// thread.
    virtual bool mayWaitForServer() const { return false; }
};

} // namespace kelvo
