#include "Audio/Recording/AudioRecordingWriter.h"

#include "Audio/Recording/RecordingError.h"
#include "Audio/Recording/RecordingPartNaming.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <vector>

namespace kelvo {

namespace {

// A file size limit must end the recording with EFBIG, not kill the process with SIGXFSZ.
void ignoreFileSizeSignal() {
    static std::once_flag once;
    std::call_once(once, [] { std::signal(SIGXFSZ, SIG_IGN); });
}

} // namespace

AudioRecordingWriter::AudioRecordingWriter(double segmentSeconds, Clock now)
    : segmentSeconds_(segmentSeconds),
      now_(now ? std::move(now) : Clock([] { return std::chrono::system_clock::now(); })) {
    ignoreFileSizeSignal();
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

AudioRecordingWriter::~AudioRecordingWriter() {
    stop();
    waitUntilIdle();
}

std::filesystem::path AudioRecordingWriter::start(int sampleRate, int channels,
                                                  const std::filesystem::path& directory,
                                                  FailureHandler failure) {
    std::filesystem::path first;
    std::optional<RecordingFileError> error;
    queue_.sync([&] {
        closePartIgnoringErrors();
        firstError_.reset();
        failure_ = std::move(failure);
        directory_ = directory;
        sampleRate_ = sampleRate;
        channels_ = channels;
        segmentFrames_ = segmentFramesFor(segmentSeconds_, sampleRate, channels);
        WAVRecordingFile::recoverInterrupted(directory);
        try {
            openNextPart();
            first = file_->url();
        } catch (const RecordingFileError& e) {
            error = e;
            return;
        }
        std::lock_guard lock(lock_);
        accepting_ = true;
        overloadReported_ = false;
    });
    if (error)
        throw *error;
    return first;
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

void AudioRecordingWriter::closePartIgnoringErrors() {
    if (!file_)
        return;
    try {
        file_->close();
    } catch (const RecordingFileError& e) {
        std::fprintf(stderr, "Kelvo.wav-writer: closing %s failed: %s\n", file_->url().c_str(),
                     e.what());
    }
    file_.reset();
}

void AudioRecordingWriter::capture(AudioBufferListView list, std::uint32_t frames,
                                   std::uint32_t channels) {
    std::unique_lock lock(lock_);
    if (!accepting_ || overloadReported_)
        return;
    const std::int64_t n = static_cast<std::int64_t>(frames) * channels;
    if (n == 0)
        return;
    if (pendingSamples_ + n > maximumPendingSamples) {
        overloadReported_ = true;
        lock.unlock();
        queue_.async([this] { fail(std::string(description(RecordingError::writerOverloaded))); });
        return;
    }
    pendingSamples_ += n;
    std::unique_ptr<PendingBlock> block;
    if (!spare_.empty()) {
        block = std::move(spare_.back());
        spare_.pop_back();
    }
    lock.unlock();

    if (!block)
        block = std::make_unique<PendingBlock>();
    block->count = n;
    std::vector<float>& samples = block->samples;
    samples.assign(static_cast<std::size_t>(n), 0.0f);
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
            float* out = samples.data() + static_cast<std::size_t>(f) * channels + base;
            for (std::uint32_t k = 0; k < take; ++k)
                out[k] = in[k];
        }
        base += stride;
    }

    // The queue runs every task it was given, so the block always comes back.
    queue_.async([this, raw = block.release()] { writeBlock(raw); });
}

void AudioRecordingWriter::writeBlock(PendingBlock* raw) {
    std::unique_ptr<PendingBlock> block(raw);
    if (beforeAppend_)
        beforeAppend_();
    if (!firstError_) {
        try {
            append(block->samples);
        } catch (const RecordingFileError& e) {
            fail(e.what());
        }
    }
    finishPending(std::move(block));
}

void AudioRecordingWriter::finishPending(std::unique_ptr<PendingBlock> block) {
    std::lock_guard lock(lock_);
    pendingSamples_ -= block->count;
    if (spare_.size() < maximumSpare)
        spare_.push_back(std::move(block));
}

void AudioRecordingWriter::append(std::span<const float> interleaved) {
    if (!file_ || channels_ < 1)
        return;
    std::int64_t remainingFrames = static_cast<std::int64_t>(interleaved.size()) / channels_;
    std::size_t offset = 0;
    while (remainingFrames > 0) {
        if (file_->frames() >= segmentFrames_) {
            file_->close();
            file_.reset();
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
    {
        std::lock_guard lock(lock_);
        accepting_ = false;
    }
    closePartIgnoringErrors();
    firstError_ = message;
    if (failure_)
        failure_(message);
}

void AudioRecordingWriter::stop() {
    {
        std::lock_guard lock(lock_);
        accepting_ = false;
    }
    queue_.async([this] {
        if (!file_)
            return;
        try {
            file_->close();
        } catch (const RecordingFileError& e) {
            fail(e.what());
        }
        file_.reset();
    });
}

void AudioRecordingWriter::waitUntilIdle() {
    queue_.sync([] {});
}

void AudioRecordingWriter::setBeforeAppendHook(std::function<void()> hook) {
    queue_.sync([&] { beforeAppend_ = std::move(hook); });
}

bool AudioRecordingWriter::accepting() const {
    std::lock_guard lock(lock_);
    return accepting_;
}

std::int64_t AudioRecordingWriter::pendingSamples() const {
    std::lock_guard lock(lock_);
    return pendingSamples_;
}

std::optional<std::string> AudioRecordingWriter::firstError() {
    std::optional<std::string> error;
    queue_.sync([&] { error = firstError_; });
    return error;
}

} // namespace kelvo
