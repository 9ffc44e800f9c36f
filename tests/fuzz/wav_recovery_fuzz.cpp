// Side files and WAV parts left by a crash are outside data: decode any side-file text, and
// repair any bytes as a part, checking the repaired file is a whole number of frames with a
// header that says so.
#include "Audio/Recording/WAVRecordingFile.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

const std::filesystem::path& folder() {
    static const std::filesystem::path path = [] {
        std::string pattern = "/tmp/kelvo-fuzz-XXXXXX";
        if (!::mkdtemp(pattern.data()))
            std::abort();
        return std::filesystem::path(pattern);
    }();
    return path;
}

std::uint32_t u32At(const std::string& b, std::size_t offset) {
    return std::uint32_t(std::uint8_t(b[offset])) |
           std::uint32_t(std::uint8_t(b[offset + 1])) << 8 |
           std::uint32_t(std::uint8_t(b[offset + 2])) << 16 |
           std::uint32_t(std::uint8_t(b[offset + 3])) << 24;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    (void)kelvo::WAVRecoveryMetadata::decode(text);
    if (size < 1)
        return 0;

    const int channels = 1 + data[0] % 6;
    const std::string name = "2026-01-01_00-00-00.wav";
    const auto wav = folder() / name;
    {
        std::ofstream out(wav, std::ios::binary | std::ios::trunc);
        out.write(text.data() + 1, static_cast<std::streamsize>(size - 1));
    }
    {
        std::ofstream out(kelvo::WAVRecordingFile::recoveryURLFor(wav), std::ios::trunc);
        out << kelvo::WAVRecoveryMetadata{name, 48000, channels}.encode();
    }
    kelvo::WAVRecordingFile::recoverInterrupted(folder());

    std::ifstream in(wav, std::ios::binary);
    const std::string repaired((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    if (size - 1 < 44) {
        if (repaired.size() != size - 1)
            std::abort(); // too short to be a part: left as it was
        return 0;
    }
    const std::uint32_t dataBytes = u32At(repaired, 40);
    if (dataBytes % (3u * channels) != 0 || repaired.size() != 44 + dataBytes + dataBytes % 2 ||
        u32At(repaired, 4) != dataBytes + 36 + dataBytes % 2 || repaired.compare(0, 4, "RIFF") != 0)
        std::abort();
    if (std::filesystem::exists(kelvo::WAVRecordingFile::recoveryURLFor(wav)))
        std::abort();
    return 0;
}
