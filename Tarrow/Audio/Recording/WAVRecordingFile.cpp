#include "Audio/Recording/WAVRecordingFile.h"

#include "Audio/Recording/RecordingError.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kelvo {

namespace {

[[noreturn]] void throwErrno(int code) {
    throw RecordingFileError(code, std::strerror(code));
}

void putU32(std::uint8_t* out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

void putU16(std::uint8_t* out, std::uint16_t v) {
    out[0] = static_cast<std::uint8_t>(v);
    out[1] = static_cast<std::uint8_t>(v >> 8);
}

void writeAllAt(int fd, std::int64_t offset, const void* data, std::size_t size) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    while (size > 0) {
        const ssize_t written = ::pwrite(fd, bytes, size, static_cast<off_t>(offset));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            throwErrno(errno);
        }
        if (written == 0)
            throwErrno(EIO);
        bytes += written;
        size -= static_cast<std::size_t>(written);
        offset += written;
    }
}

void fsyncOrThrow(int fd) {
    if (::fsync(fd) != 0)
        throwErrno(errno);
}

// Makes a file's creation, renaming or removal in `folder` durable, not only its contents.
void syncFolder(const std::filesystem::path& folder) {
    const int fd =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        throwErrno(errno);
    const int result = ::fsync(fd);
    const int code = errno;
    ::close(fd);
    if (result != 0)
        throwErrno(code);
}

// Opens an existing regular file for recovery: never through a symbolic link, and never a
// FIFO or device, which could block or be something else entirely.
int openRegularFile(const std::filesystem::path& path, int access) {
    const int fd = ::open(path.c_str(), access | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return -1;
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        errno = EINVAL;
        return -1;
    }
    return fd;
}

// Temporary file, flushed, then renamed over the target: a reader sees the old file or
// the complete new one, never a torn one.
void writeFileAtomically(const std::filesystem::path& target, const std::string& contents) {
    std::filesystem::path temporary = target;
    temporary += ".tmp";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        throwErrno(errno);
    try {
        writeAllAt(fd, 0, contents.data(), contents.size());
        fsyncOrThrow(fd);
    } catch (...) {
        ::close(fd);
        ::unlink(temporary.c_str());
        throw;
    }
    ::close(fd);
    if (::rename(temporary.c_str(), target.c_str()) != 0) {
        const int code = errno;
        ::unlink(temporary.c_str());
        throwErrno(code);
    }
}

bool isDigits(std::string_view s) {
    if (s.empty())
        return false;
    for (char c : s)
        if (c < '0' || c > '9')
            return false;
    return true;
}

// "yyyy-MM-dd_HH-mm-ss"
bool isStamp(std::string_view s) {
    if (s.size() != 19)
        return false;
    static constexpr std::string_view pattern = "dddd-dd-dd_dd-dd-dd";
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == 'd' ? !isDigits(s.substr(i, 1)) : s[i] != pattern[i])
            return false;
    }
    return true;
}

constexpr std::string_view wavSuffix = ".wav";
constexpr std::string_view recoverySuffix = ".recovery.json";

} // namespace

std::string WAVRecoveryMetadata::encode() const {
    nlohmann::ordered_json json;
    json["fileName"] = fileName;
    json["sampleRate"] = sampleRate;
    json["channels"] = channels;
    return json.dump();
}

std::optional<WAVRecoveryMetadata> WAVRecoveryMetadata::decode(std::string_view text) {
    const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
    if (!json.is_object())
        return std::nullopt;
    const auto name = json.find("fileName");
    const auto rate = json.find("sampleRate");
    const auto channels = json.find("channels");
    if (name == json.end() || !name->is_string() || rate == json.end() ||
        !rate->is_number_integer() || channels == json.end() || !channels->is_number_integer())
        return std::nullopt;
    const auto rateValue = rate->get<std::int64_t>();
    const auto channelValue = channels->get<std::int64_t>();
    if (rateValue < 1 || rateValue > 2147483647 || channelValue < 1 ||
        channelValue > WAVRecordingFile::maximumChannels)
        return std::nullopt;
    return WAVRecoveryMetadata{name->get<std::string>(), static_cast<int>(rateValue),
                               static_cast<int>(channelValue)};
}

double WAVRecordingFile::systemUptime() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::filesystem::path WAVRecordingFile::recoveryURLFor(const std::filesystem::path& url) {
    return url.parent_path() / ("." + url.filename().string() + std::string(recoverySuffix));
}

