// Audio-thread cost per 512-frame buffer with what it allocates and the locks it takes, the hop
// hand-over to the main thread, and the WAV part append on the writer thread.
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
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <thread>

// Every heap allocation and every lock of this program is counted per thread, so the
// benchmarks can say what the audio thread does: `malloc` and friends (C++ `new` and Qt's own
// allocations alike); `pthread_mutex_lock`, tried first so that a lock held by another thread
// counts as a wait; and futex waits made through `syscall`, which is how Qt's own mutexes and
// wait conditions block.
namespace {
thread_local std::uint64_t heapAllocations = 0;
thread_local std::uint64_t locksTaken = 0;
thread_local std::uint64_t lockWaits = 0;
} // namespace

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);
int realMutexLock(pthread_mutex_t*);
int realMutexTryLock(pthread_mutex_t*);
__asm__(".symver realMutexLock, __pthread_mutex_lock@GLIBC_2.2.5");
__asm__(".symver realMutexTryLock, __pthread_mutex_trylock@GLIBC_2.2.5");

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
int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    ++locksTaken;
    if (realMutexTryLock(mutex) == 0)
        return 0;
    ++lockWaits;
    return realMutexLock(mutex);
}
long syscall(long number, ...) noexcept {
    va_list args;
    va_start(args, number);
    long a[6];
    for (long& arg : a)
        arg = va_arg(args, long);
    va_end(args);
    if (number == SYS_futex &&
        ((a[1] & FUTEX_CMD_MASK) == FUTEX_WAIT || (a[1] & FUTEX_CMD_MASK) == FUTEX_WAIT_BITSET))
        ++lockWaits;
    long result;
    register long r10 __asm__("r10") = a[3];
    register long r8 __asm__("r8") = a[4];
    register long r9 __asm__("r9") = a[5];
    __asm__ volatile("syscall"
                     : "=a"(result)
                     : "a"(number), "D"(a[0]), "S"(a[1]), "d"(a[2]), "r"(r10), "r"(r8), "r"(r9)
                     : "rcx", "r11", "memory");
    if (result < 0 && result > -4096) {
        errno = static_cast<int>(-result);
        return -1;
    }
    return result;
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

struct AudioThreadCounts {
    std::uint64_t buffers = 0, allocations = 0, locks = 0, waits = 0;
    template <typename Call> void measure(Call call) {
        const std::uint64_t a = heapAllocations, l = locksTaken, w = lockWaits;
        call();
        allocations += heapAllocations - a;
        locks += locksTaken - l;
        waits += lockWaits - w;
        ++buffers;
    }
    void report(benchmark::State& state) const {
        state.counters["allocations_per_buffer"] = double(allocations) / double(buffers);
        state.counters["locks_per_buffer"] = double(locks) / double(buffers);
        state.counters["lock_waits_per_buffer"] = double(waits) / double(buffers);
    }
};

// The capture callback itself, per 512-frame buffer while recording: the writer's copy into
// its ring, the mono mix, the hop cut, one spectrum and the hop into the run's ring. The main
// thread takes the hops now and then, and the writer thread empties its ring on its own.
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
    const RenderReceiver receiver = backend->last->receiver;
    const auto audio = signal(512, static_cast<std::size_t>(channels));
    const AudioBuffer buffer{static_cast<std::uint32_t>(channels), audio.data()};
    AudioThreadCounts counts;
    for (auto _ : state) {
        counts.measure([&] { receiver(AudioBufferListView(&buffer, 1), 512); });
        if (counts.buffers % 64 == 0) {
            state.PauseTiming();
            capture->takePendingHops();
            capture->recording().writer().waitUntilIdle();
            state.ResumeTiming();
        }
    }
    counts.report(state);
    capture->stop();
    capture.reset();
    std::filesystem::remove_all(folder);
}
BENCHMARK(BM_AudioThreadPerBuffer)->Arg(2)->Arg(16)->Unit(benchmark::kMicrosecond);

