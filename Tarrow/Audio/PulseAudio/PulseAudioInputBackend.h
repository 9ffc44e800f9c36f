#pragma once

#include "Audio/Capture/AudioInputStream.h"
#include "Audio/PulseAudio/PulseAudioDeviceLayer.h"

#include <memory>

namespace kelvo {

/// Capture from the audio server's sources: the device is prepared through the
/// configurator's rules, then a record stream opens on it (float32, the device's rate and
/// channels, fragments of at most 512 frames).
class PulseAudioInputBackend : public AudioInputBackend {
public:
    static constexpr const char* noInputText = "No audio input is available";
    static constexpr const char* monitorRefusedText =
        "No audio input is connected (the speakers’ monitor is not an input)";

    /// While the layer has no server, each start tries to reach it at once and, failing,
    /// reports why.
    explicit PulseAudioInputBackend(std::shared_ptr<PulseAudioDeviceLayer> layer);
    std::unique_ptr<AudioInputStream>
    openStream(const std::optional<std::string>& deviceUID) override;
    bool mayWaitForServer() const override { return true; }
    void abandonWaits() override { layer_->abandonWaits(); }

private:
    std::shared_ptr<PulseAudioDeviceLayer> layer_;
};

} // namespace kelvo
