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
    // The layer reaches the server in the background and lists the devices once one answers;
    // each capture start also tries, off the main thread.
    auto layer = std::make_shared<PulseAudioDeviceLayer>();
    platform.deviceLayer = layer;
    platform.backend = std::make_shared<PulseAudioInputBackend>(layer);
    return platform;
}

} // namespace kelvo
