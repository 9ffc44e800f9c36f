#include "testmusic/WavWriter.h"

#include <sndfile.h>

#include <cstdio>

namespace kelvo::test {

std::string writeMonoWav(const std::string& path, std::span<const float> samples, int sampleRate) {
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) {
        return "cannot write " + path + ": " + sf_strerror(nullptr);
    }
    const auto count = static_cast<sf_count_t>(samples.size());
    const sf_count_t written = sf_writef_float(file, samples.data(), count);
    std::string error = written == count ? "" : "short write to " + path;
    if (sf_close(file) != 0 && error.empty()) {
        error = "cannot close " + path;
    }
    return error;
}

std::string writeTextFile(const std::string& path, const std::string& text) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return "cannot write " + path;
    }
    const bool ok = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && ok ? "" : "cannot write " + path;
}

} // namespace kelvo::test
