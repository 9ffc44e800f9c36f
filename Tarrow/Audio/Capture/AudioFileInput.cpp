#include "Audio/Capture/AudioFileInput.h"

#include "Support/Logging.h"

#include <sndfile.h>

#include <atomic>
#include <chrono>
#include <pthread.h>
#include <thread>
#include <vector>

namespace kelvo {

namespace {

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

class AudioFileInputStream : public AudioInputStream {
public:
    AudioFileInputStream(SndfileHandle file, const SF_INFO& info)
        : file_(std::move(file)), info_(info) {}
    ~AudioFileInputStream() override { stop(); }

    CaptureFormat format() const override {
        return {static_cast<double>(info_.samplerate), info_.channels};
    }

    void start(RenderReceiver receiver, std::function<void()> configurationChanged) override {
        stop();
        stopping_.store(false);
        running_.store(true);
        thread_ =
            std::thread([this, receiver = std::move(receiver),
                         changed = std::move(configurationChanged)] { play(receiver, changed); });
    }

    void stop() override {
        stopping_.store(true);
        if (thread_.joinable())
            thread_.join();
        running_.store(false);
    }

    bool isRunning() const override { return running_.load(); }

private:
    // Paced by an absolute schedule, so the long-run rate is exact whatever each sleep costs.
    // Like a sound card, a buffer is handed over once its last frame has "sounded".
    void play(const RenderReceiver& receiver, const std::function<void()>& changed) {
        ::pthread_setname_np(::pthread_self(), "Kelvo.audio");
        const auto channels = static_cast<std::uint32_t>(info_.channels);
        std::vector<float> buffer(static_cast<std::size_t>(AudioFileInputBackend::bufferFrames) *
                                  channels);
        const auto start = std::chrono::steady_clock::now();
        // Where the file's frame 0 sounded on the wall clock, to time light against sound.
        qCDebug(lcAudio).noquote() << "playing from realtime"
                                   << std::chrono::duration_cast<std::chrono::nanoseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count()
                                   << "ns";
        std::uint64_t framesDelivered = 0;
        bool emptyPass = true;
        while (!stopping_.load(std::memory_order_relaxed)) {
            const sf_count_t read =
                sf_readf_float(file_.get(), buffer.data(), AudioFileInputBackend::bufferFrames);
            if (read <= 0) {
                // End of the file: loop, unless a whole pass gave nothing (unreadable data).
                if (emptyPass || sf_seek(file_.get(), 0, SEEK_SET) < 0) {
                    running_.store(false);
                    if (changed)
                        changed();
                    return;
                }
                emptyPass = true;
                continue;
            }
            emptyPass = false;
            framesDelivered += static_cast<std::uint64_t>(read);
            const auto due = start + std::chrono::nanoseconds(static_cast<std::int64_t>(
                                         double(framesDelivered) * 1e9 / info_.samplerate));
            std::this_thread::sleep_until(due);
            if (stopping_.load(std::memory_order_relaxed))
                break;
            const AudioBuffer list{channels, buffer.data()};
            receiver(AudioBufferListView(&list, 1), static_cast<std::uint32_t>(read));
        }
    }

    SndfileHandle file_;
    SF_INFO info_;
    std::thread thread_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> running_{false};
};

} // namespace

AudioFileInputBackend::AudioFileInputBackend(std::filesystem::path path) : path_(std::move(path)) {}

std::unique_ptr<AudioInputStream>
AudioFileInputBackend::openStream(const std::optional<std::string>&) {
    SF_INFO info{};
    SndfileHandle file(sf_open(path_.c_str(), SFM_READ, &info));
    if (!file)
        throw AudioInputException("Audio file could not be read (" + path_.string() +
                                  "): " + sf_strerror(nullptr));
    if (info.samplerate < 1 || info.channels < 1)
        throw AudioInputException("Audio file has no audio (" + path_.string() + ")");
    return std::make_unique<AudioFileInputStream>(std::move(file), info);
}

} // namespace kelvo
