#pragma once

#include "Audio/Capture/AudioInputStream.h"
#include "Audio/Devices/AudioDeviceLayer.h"
#include "Audio/PulseAudio/PulseAudioConnection.h"

#include <map>
#include <memory>
#include <mutex>

namespace kelvo {

/// The device layer over the PulseAudio (or PipeWire-Pulse) server. Sources are inputs
/// ("source:" + name), sinks are outputs ("sink:" + name); a sink's monitor source has no
/// input channels. UID = the source's name, name = its description, transport from
/// "device.bus" and "device.form_factor".
///
/// The server cannot be told to run a device at another rate: it resamples every stream
/// itself. Writing a nominal rate therefore records the rate that capture opens its stream
/// at, and reading it back returns that rate; no range list is reported, so the clock rules
/// never fail on this platform.
class PulseAudioDeviceLayer : public AudioDeviceLayer {
public:
    /// Throws `AudioInputException` when no server answers.
    PulseAudioDeviceLayer();
    ~PulseAudioDeviceLayer() override;

    std::vector<AudioDeviceRecord> devices() override;
    std::optional<std::string> defaultInputDevice() override;
    std::optional<std::string> defaultOutputDevice() override;
    std::optional<double> nominalSampleRate(const std::string& id) override;
    int setNominalSampleRate(const std::string& id, double hz) override;
    std::vector<AudioSampleRateRange> availableSampleRates(const std::string& id) override;
    bool setChangeListener(std::function<void()> listener) override;

    /// The format a record stream on this source (absent: the default source) delivers
    /// without conversion, monitors included: the input's own format.
    std::optional<CaptureFormat> sourceFormat(const std::optional<std::string>& sourceName);

    /// The transport a source or sink with these properties counts as.
    static AudioClockTransport transportFromProperties(const char* bus, const char* formFactor);
    static std::string sourceID(const std::string& name) { return "source:" + name; }
    static std::string sinkID(const std::string& name) { return "sink:" + name; }
    /// The server's name of a device id, and whether it is a source.
    static std::optional<std::pair<std::string, bool>> parseID(const std::string& id);

private:
    static void subscriptionEvent(pa_context*, pa_subscription_event_type_t, uint32_t, void*);

    std::unique_ptr<PulseAudioConnection> connection_;
    std::mutex overridesMutex_;
    std::map<std::string, double> rateOverrides_;
    std::mutex listenerMutex_;
    std::function<void()> listener_;
};

} // namespace kelvo