std::int32_t WAVRecordingFile::sampleCode(float x) {
    if (!std::isfinite(x))
        return 0;
    const double clamped = std::clamp(static_cast<double>(x), -1.0, 1.0);
    // std::lround rounds halves away from zero.
    return static_cast<std::int32_t>(std::lround(clamped * fullScale));
}

std::array<std::uint8_t, WAVRecordingFile::headerSize>
WAVRecordingFile::header(std::int64_t dataBytes, int sampleRate, int channels) {
    std::array<std::uint8_t, headerSize> h{};
    const auto data = static_cast<std::uint32_t>(dataBytes);
    const std::uint32_t riff = static_cast<std::uint32_t>(dataBytes + 36 + (dataBytes % 2));
    const auto frameBytes = static_cast<std::uint32_t>(channels) * 3;
    std::memcpy(h.data(), "RIFF", 4);
    putU32(h.data() + 4, riff);
    std::memcpy(h.data() + 8, "WAVE", 4);
    std::memcpy(h.data() + 12, "fmt ", 4);
    putU32(h.data() + 16, 16);
    putU16(h.data() + 20, 1);
    putU16(h.data() + 22, static_cast<std::uint16_t>(channels));
    putU32(h.data() + 24, static_cast<std::uint32_t>(sampleRate));
    putU32(h.data() + 28, static_cast<std::uint32_t>(sampleRate) * frameBytes);
    putU16(h.data() + 32, static_cast<std::uint16_t>(frameBytes));
    putU16(h.data() + 34, 24);
    std::memcpy(h.data() + 36, "data", 4);
    putU32(h.data() + 40, data);
    return h;
}

WAVRecordingFile::WAVRecordingFile(std::filesystem::path url, int sampleRate, int channels,
                                   UptimeClock uptime)
    : url_(std::move(url)), recoveryURL_(recoveryURLFor(url_)), sampleRate_(sampleRate),
      channels_(channels), uptime_(uptime ? std::move(uptime) : UptimeClock(&systemUptime)) {
    if (channels < 1 || channels > maximumChannels || sampleRate < 1 ||
        static_cast<std::int64_t>(sampleRate) * channels > maximumRateTimesChannels)
        throw RecordingFileError(0, std::string(description(RecordingError::invalidFormat)));
    fd_ = ::open(url_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd_ < 0)
        throwErrno(errno);
    // Held while the part is written, so another bridge's recovery leaves a live part alone;
    // it ends with the process, so a crashed part is free to repair. A filesystem without
    // locks only loses that guard.
    ::flock(fd_, LOCK_EX | LOCK_NB);
    try {
        checkpoint(false);
        writeFileAtomically(
            recoveryURL_,
            WAVRecoveryMetadata{url_.filename().string(), sampleRate, channels}.encode());
        // The part and its side file survive a power cut from here on.
        syncFolder(url_.parent_path());
    } catch (...) {
        ::close(fd_);
        fd_ = -1;
        throw;
    }
    lastSync_ = uptime_();
}

WAVRecordingFile::~WAVRecordingFile() {
    if (!closed_) {
        try {
            close();
        } catch (const RecordingFileError&) {
            // Already reported through the failing append; the side file lets recovery finish.
        }
    }
    if (fd_ >= 0)
        ::close(fd_);
}

std::int64_t WAVRecordingFile::dataBytes() const {
    return frames_ * channels_ * 3;
}

void WAVRecordingFile::writeAt(std::int64_t offset, const void* data, std::size_t size) {
    writeAllAt(fd_, offset, data, size);
}

void WAVRecordingFile::append(std::span<const float> interleaved) {
    if (closed_)
        return;
    const std::int64_t newFrames = static_cast<std::int64_t>(interleaved.size()) / channels_;
    if (newFrames == 0)
        return;
    const std::int64_t bytes = newFrames * channels_ * 3;
    if (dataBytes() + bytes > maximumPartDataBytes)
        throw RecordingFileError(EFBIG, std::strerror(EFBIG));
    std::vector<std::uint8_t> converted(static_cast<std::size_t>(bytes));
    std::uint8_t* out = converted.data();
    for (std::int64_t i = 0; i < newFrames * channels_; ++i) {
        const auto code = static_cast<std::uint32_t>(sampleCode(interleaved[i]));
        *out++ = static_cast<std::uint8_t>(code);
        *out++ = static_cast<std::uint8_t>(code >> 8);
        *out++ = static_cast<std::uint8_t>(code >> 16);
    }
    writeAt(static_cast<std::int64_t>(headerSize) + dataBytes(), converted.data(),
            converted.size());
    frames_ += newFrames;
    checkpoint(uptime_() - lastSync_ >= syncIntervalSeconds);
}

