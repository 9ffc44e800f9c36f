#pragma once

#include "Audio/Capture/AudioInputStream.h"

#include <filesystem>

namespace kelvo {

/// Plays a WAV/FLAC (anything libsndfile reads) as the audio input, in real time and in a
/// loop, for rehearsal without a venue, demos and tests. Selected in place of a device; the
/// device UID asked for is ignored.
class AudioFileInputBackend : public AudioInputBackend {
public:
    static constexpr std::uint32_t bufferFrames = 512;

    explicit AudioFileInputBackend(std::filesystem::path path);
    /// Throws `AudioInputException` when the file cannot be read.
    std::unique_ptr<AudioInputStream>
    openStream(const std::optional<std::string>& deviceUID) override;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace kelvo
