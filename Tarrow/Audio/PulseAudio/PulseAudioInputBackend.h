#pragma once

#include "Audio/Capture/AudioInputStream.h"
#include "Audio/Devices/AudioDeviceLayer.h"

#include <memory>

namespace kelvo {

/// Capture from the audio server's sources: the device is prepared through the
/// configurator's rules, then a record stream opens on it (float32, the device's rate and
/// channels, fragments of at most 512 frames).
class PulseAudioInputBackend : public AudioInputBackend {
public:
    explicit PulseAudioInputBackend(std::shared_ptr<AudioDeviceLayer> layer);
    std::unique_ptr<AudioInputStream> openStream(const std::optional<std::string>& deviceUID) override;

private:
    std::shared_ptr<AudioDeviceLayer> layer_;
};

} // namespace kelvo
