#include "Audio/Recording/AudioRecordingWriter.h"

#include "Audio/Recording/RecordingError.h"
#include "Audio/Recording/RecordingPartNaming.h"
#include "Support/SerialQueue.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <future>
#include <pthread.h>

namespace kelvo {

namespace {

// A file size limit must end the recording with EFBIG, not kill the process with SIGXFSZ.
void ignoreFileSizeSignal() {
    static std::once_flag once;
    std::call_once(once, [] { std::signal(SIGXFSZ, SIG_IGN); });
}

// Writes go to disk in pieces of at most this many samples, so a backlog costs little memory.
constexpr std::size_t drainChunkSamples = 1 << 16;

} // namespace

AudioRecordingWriter::AudioRecordingWriter(double segmentSeconds, Clock now)
    : segmentSeconds_(segmentSeconds),
      now_(now ? std::move(now) : Clock([] { return std::chrono::system_clock::now(); })) {
    ignoreFileSizeSignal();
    thread_ = std::thread([this] { run(); });
}

AudioRecordingWriter::~AudioRecordingWriter() {
    stop();
    {
        std::lock_guard lock(tasksMutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

std::int64_t AudioRecordingWriter::segmentFramesFor(double segmentSeconds, int sampleRate,
                                                    int channels) {
    const auto wanted = std::max<std::int64_t>(
        1, static_cast<std::int64_t>(std::llround(segmentSeconds * sampleRate)));
    // An hour of many channels outgrows what a WAV header can describe (4 GiB); such parts
    // are cut early rather than lost.
    const std::int64_t frameBytes = std::max(channels, 1) * std::int64_t{3};
    return std::min(wanted, WAVRecordingFile::maximumPartDataBytes / frameBytes);
}

void AudioRecordingWriter::run() {
    ::pthread_setname_np(::pthread_self(), SerialQueue::threadName(queueLabel).c_str());
    std::unique_lock lock(tasksMutex_);
    for (;;) {
        // While recording, the ring is emptied on a short period: the audio thread never
        // wakes this thread, as waking it would take a lock.
        if (accepting())
            wake_.wait_for(lock, drainInterval, [this] { return stopping_ || !tasks_.empty(); });
        else
            wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
        std::deque<std::function<void()>> tasks = std::move(tasks_);
        tasks_.clear();
        const bool stopping = stopping_;
        // With no start or stop queued the ring holds only the open part's audio: a start
        // queues its task before it accepts audio. Otherwise the tasks say where parts end.
        std::optional<std::uint64_t> end;
        if (tasks.empty())
            end = ringHead_.load(std::memory_order_acquire);
        lock.unlock();
        if (end)
            drain(*end, overloaded_.load(std::memory_order_relaxed));
        for (std::function<void()>& task : tasks)
            task();
        tasks.clear(); // release captures outside the lock
        lock.lock();
        if (stopping && tasks_.empty())
            return;
    }
}

void AudioRecordingWriter::async(std::function<void()> task) {
    {
        std::lock_guard lock(tasksMutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

void AudioRecordingWriter::sync(const std::function<void()>& task) {
    runAndWait([this](std::function<void()> posted) { async(std::move(posted)); }, task);
}

std::uint64_t AudioRecordingWriter::settledHead() const {
    // A copy under way takes a few microseconds; none starts while nothing is accepted.
    while (producing_.load(std::memory_order_seq_cst))
        std::this_thread::yield();
    return ringHead_.load(std::memory_order_acquire);
}

void AudioRecordingWriter::start(int sampleRate, int channels,
                                 const std::filesystem::path& directory, FailureHandler failure,
                                 StartedHandler started) {
    accepting_.store(0, std::memory_order_seq_cst);
    const std::uint64_t from = settledHead();
    overloaded_.store(false, std::memory_order_relaxed);
    if (!ring_)
        ring_.reset(new float[ringSamples]);
    const std::uint64_t number = ++lastRecording_;
    async([this, from, number, sampleRate, channels, directory, failure = std::move(failure),
           started = std::move(started)]() mutable {
        closePartIgnoringErrors();
        ringTail_.store(from, std::memory_order_release);
        giveUpAt_ = INT64_MAX;
        droppedSamples_ = 0;
        firstError_.reset();
        failure_ = std::move(failure);
        recording_ = number;
        directory_ = directory;
        sampleRate_ = sampleRate;
        channels_ = channels;
        segmentFrames_ = segmentFramesFor(segmentSeconds_, sampleRate, channels);
        Started outcome;
        std::error_code folderError;
        std::filesystem::create_directories(directory, folderError);
        if (folderError) {
            outcome.error = folderError.message();
        } else {
            WAVRecordingFile::recoverInterrupted(directory);
            try {
                openNextPart();
                outcome.firstFile = file_->url();
            } catch (const RecordingFileError& e) {
                outcome.error = e.what();
            }
        }
        if (outcome.error) {
            // Told through `started`, not as a failure; what was captured meanwhile goes.
            std::uint64_t mine = number;
            accepting_.compare_exchange_strong(mine, 0, std::memory_order_seq_cst);
            firstError_ = outcome.error;
        }
        if (started)
            started(outcome);
    });
    // Queued first: until the task runs, the ring's new audio is not drained into an old part.
    accepting_.store(number, std::memory_order_seq_cst);
}

void AudioRecordingWriter::openNextPart() {
    const auto startTime = now_();
    try {
        file_ = std::make_unique<WAVRecordingFile>(
            directory_ / RecordingPartNaming::plainName(startTime), sampleRate_, channels_);
    } catch (const RecordingFileError& e) {
        if (e.code() != EEXIST)
            throw;
        file_ = std::make_unique<WAVRecordingFile>(
            directory_ / RecordingPartNaming::microsecondName(startTime), sampleRate_, channels_);
    }
}

void AudioRecordingWriter::closePart() {
    if (!file_)
        return;
    // Forgotten even when closing fails: a part is closed once.
    const std::unique_ptr<WAVRecordingFile> file = std::move(file_);
    file->close();
}

void AudioRecordingWriter::closePartIgnoringErrors() {
    const std::filesystem::path url = file_ ? file_->url() : std::filesystem::path();
    try {
        closePart();
    } catch (const RecordingFileError& e) {
        std::fprintf(stderr, "Kelvo.wav-writer: closing %s failed: %s\n", url.c_str(), e.what());
    }
}

void AudioRecordingWriter::capture(AudioBufferListView list, std::uint32_t frames,
                                   std::uint32_t channels) {
    producing_.store(true, std::memory_order_seq_cst);
    const std::uint64_t n = std::uint64_t{frames} * channels;
    if (n == 0 || accepting_.load(std::memory_order_seq_cst) == 0 ||
        overloaded_.load(std::memory_order_relaxed)) {
        producing_.store(false, std::memory_order_release);
        return;
    }
    const std::uint64_t head = ringHead_.load(std::memory_order_relaxed);
    if (head - ringTail_.load(std::memory_order_acquire) + n >
        std::uint64_t(maximumPendingSamples)) {
        // The disk is too far behind: this buffer is dropped and the writer stops the recording
        // once what came before is written.
        overloaded_.store(true, std::memory_order_relaxed);
        producing_.store(false, std::memory_order_release);
        return;
    }
    float* const ring = ring_.get();
    constexpr std::uint64_t mask = ringSamples - 1;
    std::uint32_t base = 0;
    for (const AudioBuffer& buffer : list) {
        if (base >= channels)
            break;
        if (!buffer.data)
            continue;
        const std::uint32_t stride = buffer.numberChannels;
        const std::uint32_t take = std::min(stride, channels - base);
        for (std::uint32_t f = 0; f < frames; ++f) {
            const float* in = buffer.data + static_cast<std::size_t>(f) * stride;
            const std::uint64_t out = head + std::uint64_t{f} * channels + base;
            for (std::uint32_t k = 0; k < take; ++k)
                ring[(out + k) & mask] = in[k];
        }
        base += stride;
    }
    // Channels the list does not have are recorded as silence.
    for (; base < channels; ++base)
        for (std::uint32_t f = 0; f < frames; ++f)
            ring[(head + std::uint64_t{f} * channels + base) & mask] = 0.0f;
    ringHead_.store(head + n, std::memory_order_release);
    producing_.store(false, std::memory_order_release);
}

void AudioRecordingWriter::drain(std::uint64_t end, bool overloaded) {
    const std::uint64_t tail = ringTail_.load(std::memory_order_relaxed);
    if (end <= tail && !overloaded)
        return;
    if (beforeAppend_ && !firstError_)
        beforeAppend_();
    const std::uint64_t head = end;
    constexpr std::uint64_t mask = ringSamples - 1;
    for (std::uint64_t from = tail; from < head;) {
        if (std::chrono::steady_clock::now().time_since_epoch().count() >= giveUpAt_.load()) {
            // Quitting and out of time: the rest stays unwritten, and is counted.
            droppedSamples_ += static_cast<std::int64_t>(head - from);
            ringTail_.store(head, std::memory_order_release);
            break;
        }
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(
            head - from, std::max<std::size_t>(drainChunkSamples / std::max(channels_, 1), 1) *
                             std::max(channels_, 1)));
        if (!firstError_) {
            // Copied out whole, so a frame that wraps round the ring's end stays one frame.
            scratch_.resize(count);
            for (std::size_t i = 0; i < count; ++i)
                scratch_[i] = ring_[(from + i) & mask];
            try {
                append(scratch_);
            } catch (const RecordingFileError& e) {
                fail(e.what());
            }
        }
        from += count;
        ringTail_.store(from, std::memory_order_release);
    }
    if (overloaded && !firstError_)
        fail(std::string(description(RecordingError::writerOverloaded)));
}

void AudioRecordingWriter::append(std::span<const float> interleaved) {
    if (!file_ || channels_ < 1)
        return;
    std::int64_t remainingFrames = static_cast<std::int64_t>(interleaved.size()) / channels_;
    std::size_t offset = 0;
    while (remainingFrames > 0) {
        if (file_->frames() >= segmentFrames_) {
            closePart();
            openNextPart();
        }
        const std::int64_t room = segmentFrames_ - file_->frames();
        const std::int64_t take = std::min(room, remainingFrames);
        const auto count = static_cast<std::size_t>(take * channels_);
        file_->append(interleaved.subspan(offset, count));
        offset += count;
        remainingFrames -= take;
    }
}

void AudioRecordingWriter::fail(const std::string& message) {
    if (firstError_)
        return;
    // Only this recording stops accepting: the next one may have started meanwhile.
    std::uint64_t mine = recording_;
    accepting_.compare_exchange_strong(mine, 0, std::memory_order_seq_cst);
    closePartIgnoringErrors();
    firstError_ = message;
    if (failure_)
        failure_(message);
}

void AudioRecordingWriter::stop() {
    accepting_.store(0, std::memory_order_seq_cst);
    const std::uint64_t end = settledHead();
    const bool overloaded = overloaded_.exchange(false, std::memory_order_relaxed);
    async([this, end, overloaded] {
        drain(end, overloaded);
        try {
            closePart();
        } catch (const RecordingFileError& e) {
            fail(e.what());
        }
    });
}

AudioRecordingWriter::Finish AudioRecordingWriter::finishWithin(std::chrono::milliseconds writing,
                                                                std::chrono::milliseconds closing) {
    stop();
    giveUpAt_ = (std::chrono::steady_clock::now() +
                 std::chrono::duration_cast<std::chrono::steady_clock::duration>(writing))
                    .time_since_epoch()
                    .count();
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> closed = done->get_future();
    async([done] { done->set_value(); });
    Finish finish;
    finish.closed = closed.wait_for(writing + closing) == std::future_status::ready;
    finish.droppedSamples = droppedSamples_.load();
    return finish;
}

void AudioRecordingWriter::waitUntilIdle() {
    const std::uint64_t end = ringHead_.load(std::memory_order_acquire);
    sync([this, end] { drain(end, overloaded_.load(std::memory_order_relaxed)); });
}

void AudioRecordingWriter::setBeforeAppendHook(std::function<void()> hook) {
    sync([&] { beforeAppend_ = std::move(hook); });
}

std::int64_t AudioRecordingWriter::pendingSamples() const {
    return static_cast<std::int64_t>(ringHead_.load(std::memory_order_acquire) -
                                     ringTail_.load(std::memory_order_acquire));
}

std::optional<std::string> AudioRecordingWriter::firstError() {
    std::optional<std::string> error;
    sync([&] { error = firstError_; });
    return error;
}

} // namespace kelvo
