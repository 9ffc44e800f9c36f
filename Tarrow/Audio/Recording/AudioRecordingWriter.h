#pragma once

#include "Audio/AudioBufferListView.h"
#include "Audio/Recording/WAVRecordingFile.h"
#include "Support/SerialQueue.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// Moves captured audio from the audio thread to disk without ever blocking the audio
/// thread: `capture` copies the buffer and queues it; the "Kelvo.wav-writer" thread writes it
/// into hourly `WAVRecordingFile` parts. At most `maximumPendingSamples` may wait for the disk;
/// beyond that the recording stops and keeps what was written.
class AudioRecordingWriter {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    /// Told once, on the writer thread, with the text of the error that stopped the recording.
    using FailureHandler = std::function<void(const std::string&)>;

    static constexpr std::int64_t maximumPendingSamples = 4000000;
    static constexpr double defaultSegmentSeconds = 3600;
    static constexpr const char* queueLabel = "Kelvo.wav-writer";

    explicit AudioRecordingWriter(double segmentSeconds = defaultSegmentSeconds, Clock now = {});
    /// Closes the current part after writing everything queued.
    ~AudioRecordingWriter();
    AudioRecordingWriter(const AudioRecordingWriter&) = delete;
    AudioRecordingWriter& operator=(const AudioRecordingWriter&) = delete;

    /// Repairs interrupted parts in `directory`, opens the first part and accepts audio.
    /// Returns the first part's location; throws `RecordingFileError` when it cannot be opened.
    std::filesystem::path start(int sampleRate, int channels,
                                const std::filesystem::path& directory, FailureHandler failure);
    /// Audio thread: copies the first `channels` channels of the buffer list, interleaved, and
    /// queues them for the disk. Never blocks on the disk.
    void capture(AudioBufferListView list, std::uint32_t frames, std::uint32_t channels);
    /// Stops accepting audio; audio already queued is written, then the part is closed.
    void stop();

    /// Writer queue: writes interleaved samples, cutting parts at exactly `segmentFrames`.
    void append(std::span<const float> interleaved);
    /// Writer queue: stops the recording on the first error; later errors are ignored.
    void fail(const std::string& message);

    /// Waits until everything queued so far has been done.
    void waitUntilIdle();
    /// Runs on the writer thread before each queued append (tests hold the disk with it).
    void setBeforeAppendHook(std::function<void()> hook);

    bool accepting() const;
    std::int64_t pendingSamples() const;
    /// Writer-queue state, read through the queue.
    std::optional<std::string> firstError();
    std::int64_t segmentFrames() const { return segmentFrames_; }
    /// Frames per part: the segment length at the sample rate, or fewer when that many
    /// frames would not fit in one WAV file.
    static std::int64_t segmentFramesFor(double segmentSeconds, int sampleRate, int channels);
    const SerialQueue& queue() const { return queue_; }

private:
    /// One buffer's copy on its way to the disk. Blocks are recycled, so after the first few
    /// buffers the copy allocates nothing and the queued task holds only two pointers, which
    /// `std::function` keeps in place; what remains is the queue's own node, one per 16 tasks.
    struct PendingBlock {
        std::vector<float> samples;
        std::int64_t count = 0;
    };

    void openNextPart();
    void closePartIgnoringErrors();
    /// Writer queue: writes a block handed over by `capture` (the task owns it).
    void writeBlock(PendingBlock* block);
    void finishPending(std::unique_ptr<PendingBlock> block);

    const double segmentSeconds_;
    const Clock now_;

    mutable std::mutex lock_;
    bool accepting_ = false;
    bool overloadReported_ = false;
    std::int64_t pendingSamples_ = 0;
    // Blocks already written, kept for reuse so the audio thread rarely allocates.
    std::vector<std::unique_ptr<PendingBlock>> spare_;
    static constexpr std::size_t maximumSpare = 64;

    // Writer queue only.
    std::unique_ptr<WAVRecordingFile> file_;
    std::filesystem::path directory_;
    int sampleRate_ = 0;
    int channels_ = 0;
    std::int64_t segmentFrames_ = 0;
    FailureHandler failure_;
    std::optional<std::string> firstError_;
    std::function<void()> beforeAppend_;

    SerialQueue queue_{queueLabel};
};

} // namespace kelvo
