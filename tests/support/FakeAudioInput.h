#pragma once

#include "Audio/Capture/AudioInputStream.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvo::test {

/// A stream driven by the test: `deliver` plays the audio thread.
class FakeAudioStream : public AudioInputStream {
public:
    explicit FakeAudioStream(CaptureFormat f, bool failStart) : format_(f), failStart_(failStart) {}
    CaptureFormat format() const override { return format_; }
    void start(RenderReceiver r, std::function<void()> changed) override {
        if (failStart_)
            throw AudioInputException("The device is busy");
        receiver = std::move(r);
        configurationChanged = std::move(changed);
        running = true;
    }
    void stop() override { running = false; }
    bool isRunning() const override { return running; }

    void deliver(const std::vector<float>& interleaved) {
        const AudioBuffer buffer{static_cast<std::uint32_t>(format_.channelCount),
                                 interleaved.data()};
        receiver(AudioBufferListView(&buffer, 1),
                 static_cast<std::uint32_t>(interleaved.size() / format_.channelCount));
    }

    RenderReceiver receiver;
    std::function<void()> configurationChanged;
    std::atomic<bool> running{false};

private:
    CaptureFormat format_;
    bool failStart_;
};

/// A backend the test configures. With `waits`, it is opened on the capture's set-up thread,
/// after `beforeOpen` (which may hold it there).
class FakeAudioBackend : public AudioInputBackend {
public:
    CaptureFormat format{48000, 2};
    bool failStart = false;
    bool waits = false;
    std::function<void()> beforeOpen;
    FakeAudioStream* last = nullptr;
    std::vector<std::optional<std::string>> opened;

    bool mayWaitForServer() const override { return waits; }
    std::unique_ptr<AudioInputStream> openStream(const std::optional<std::string>& uid) override {
        if (beforeOpen)
            beforeOpen();
        opened.push_back(uid);
        auto stream = std::make_unique<FakeAudioStream>(format, failStart);
        last = stream.get();
        return stream;
    }
};

} // namespace kelvo::test