void WAVRecordingFile::checkpoint(bool sync) {
    const std::int64_t data = dataBytes();
    if (data % 2 != 0) {
        const std::uint8_t pad = 0;
        writeAt(static_cast<std::int64_t>(headerSize) + data, &pad, 1);
    }
    const auto h = header(data, sampleRate_, channels_);
    writeAt(0, h.data(), h.size());
    if (sync) {
        fsyncOrThrow(fd_);
        lastSync_ = uptime_();
    }
}

void WAVRecordingFile::close() {
    if (closed_)
        return;
    checkpoint(true);
    closed_ = true;
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0)
        throwErrno(errno);
    if (::unlink(recoveryURL_.c_str()) != 0 && errno != ENOENT)
        throwErrno(errno);
    syncFolder(url_.parent_path());
}

bool WAVRecordingFile::isRecordingFileName(std::string_view name) {
    if (name.size() <= wavSuffix.size() || !name.ends_with(wavSuffix))
        return false;
    if (name.find('/') != std::string_view::npos || name.find('\0') != std::string_view::npos)
        return false;
    const std::string_view stem = name.substr(0, name.size() - wavSuffix.size());
    if (stem.starts_with("REC_") || stem.starts_with("Kelvo"))
        return true;
    if (isStamp(stem))
        return true;
    return stem.size() == 26 && isStamp(stem.substr(0, 19)) && stem[19] == '.' &&
           isDigits(stem.substr(20));
}

namespace {

/// False when the part is still being written by a running recording.
bool repairPart(const std::filesystem::path& wav, int channels, int sampleRate) {
    const int fd = openRegularFile(wav, O_WRONLY);
    if (fd < 0)
        throwErrno(errno);
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{fd};
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return false;
    const off_t size = ::lseek(fd, 0, SEEK_END);
    if (size < 0)
        throwErrno(errno);
    // A full part ends with its pad byte at most; anything longer was not written by us.
    const std::int64_t payload = static_cast<std::int64_t>(size) - 44;
    if (size < 44 || payload > WAVRecordingFile::maximumPartDataBytes + 1)
        return true;
    const std::int64_t frameBytes = static_cast<std::int64_t>(channels) * 3;
    const std::int64_t data =
        std::min(payload, WAVRecordingFile::maximumPartDataBytes) / frameBytes * frameBytes;
    if (::ftruncate(fd, static_cast<off_t>(44 + data)) != 0)
        throwErrno(errno);
    if (data % 2 != 0) {
        const std::uint8_t pad = 0;
        writeAllAt(fd, 44 + data, &pad, 1);
    }
    const auto h = WAVRecordingFile::header(data, sampleRate, channels);
    writeAllAt(fd, 0, h.data(), h.size());
    fsyncOrThrow(fd);
    return true;
}

std::optional<std::string> readSmallFile(const std::filesystem::path& path) {
    const int fd = openRegularFile(path, O_RDONLY);
    if (fd < 0)
        return std::nullopt;
    std::string contents;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0 || contents.size() > 65536) {
            ::close(fd);
            if (n < 0 || contents.size() > 65536)
                return std::nullopt;
            return contents;
        }
        contents.append(buffer, static_cast<std::size_t>(n));
    }
}

} // namespace

void WAVRecordingFile::recoverInterrupted(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    if (error)
        return;
    for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
        if (error)
            return;
        const std::string name = it->path().filename().string();
        const std::string_view view = name;
        if (!view.starts_with(".") || !view.ends_with(".wav.recovery.json"))
            continue;
        const std::string_view wavName = view.substr(1, view.size() - 1 - recoverySuffix.size());
        if (!isRecordingFileName(wavName))
            continue;
        const std::optional<std::string> text = readSmallFile(it->path());
        if (!text)
            continue;
        const std::optional<WAVRecoveryMetadata> metadata = WAVRecoveryMetadata::decode(*text);
        if (!metadata || !isRecordingFileName(metadata->fileName))
            continue;
        try {
            if (!repairPart(folder / metadata->fileName, metadata->channels, metadata->sampleRate))
                continue;
        } catch (const RecordingFileError&) {
            continue;
        }
        if (::unlink(it->path().c_str()) == 0) {
            try {
                syncFolder(folder);
            } catch (const RecordingFileError&) {
                // The repair itself is on disk; at worst the side file comes back and the
                // next start repairs the part again.
            }
        }
    }
}

} // namespace kelvo
