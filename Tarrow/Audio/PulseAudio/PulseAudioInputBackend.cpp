#include "Audio/PulseAudio/PulseAudioInputBackend.h"

#include "Audio/Devices/AudioInputDeviceConfigurator.h"
#include "Audio/PulseAudio/PulseAudioDeviceLayer.h"
#include "Audio/PulseAudio/PulseAudioInputStream.h"

#include <QtGlobal>

namespace kelvo {

PulseAudioInputBackend::PulseAudioInputBackend(std::shared_ptr<PulseAudioDeviceLayer> layer)
    : layer_(std::move(layer)) {
    Q_ASSERT(layer_);
}

std::unique_ptr<AudioInputStream>
PulseAudioInputBackend::openStream(const std::optional<std::string>& deviceUID) {
    if (const std::optional<std::string> unavailable = layer_->connectNow())
        throw AudioInputException(*unavailable);
    const std::optional<std::string> id =
        AudioInputDeviceConfigurator::setInputDevice(*layer_, deviceUID);
    std::optional<std::string> source;
    if (id)
        if (const auto parsed = PulseAudioDeviceLayer::parseID(*id))
            source = parsed->first;
    // Without a configured format, the source's own (the default input may be a monitor).
    std::optional<CaptureFormat> format =
        AudioInputDeviceConfigurator::captureFormat(*layer_, deviceUID);
    if (!format)
        format = layer_->sourceFormat(source);
    if (!format)
        throw AudioInputException("No audio input is available");
    return std::make_unique<PulseAudioInputStream>(source, *format);
}

} // namespace kelvo
