#include "Audio/PulseAudio/PulseAudioInputBackend.h"

#include "Audio/Devices/AudioInputDeviceConfigurator.h"
#include "Audio/PulseAudio/PulseAudioDeviceLayer.h"
#include "Audio/PulseAudio/PulseAudioInputStream.h"

namespace kelvo {

PulseAudioInputBackend::PulseAudioInputBackend(std::shared_ptr<AudioDeviceLayer> layer)
    : layer_(std::move(layer)) {}

std::unique_ptr<AudioInputStream>
PulseAudioInputBackend::openStream(const std::optional<std::string>& deviceUID) {
    const std::optional<std::string> id =
        AudioInputDeviceConfigurator::setInputDevice(*layer_, deviceUID);
    const std::optional<CaptureFormat> format =
        AudioInputDeviceConfigurator::captureFormat(*layer_, deviceUID);
    std::optional<std::string> source;
    if (id)
        if (const auto parsed = PulseAudioDeviceLayer::parseID(*id))
            source = parsed->first;
    // Without a known format the stream still needs one; the server converts.
    return std::make_unique<PulseAudioInputStream>(source,
                                                   format.value_or(CaptureFormat{44100, 2}));
}

} // namespace kelvo
