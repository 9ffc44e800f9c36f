#pragma once

#include "Audio/AudioBufferListView.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace kelvo {

/// Why capture could not start; `what()` is the operator-facing description.
class AudioInputException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The format a capture run delivers: sample rate in Hz (0 when unknown) and channels.
struct CaptureFormat {
    double sampleRate = 0.0;
    int channelCount = 0;
    friend bool operator==(const CaptureFormat&, const CaptureFormat&) = default;
};

/// Called on the audio thread with each buffer list and its frame count.
using RenderReceiver = std::function<void(AudioBufferListView, std::uint32_t)>;

/// One run of an audio input: delivers buffers on its own (audio) thread once started.
class AudioInputStream {
public:
    virtual ~AudioInputStream() = default;
    virtual CaptureFormat format() const = 0;
    /// Starts delivery. `configurationChanged` may be called from any thread when the input
    /// goes away or fails. Throws `AudioInputException`.
    virtual void start(RenderReceiver receiver, std::function<void()> configurationChanged) = 0;
    /// Ends delivery; once it returns, the receiver is not called again.
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;
};

/// Where capture comes from: the audio server's devices, or a file played in real time.
class AudioInputBackend {
public:
    virtual ~AudioInputBackend() = default;
    /// Prepares the device (absent UID: the system default input) and returns a stream that
    /// has not started yet. Throws `AudioInputException`.
    virtual std::unique_ptr<AudioInputStream>
    openStream(const std::optional<std::string>& deviceUID) = 0;
    /// Whether opening and starting a stream may wait for an audio server; such a backend is
    /// never opened on the main thread.
    virtual bool mayWaitForServer() const { return false; }
    /// The capture that owns it is going: a start under way stops waiting for the server,
    /// and the backend is not used again.
    virtual void abandonWaits() {}
};

} // namespace kelvo
