#pragma once

#include "Audio/AudioBufferListView.h"
#include "Audio/Recording/WAVRecordingFile.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace kelvo {

/// Moves captured audio from the audio thread to disk without ever blocking the audio
/// thread: `capture` copies the buffer into a preallocated single-producer ring, taking no lock
/// and allocating nothing; the "Kelvo.wav-writer" thread empties the ring every few
/// milliseconds into hourly `WAVRecordingFile` parts. At most `maximumPendingSamples` may wait
/// for the disk; beyond that the recording stops and keeps what was written. Starting and
/// stopping never wait for the disk: the parts are opened and closed on the writer thread.
class AudioRecordingWriter {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    /// Told once, on the writer thread, with the text of the error that stopped the recording.
    using FailureHandler = std::function<void(const std::string&)>;
    /// How a start ended: the first part's location, or why it could not be opened.
    struct Started {
        std::filesystem::path firstFile;
        std::optional<std::string> error;
        bool operator==(const Started&) const = default;
    };
    /// Told once, on the writer thread, when the first part is open or cannot be.
    using StartedHandler = std::function<void(const Started&)>;

    static constexpr std::int64_t maximumPendingSamples = 4000000;
    static constexpr double defaultSegmentSeconds = 3600;
    static constexpr const char* queueLabel = "Kelvo.wav-writer";
    /// How often the writer thread empties the ring while recording.
    static constexpr std::chrono::milliseconds drainInterval{10};

    explicit AudioRecordingWriter(double segmentSeconds = defaultSegmentSeconds, Clock now = {});
    /// Closes the current part after writing everything queued.
    ~AudioRecordingWriter();
    AudioRecordingWriter(const AudioRecordingWriter&) = delete;
    AudioRecordingWriter& operator=(const AudioRecordingWriter&) = delete;

    /// Accepts audio from now on; on the writer thread, creates `directory`, repairs
    /// interrupted parts in it and opens the first part, then tells `started`. Audio captured
    /// meanwhile waits in the ring; when no part can be opened it is dropped.
    void start(int sampleRate, int channels, const std::filesystem::path& directory,
               FailureHandler failure, StartedHandler started = {});
    /// Audio thread: copies the first `channels` channels of the buffer list, interleaved, into
    /// the ring (missing channels as silence). Never blocks, locks or allocates.
    void capture(AudioBufferListView list, std::uint32_t frames, std::uint32_t channels);
    /// Stops accepting audio; audio already queued is written, then the part is closed. A
    /// failing close reaches the failure handler of the recording it ends.
    void stop();

    /// Writer thread: writes interleaved samples, cutting parts at exactly `segmentFrames`.
    void append(std::span<const float> interleaved);
    /// Writer thread: stops the recording on the first error; later errors are ignored.
    void fail(const std::string& message);

    /// Runs `task` on the writer thread, after what is queued so far.
    void async(std::function<void()> task);
    /// Runs `task` on the writer thread and waits for it; not from the writer thread.
    void sync(const std::function<void()>& task);
    /// Waits until everything captured or queued so far has been done.
    void waitUntilIdle();

    /// What a bounded finish came to.
    struct Finish {
        /// The writer thread closed the part in time (otherwise it is still busy with the disk).
        bool closed = true;
        /// Samples still queued when the time ran out, left unwritten.
        std::int64_t droppedSamples = 0;
        bool operator==(const Finish&) const = default;
    };
    /// At quit: stops accepting audio, writes what is queued for at most `writing`, drops the
    /// rest and closes the part; waits at most `writing + closing` for that. Not from the
    /// writer thread. When the part was not closed in time, the writer must not be destroyed
    /// (that would wait for the disk): the process ends with it.
    Finish finishWithin(std::chrono::milliseconds writing, std::chrono::milliseconds closing);
    /// Runs on the writer thread before each write of captured audio (tests hold the disk).
    void setBeforeAppendHook(std::function<void()> hook);

    bool accepting() const { return accepting_.load(std::memory_order_acquire) != 0; }
    /// Samples captured and not yet written.
    std::int64_t pendingSamples() const;
    /// Writer-thread state, read through the writer thread.
    std::optional<std::string> firstError();
    std::int64_t segmentFrames() const { return segmentFrames_; }
    /// Frames per part: the segment length at the sample rate, or fewer when that many
    /// frames would not fit in one WAV file.
    static std::int64_t segmentFramesFor(double segmentSeconds, int sampleRate, int channels);

private:
    // The ring holds `maximumPendingSamples` and more: a power of two, so positions wrap by mask.
    static constexpr std::size_t ringSamples = std::size_t{1} << 22;
    static_assert(ringSamples >= std::size_t(maximumPendingSamples));

    void run();
    /// Writer thread: writes what the ring holds before position `end` (or discards it after
    /// a failure); reports an overload once the audio before it is on disk.
    void drain(std::uint64_t end, bool overloaded);
    /// Not on the audio thread: waits out a copy that began while audio was accepted; the ring
    /// position then ends what was accepted.
    std::uint64_t settledHead() const;
    void openNextPart();
    void closePart();
    void closePartIgnoringErrors();

    const double segmentSeconds_;
    const Clock now_;

    // Ring shared with the audio thread. Memory orders: the audio thread writes samples, then
    // stores `ringHead_` with release; the writer loads it with acquire before reading them.
    // The writer stores `ringTail_` with release once the samples are written; the audio thread
    // loads it with acquire before reusing that space. `accepting_` and `producing_` are
    // sequentially consistent so that a stop waits out a copy begun before it: the audio thread
    // sets `producing_` then reads `accepting_`; a stop clears `accepting_` then reads
    // `producing_`, so one of them always sees the other. Each recording owns the ring from the
    // head at its start to the head at its stop; those positions travel with the writer tasks.
    std::unique_ptr<float[]> ring_;
    std::atomic<std::uint64_t> ringHead_{0};
    std::atomic<std::uint64_t> ringTail_{0};
    // The accepting recording's number; 0 while none accepts.
    std::atomic<std::uint64_t> accepting_{0};
    std::uint64_t lastRecording_ = 0; // the caller's thread
    std::atomic<bool> producing_{false};
    // Set by the audio thread when a buffer did not fit; the writer thread reports it.
    std::atomic<bool> overloaded_{false};
    // Steady-clock time (ns since its epoch) after which queued audio is dropped, not written.
    std::atomic<std::int64_t> giveUpAt_{INT64_MAX};
    std::atomic<std::int64_t> droppedSamples_{0};

    // Writer thread only.
    std::uint64_t recording_ = 0;
    std::unique_ptr<WAVRecordingFile> file_;
    std::filesystem::path directory_;
    int sampleRate_ = 0;
    int channels_ = 0;
    std::int64_t segmentFrames_ = 0;
    FailureHandler failure_;
    std::optional<std::string> firstError_;
    std::function<void()> beforeAppend_;
    std::vector<float> scratch_;

    // Tasks for the writer thread.
    std::mutex tasksMutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace kelvo
