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
    // Absent a named device, the server's default source, which is often the speakers'
    // monitor: playback fed back in is no input of the room, and the tile would call it
    // "Microphone".
    const std::optional<PulseAudioDeviceLayer::SourceFormat> own = layer_->sourceFormat(source);
    if (!own)
        throw AudioInputException(noInputText);
    if (own->isMonitor)
        throw AudioInputException(monitorRefusedText);
    const CaptureFormat format =
        AudioInputDeviceConfigurator::captureFormat(*layer_, deviceUID).value_or(own->format);
    return std::make_unique<PulseAudioInputStream>(source, format, layer_->abandonFlag());
}

} // namespace kelvo
