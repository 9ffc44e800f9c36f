#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kelvo {

/// A failed file operation of a recording, carrying the platform's description.
class RecordingFileError : public std::runtime_error {
public:
    RecordingFileError(int code, const std::string& description)
        : std::runtime_error(description), code_(code) {}
    /// errno of the failing call, 0 when the failure is not a system call's.
    int code() const { return code_; }

private:
    int code_;
};

/// The side file's contents: which WAV it describes and how to read its samples.
struct WAVRecoveryMetadata {
    std::string fileName;
    int sampleRate = 0;
    int channels = 0;

    std::string encode() const;
    /// Absent when the text is not a JSON object with these three fields of the right types.
    static std::optional<WAVRecoveryMetadata> decode(std::string_view json);

    friend bool operator==(const WAVRecoveryMetadata&, const WAVRecoveryMetadata&) = default;
};

/// One part of a recording: a 24-bit PCM WAV whose header is rewritten after every append,
/// so a file cut short by a crash or power loss still plays, plus a hidden side file that
/// marks it as unfinished until `close()`.
class WAVRecordingFile {
public:
    static constexpr std::size_t headerSize = 44;
    static constexpr std::int64_t maximumDataBytes = 4294967295;
    /// The most sample bytes a part may hold with its RIFF size (data + 36 + pad) in range.
    static constexpr std::int64_t maximumPartDataBytes = 4294967258;
    static constexpr int maximumChannels = 21845;
    static constexpr std::int64_t maximumRateTimesChannels = 1431655765;
    static constexpr std::int32_t fullScale = 8388607;
    static constexpr double syncIntervalSeconds = 1.0;

    using UptimeClock = std::function<double()>;

    /// Creates the file (it must not exist yet), writes the empty header and the side file.
    /// Throws `RecordingFileError`; an existing file fails with code EEXIST.
    WAVRecordingFile(std::filesystem::path url, int sampleRate, int channels,
                     UptimeClock uptime = {});
    ~WAVRecordingFile();
    WAVRecordingFile(const WAVRecordingFile&) = delete;
    WAVRecordingFile& operator=(const WAVRecordingFile&) = delete;

    /// Appends interleaved samples (whole frames); flushes to disk at most once a second.
    void append(std::span<const float> interleaved);
    /// Rewrites the header (and the pad byte) for the current length; flushes when `sync`.
    void checkpoint(bool sync);
    /// Final checkpoint with flush, closes the file and removes the side file.
    void close();

    const std::filesystem::path& url() const { return url_; }
    const std::filesystem::path& recoveryURL() const { return recoveryURL_; }
    std::int64_t frames() const { return frames_; }
    int sampleRate() const { return sampleRate_; }
    int channels() const { return channels_; }
    bool closed() const { return closed_; }

    /// The hidden side file of a part: "." + name + ".recovery.json" in the same folder.
    static std::filesystem::path recoveryURLFor(const std::filesystem::path& url);

    /// The 44-byte header for `dataBytes` of samples.
    static std::array<std::uint8_t, headerSize> header(std::int64_t dataBytes, int sampleRate,
                                                       int channels);
    /// One sample as the 24-bit code written to the file (±8388607, NaN and ±inf as 0).
    static std::int32_t sampleCode(float x);

    /// Repairs parts of interrupted recordings in `folder`: every side file left there names
    /// a WAV whose header is rewritten for the whole frames it holds. A part another running
    /// recording still writes is left alone. Never throws.
    static void recoverInterrupted(const std::filesystem::path& folder);

    /// True for names this system gives recordings: "yyyy-MM-dd_HH-mm-ss" with an optional
    /// ".dddddd" microsecond suffix, or the older "REC_…" and "Kelvo…"; always ending ".wav".
    static bool isRecordingFileName(std::string_view name);

    /// System uptime in seconds (CLOCK_MONOTONIC).
    static double systemUptime();

private:
    void writeAt(std::int64_t offset, const void* data, std::size_t size);
    std::int64_t dataBytes() const;

    std::filesystem::path url_;
    std::filesystem::path recoveryURL_;
    int sampleRate_;
    int channels_;
    int fd_ = -1;
    std::int64_t frames_ = 0;
    double lastSync_ = 0;
    bool closed_ = false;
    UptimeClock uptime_;
};

} // namespace kelvo