// The writer's part of the callback alone: the copy into its ring.
void BM_WriterHandOver(benchmark::State& state) {
    const auto channels = static_cast<std::uint32_t>(state.range(0));
    const auto folder = scratchFolder();
    AudioRecordingWriter writer;
    writer.start(48000, static_cast<int>(channels), folder, {});
    const auto audio = signal(512, channels);
    const AudioBuffer buffer{channels, audio.data()};
    AudioThreadCounts counts;
    for (auto _ : state) {
        counts.measure([&] { writer.capture(AudioBufferListView(&buffer, 1), 512, channels); });
        if (writer.pendingSamples() > AudioRecordingWriter::maximumPendingSamples / 2) {
            state.PauseTiming();
            writer.waitUntilIdle();
            state.ResumeTiming();
        }
    }
    counts.report(state);
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
    for (auto _ : state)
        chunker.pushMono(AudioBufferListView(&buffer, 1), 512,
                         [](const BandDecibelLevels& levels, std::span<const float> samples) {
                             benchmark::DoNotOptimize(levels);
                             benchmark::DoNotOptimize(samples.data());
                         });
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

/// A capture stream on its own thread delivering 512-frame buffers at the real-time pace, one
/// hop each; buffer k's arrival time is kept in `arrivals[k]` (nanoseconds, steady clock).
class PacedStream : public AudioInputStream {
public:
    explicit PacedStream(std::vector<std::atomic<std::int64_t>>& arrivals) : arrivals_(arrivals) {}
    ~PacedStream() override { stop(); }
    CaptureFormat format() const override { return {48000, 2}; }
    void start(RenderReceiver receiver, std::function<void()>) override {
        running_ = true;
        thread_ = std::thread([this, receiver = std::move(receiver)] {
            const auto audio = signal(512, 2);
            const AudioBuffer buffer{2, audio.data()};
            auto due = std::chrono::steady_clock::now();
            for (std::size_t k = 0; running_ && k < arrivals_.size(); ++k) {
                arrivals_[k].store(std::chrono::steady_clock::now().time_since_epoch().count(),
                                   std::memory_order_relaxed);
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
    std::vector<std::atomic<std::int64_t>>& arrivals_;
    std::atomic<bool> running_{false};
    std::thread thread_;
};

class PacedBackend : public AudioInputBackend {
public:
    std::vector<std::atomic<std::int64_t>> arrivals = std::vector<std::atomic<std::int64_t>>(470);
    std::unique_ptr<AudioInputStream> openStream(const std::optional<std::string>&) override {
        return std::make_unique<PacedStream>(arrivals);
    }
};

void reportMicroseconds(benchmark::State& state, const std::string& name,
                        std::vector<double> values) {
    if (values.empty())
        return;
    std::sort(values.begin(), values.end());
    state.counters[name + "_median_us"] = values[values.size() / 2];
    state.counters[name + "_p99_us"] = values[values.size() * 99 / 100];
    state.counters[name + "_max_us"] = values.back();
}

/// Pops the newly readable hops and returns, for each, the time since its buffer arrived.
std::vector<double> takeAges(MicCapture& capture, PacedBackend& backend, std::size_t& taken) {
    std::vector<double> ages;
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    for (std::size_t n = capture.takePendingHops().size(); n > 0; --n, ++taken)
        ages.push_back(double(now - backend.arrivals[taken].load(std::memory_order_relaxed)) /
                       1000.0);
    return ages;
}

// Hop hand-over, at the real pace of 48 kHz: (a) from a buffer's arrival on the audio thread
// until its hop can be read on the main thread, which looks all the time; (b) the age of each
// hop when a 60 Hz timer on the main thread takes it, as the engine loop does.
void BM_HopHandOverDelay(benchmark::State& state) {
    application();
    auto backend = std::make_shared<PacedBackend>();
    MicCapture capture(backend);
    std::vector<double> visible, atTick;
    for (auto _ : state) {
        std::size_t taken = 0;
        capture.start(std::nullopt, std::nullopt);
        while (taken < backend->arrivals.size()) {
            for (double age : takeAges(capture, *backend, taken))
                visible.push_back(age);
            std::this_thread::yield();
        }
        capture.stop();

        taken = 0;
        capture.start(std::nullopt, std::nullopt);
        QTimer engineLoop;
        engineLoop.setTimerType(Qt::PreciseTimer);
        engineLoop.setInterval(16);
        QEventLoop loop;
        QObject::connect(&engineLoop, &QTimer::timeout, [&] {
            for (double age : takeAges(capture, *backend, taken))
                atTick.push_back(age);
            if (taken >= backend->arrivals.size())
                loop.quit();
        });
        engineLoop.start();
        loop.exec();
        capture.stop();
    }
    state.counters["hops"] = static_cast<double>(visible.size());
    reportMicroseconds(state, "visible", visible);
    reportMicroseconds(state, "at_tick", atTick);
}
BENCHMARK(BM_HopHandOverDelay)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
