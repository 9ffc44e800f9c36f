// Audio-thread cost per 512-frame buffer, the hop hand-over delay to the main thread, and
// the WAV part append on the writer thread.
#include "Audio/Capture/HopChunker.h"
#include "Audio/Capture/MicCapture.h"
#include "Audio/Recording/AudioRecordingWriter.h"
#include "Audio/Recording/WAVRecordingFile.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <mutex>
#include <thread>

namespace {

using namespace kelvo;

std::filesystem::path scratchFolder() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/kelvo-bench-XXXXXX";
    if (!::mkdtemp(pattern.data()))
        std::abort();
    return pattern;
}

std::vector<float> signal(std::size_t frames, std::size_t channels) {
    std::vector<float> out(frames * channels);
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<float>(0.3 * std::sin(0.013 * double(i)));
    return out;
}

// What the capture callback does per buffer while recording: the writer's copy and
// hand-over, the mono mix, the hop cut and one spectrum (512 frames = one hop).
void BM_AudioThreadPerBuffer(benchmark::State& state) {
    const auto channels = static_cast<std::uint32_t>(state.range(0));
    const auto folder = scratchFolder();
    AudioRecordingWriter writer;
    writer.start(48000, static_cast<int>(channels), folder, {});
    HopChunker chunker(std::make_unique<BandEnergyExtractor>(48000), 48000);
    const auto audio = signal(512, channels);
    const AudioBuffer buffer{channels, audio.data()};
    std::size_t n = 0;
    for (auto _ : state) {
        writer.capture(AudioBufferListView(&buffer, 1), 512, channels);
        auto hops = chunker.pushMono(AudioBufferListView(&buffer, 1), 512);
        benchmark::DoNotOptimize(hops);
        // Keep the disk ahead so the writer never refuses audio: the refusal is the cheap path.
        if (++n % 256 == 0) {
            state.PauseTiming();
            writer.waitUntilIdle();
            state.ResumeTiming();
        }
    }
    writer.stop();
    writer.waitUntilIdle();
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_AudioThreadPerBuffer)->Arg(2)->Arg(16)->Unit(benchmark::kMicrosecond);

// Chunker and extractor alone, for comparison.
void BM_HopChunkerPerBuffer(benchmark::State& state) {
    const auto channels = static_cast<std::uint32_t>(state.range(0));
    HopChunker chunker(std::make_unique<BandEnergyExtractor>(48000), 48000);
    const auto audio = signal(512, channels);
    const AudioBuffer buffer{channels, audio.data()};
    for (auto _ : state) {
        auto hops = chunker.pushMono(AudioBufferListView(&buffer, 1), 512);
        benchmark::DoNotOptimize(hops);
    }
}
BENCHMARK(BM_HopChunkerPerBuffer)->Arg(2)->Arg(16)->Unit(benchmark::kMicrosecond);

// One writer-thread append of 512 stereo frames to a WAV part (conversion, write, header).
void BM_WavPartAppend(benchmark::State& state) {
    const auto folder = scratchFolder();
    WAVRecordingFile file(folder / "2026-01-01_00-00-00.wav", 48000, 2);
    const auto audio = signal(512, 2);
    for (auto _ : state)
        file.append(audio);
    file.close();
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_WavPartAppend)->Unit(benchmark::kMicrosecond);

/// A capture stream on its own thread delivering 512-frame buffers at the real-time pace.
class PacedStream : public AudioInputStream {
public:
    explicit PacedStream(std::function<void()> beforeBuffer)
        : beforeBuffer_(std::move(beforeBuffer)) {}
    ~PacedStream() override { stop(); }
    CaptureFormat format() const override { return {48000, 2}; }
    void start(RenderReceiver receiver, std::function<void()>) override {
        running_ = true;
        thread_ = std::thread([this, receiver = std::move(receiver)] {
            const auto base = signal(512, 2);
            std::vector<float> audio(base.size());
            const AudioBuffer buffer{2, audio.data()};
            auto due = std::chrono::steady_clock::now();
            for (std::size_t k = 0; running_; ++k) {
                // A level that changes every buffer, so every hop is published as a change.
                const float gain = 1.0f + 0.01f * static_cast<float>(k % 50);
                std::transform(base.begin(), base.end(), audio.begin(),
                               [gain](float x) { return x * gain; });
                beforeBuffer_();
                receiver(AudioBufferListView(&buffer, 1), 512);
                due += std::chrono::microseconds(10667);
                std::this_thread::sleep_until(due);
            }
        });
    }
    void stop() override {
        running_ = false;
        if (thread_.joinable())
            thread_.join();
    }
    bool isRunning() const override { return running_; }

private:
    std::function<void()> beforeBuffer_;
    std::atomic<bool> running_{false};
    std::thread thread_;
};

class PacedBackend : public AudioInputBackend {
public:
    std::function<void()> beforeBuffer;
    std::unique_ptr<AudioInputStream> openStream(const std::optional<std::string>&) override {
        return std::make_unique<PacedStream>(beforeBuffer);
    }
};

// From a buffer's arrival on the audio thread to its hop in the main thread's queue, with a
// 60 Hz timer draining the queue as the engine loop does.
void BM_HopHandOverDelay(benchmark::State& state) {
    static int argc = 1;
    static char name[] = "bench";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);

    std::mutex mutex;
    std::deque<std::chrono::steady_clock::time_point> arrivals;
    std::vector<double> delays;
    auto backend = std::make_shared<PacedBackend>();
    backend->beforeBuffer = [&] {
        std::lock_guard lock(mutex);
        arrivals.push_back(std::chrono::steady_clock::now());
    };
    MicCapture capture(backend);
    QObject::connect(&capture, &MicCapture::bandLevelsChanged, [&] {
        const auto now = std::chrono::steady_clock::now();
        std::lock_guard lock(mutex);
        for (std::size_t i = 0; i < capture.pendingHops().size() && !arrivals.empty(); ++i) {
            delays.push_back(
                std::chrono::duration<double, std::micro>(now - arrivals.front()).count());
            arrivals.pop_front();
        }
        capture.pendingHops().clear();
    });
    QTimer engineLoop;
    engineLoop.setTimerType(Qt::PreciseTimer);
    engineLoop.setInterval(16);
    QObject::connect(&engineLoop, &QTimer::timeout, [&] { capture.takePendingHops(); });

    for (auto _ : state) {
        delays.clear();
        capture.start(std::nullopt, std::nullopt);
        engineLoop.start();
        QEventLoop loop;
        QTimer::singleShot(5000, &loop, &QEventLoop::quit);
        loop.exec();
        engineLoop.stop();
        capture.stop();
    }
    std::sort(delays.begin(), delays.end());
    if (!delays.empty()) {
        state.counters["hops"] = static_cast<double>(delays.size());
        state.counters["median_us"] = delays[delays.size() / 2];
        state.counters["p99_us"] = delays[delays.size() * 99 / 100];
        state.counters["max_us"] = delays.back();
    }
}
BENCHMARK(BM_HopHandOverDelay)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
