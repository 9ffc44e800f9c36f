#pragma once

#include "Audio/Capture/AudioInputStream.h"
#include "Audio/PulseAudio/PulseAudioConnection.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// A record stream on one source (absent: the server's default). Its read callback runs on
/// the connection's loop thread, "Kelvo.audio": that is the audio thread.
class PulseAudioInputStream : public AudioInputStream {
public:
    static constexpr std::uint32_t fragmentFrames = 512;

    /// `format` must have a rate and at least one channel; `abandoned` ends the start's waits.
    PulseAudioInputStream(std::optional<std::string> sourceName, CaptureFormat format,
                          PulseAudioConnection::AbandonFlag abandoned = {});
    ~PulseAudioInputStream() override;

    CaptureFormat format() const override { return format_; }
    void start(RenderReceiver receiver, std::function<void()> configurationChanged) override;
    void stop() override;
    bool isRunning() const override { return running_.load(std::memory_order_acquire); }

private:
    static void readable(pa_stream*, std::size_t, void* userdata);
    static void stateChanged(pa_stream*, void* userdata);

    std::optional<std::string> sourceName_;
    CaptureFormat format_;
    PulseAudioConnection::AbandonFlag abandoned_;
    std::unique_ptr<PulseAudioConnection> connection_;
    pa_stream* stream_ = nullptr;
    RenderReceiver receiver_;
    // One fragment of zeros, made before the stream starts, played for holes in the input.
    std::vector<float> silence_;
    std::function<void()> configurationChanged_;
    std::atomic<bool> running_{false};
};

} // namespace kelvo
