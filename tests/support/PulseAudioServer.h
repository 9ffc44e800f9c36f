#pragma once

#include "support/TemporaryDirectory.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kelvo::test {

/// A private PulseAudio daemon on its own socket and runtime folder, for the lifetime of
/// the object. Sets PULSE_SERVER for this process so every client in it talks to the daemon.
class PulseAudioServer {
public:
    PulseAudioServer();
    ~PulseAudioServer();
    PulseAudioServer(const PulseAudioServer&) = delete;
    PulseAudioServer& operator=(const PulseAudioServer&) = delete;

    /// Whether the daemon runs and answers; `failure()` says why not.
    bool running() const { return running_; }
    const std::string& failure() const { return failure_; }
    const std::string& serverAddress() const { return server_; }

    /// Runs pactl against the daemon; returns its standard output, or absent on failure.
    std::optional<std::string> pactl(const std::vector<std::string>& arguments) const;

    /// A source fed through a FIFO (float32le): returns the module index. `properties` is the
    /// source_properties text, e.g. "device.description='DJM-A9' device.bus=usb".
    struct PipeSource {
        int module = -1;
        std::filesystem::path fifo;
    };
    std::optional<PipeSource> loadPipeSource(const std::string& name, const std::string& properties,
                                             int rate, int channels);
    std::optional<int> loadNullSink(const std::string& name, const std::string& properties, int rate);
    bool unloadModule(int module) const;

private:
    TemporaryDirectory dir_;
    std::string server_;
    std::string failure_;
    int pid_ = -1;
    bool running_ = false;
};

/// Writes interleaved float32 audio into a pipe source's FIFO at about `speed` times real
/// time, on the calling thread.
bool writeToFifo(const std::filesystem::path& fifo, const std::vector<float>& interleaved,
                 int channels, int rate, double speed = 1.0);

} // namespace kelvo::test
