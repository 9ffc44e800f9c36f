#include "Audio/AudioInputPlatform.h"

#include "Audio/Capture/AudioFileInput.h"
#include "Audio/PulseAudio/PulseAudioDeviceLayer.h"
#include "Audio/PulseAudio/PulseAudioInputBackend.h"

namespace kelvo {

AudioInputPlatform AudioInputPlatform::make(const std::optional<std::filesystem::path>& audioFile) {
    AudioInputPlatform platform;
    if (audioFile) {
        platform.deviceLayer = std::make_shared<EmptyAudioDeviceLayer>();
        platform.backend = std::make_shared<AudioFileInputBackend>(*audioFile);
        return platform;
    }
    std::shared_ptr<PulseAudioDeviceLayer> layer;
    try {
        layer = std::make_shared<PulseAudioDeviceLayer>();
        platform.deviceLayer = layer;
    } catch (const AudioInputException& e) {
        platform.deviceLayer = std::make_shared<EmptyAudioDeviceLayer>();
        platform.deviceListUnavailable = e.what();
    }
    platform.backend = std::make_shared<PulseAudioInputBackend>(layer);
    return platform;
}

} // namespace kelvo
