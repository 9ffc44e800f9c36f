// Audio-thread cost per 512-frame buffer, the hop hand-over delay to the main thread, and
// the WAV part append on the writer thread.
#include "Audio/Capture/HopChunker.h"
#include "Audio/Capture/MicCapture.h"
#include "Audio/Recording/AudioRecordingWriter.h"
#include "Audio/Recording/WAVRecordingFile.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
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

// Every heap allocation of this program (C++ `new` and Qt's own malloc alike) is counted per
// thread, so the benchmarks can say what the audio thread allocates.
namespace {
thread_local std::uint64_t heapAllocations = 0;
}
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);
void* malloc(std::size_t size) noexcept {
    ++heapAllocations;
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) noexcept {
    ++heapAllocations;
    return __libc_calloc(count, size);
}
void* realloc(void* pointer, std::size_t size) noexcept {
    ++heapAllocations;
    return __libc_realloc(pointer, size);
}
void free(void* pointer) noexcept {
    __libc_free(pointer);
}
}

namespace {

using namespace kelvo;

QCoreApplication& application() {
    static int argc = 1;
    static char name[] = "bench";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

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

/// A capture stream whose audio thread is the benchmark's: it keeps the capture's receiver.
class DirectStream : public AudioInputStream {
public:
    explicit DirectStream(int channels) : channels_(channels) {}
    CaptureFormat format() const override { return {48000, channels_}; }
    void start(RenderReceiver r, std::function<void()>) override { receiver = std::move(r); }
    void stop() override { receiver = nullptr; }
    bool isRunning() const override { return static_cast<bool>(receiver); }
    RenderReceiver receiver;

private:
    int channels_;
};

class DirectBackend : public AudioInputBackend {
public:
    explicit DirectBackend(int channels) : channels_(channels) {}
    DirectStream* last = nullptr;
    std::unique_ptr<AudioInputStream> openStream(const std::optional<std::string>&) override {
        auto stream = std::make_unique<DirectStream>(channels_);
        last = stream.get();
        return stream;
    }

private:
    int channels_;
};

// The capture callback itself, per 512-frame buffer while recording: the writer's copy and
// hand-over to "Kelvo.wav-writer", the mono mix, the hop cut, one spectrum and the queued
// hand-over of the hop to the capture's thread (here a second thread with an event loop,
// standing in for the main thread).
void BM_AudioThreadPerBuffer(benchmark::State& state) {
    application();
    const int channels = static_cast<int>(state.range(0));
    const auto folder = scratchFolder();
    auto backend = std::make_shared<DirectBackend>(channels);
    auto capture = std::make_unique<MicCapture>(backend);
    capture->start(std::nullopt, std::nullopt);
    capture->recording().start(48000, channels, folder);
    if (!capture->recording().isRecording() || !backend->last) {
        state.SkipWithError("recording did not start");
        return;
    }
    QThread mainThread;
    mainThread.start();
    capture->moveToThread(&mainThread);
    const RenderReceiver receiver = backend->last->receiver;
    AudioRecordingWriter& writer = capture->recording().writer();

    const auto audio = signal(512, static_cast<std::size_t>(channels));
    const AudioBuffer buffer{static_cast<std::uint32_t>(channels), audio.data()};
    std::uint64_t buffers = 0, allocations = 0;
    for (auto _ : state) {
        const std::uint64_t before = heapAllocations;
        receiver(AudioBufferListView(&buffer, 1), 512);
        allocations += heapAllocations - before;
        // At the real pace (a buffer every 10.7 ms) the writer is idle again, asleep, when the
        // next buffer comes: each hand-over wakes it and finds its spare block returned.
        state.PauseTiming();
        writer.waitUntilIdle();
        if (++buffers % 256 == 0)
            QMetaObject::invokeMethod(
                capture.get(), [&] { capture->takePendingHops(); }, Qt::BlockingQueuedConnection);
        state.ResumeTiming();
    }
    state.counters["allocations_per_buffer"] = double(allocations) / double(buffers);
    QMetaObject::invokeMethod(
        capture.get(),
        [&] {
            capture->stop();
            capture->moveToThread(application().thread());
        },
        Qt::BlockingQueuedConnection);
    mainThread.quit();
    mainThread.wait();
    capture.reset();
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_AudioThreadPerBuffer)->Arg(2)->Arg(16)->Unit(benchmark::kMicrosecond);

// The writer's part of the callback alone: the copy and the hand-over to its queue.
void BM_WriterHandOver(benchmark::State& state) {
    const auto channels = static_cast<std::uint32_t>(state.range(0));
    const auto folder = scratchFolder();
    AudioRecordingWriter writer;
    writer.start(48000, static_cast<int>(channels), folder, {});
    const auto audio = signal(512, channels);
    const AudioBuffer buffer{channels, audio.data()};
    std::uint64_t buffers = 0, allocations = 0;
    for (auto _ : state) {
        const std::uint64_t before = heapAllocations;
        writer.capture(AudioBufferListView(&buffer, 1), 512, channels);
        allocations += heapAllocations - before;
        ++buffers;
        state.PauseTiming();
        writer.waitUntilIdle();
        state.ResumeTiming();
    }
    state.counters["allocations_per_buffer"] = double(allocations) / double(buffers);
    writer.stop();
    writer.waitUntilIdle();
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_WriterHandOver)->Arg(2)->Arg(16)->Unit(benchmark::kMicrosecond);

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
    application();

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
