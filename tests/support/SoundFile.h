#pragma once

#include <sndfile.h>

#include <filesystem>
#include <vector>

namespace kelvo::test {

/// A sound file as libsndfile reads it; `frames` is -1 when it cannot be opened.
struct SoundFile {
    sf_count_t frames = -1;
    int channels = 0;
    int sampleRate = 0;
    int format = 0;
    std::vector<float> samples; ///< interleaved
};

inline SoundFile readSoundFile(const std::filesystem::path& path) {
    SoundFile sound;
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file)
        return sound;
    sound = {info.frames, info.channels, info.samplerate, info.format, {}};
    sound.samples.resize(static_cast<std::size_t>(info.frames * info.channels));
    sf_readf_float(file, sound.samples.data(), info.frames);
    sf_close(file);
    return sound;
}

/// Writes interleaved samples in `format` (e.g. SF_FORMAT_WAV | SF_FORMAT_FLOAT); false on failure.
inline bool writeSoundFile(const std::filesystem::path& path, const std::vector<float>& samples,
                           int sampleRate, int channels, int format) {
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
        return false;
    sf_writef_float(file, samples.data(), static_cast<sf_count_t>(samples.size() / channels));
    return sf_close(file) == 0;
}

} // namespace kelvo::test
