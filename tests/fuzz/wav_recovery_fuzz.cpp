// Side files and WAV parts left by a crash are outside data: decode any side-file text, and
// repair any bytes as a part, checking the repaired file is a whole number of frames with a
// header that says so.
#include "../support/FileBytes.h"
#include "../support/TemporaryDirectory.h"
#include "Audio/Recording/WAVRecordingFile.h"
#include "FuzzTarget.h"

#include <filesystem>

KELVO_FUZZ_TARGET(input) {
    (void)WAVRecoveryMetadata::decode(std::string(input));
    if (input.empty())
        return;

    static const test::TemporaryDirectory folder;
    const int channels = 1 + std::uint8_t(input[0]) % 6;
    const std::string name = "2026-01-01_00-00-00.wav";
    const auto wav = folder / name;
    const std::string part(input.substr(1));
    test::writeText(wav, part);
    test::writeText(WAVRecordingFile::recoveryURLFor(wav),
                    WAVRecoveryMetadata{name, 48000, channels}.encode());
    WAVRecordingFile::recoverInterrupted(folder.path());

    const auto repaired = test::readBytes(wav);
    if (part.size() < 44) {
        require(repaired.size() == part.size()); // too short to be a part: left as it was
        return;
    }
    require(repaired.size() >= 44);
    const std::uint32_t dataBytes = test::u32At(repaired, 40);
    require(dataBytes % (3u * channels) == 0 && repaired.size() == 44 + dataBytes + dataBytes % 2 &&
            test::u32At(repaired, 4) == dataBytes + 36 + dataBytes % 2 &&
            std::string(repaired.begin(), repaired.begin() + 4) == "RIFF");
    require(!std::filesystem::exists(WAVRecordingFile::recoveryURLFor(wav)));
}
