#pragma once

#include <sndfile.hh>

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
    SndfileHandle file(path.c_str());
    if (!file.rawHandle())
        return {};
    SoundFile sound{file.frames(), file.channels(), file.samplerate(), file.format(),
                    std::vector<float>(std::size_t(file.frames() * file.channels()))};
    file.readf(sound.samples.data(), file.frames());
    return sound;
}

/// Writes interleaved samples in `format` (e.g. SF_FORMAT_WAV | SF_FORMAT_FLOAT); false on failure.
inline bool writeSoundFile(const std::filesystem::path& path, const std::vector<float>& samples,
                           int sampleRate, int channels, int format) {
    SndfileHandle file(path.c_str(), SFM_WRITE, format, channels, sampleRate);
    const auto frames = sf_count_t(samples.size()) / channels;
    return file.rawHandle() && file.writef(samples.data(), frames) == frames;
}

} // namespace kelvo::test
