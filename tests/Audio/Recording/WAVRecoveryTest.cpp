#include "Audio/Recording/WAVRecordingFile.h"

#include "support/FileBytes.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

namespace kelvo {
namespace {

using test::readBytes;
using test::TemporaryDirectory;
using test::u32At;
using test::writeBytes;
using test::writeText;

std::vector<std::uint8_t> staleWav(std::size_t payload) {
    const auto h = WAVRecordingFile::header(0, 48000, 2);
    std::vector<std::uint8_t> bytes(h.begin(), h.end());
    for (std::size_t i = 0; i < payload; ++i)
        bytes.push_back(static_cast<std::uint8_t>(i + 1));
    return bytes;
}

/// The side file a recording of `wavName` leaves, or `json` in its place.
void writeSideFile(const TemporaryDirectory& dir, const std::string& wavName,
                   const std::optional<std::string>& json = std::nullopt) {
    writeText(dir / ("." + wavName + ".recovery.json"),
              json.value_or(WAVRecoveryMetadata{wavName, 48000, 2}.encode()));
}

TEST(WAVRecovery, CutsATornFrameRestoresThePadByteAndRewritesTheHeader) {
    const struct {
        std::string name;
        int rate, channels;
        std::size_t payload, size;
        std::uint32_t dataSize;
        std::uint8_t last;
    } cases[] = {
        // Six stereo frames and two bytes of a seventh: the last whole frame is untouched.
        {"2026-11-14_21-30-05.wav", 48000, 2, 6 * 2 * 3 + 2, 80, 36, 36},
        // Three mono frames and a torn byte: odd data gets its pad byte back.
        {"REC_take.wav", 44100, 1, 3 * 3 + 1, 54, 9, 0},
    };
    for (const auto& c : cases) {
        TemporaryDirectory dir;
        writeBytes(dir / c.name, staleWav(c.payload));
        writeSideFile(dir, c.name, WAVRecoveryMetadata{c.name, c.rate, c.channels}.encode());

        WAVRecordingFile::recoverInterrupted(dir.path());

        const auto b = readBytes(dir / c.name);
        ASSERT_EQ(b.size(), c.size) << c.name;
        EXPECT_EQ(b.back(), c.last) << c.name;
        EXPECT_EQ(u32At(b, 40), c.dataSize) << c.name;
        EXPECT_EQ(u32At(b, 4), std::uint32_t(c.size - 8)) << c.name;
        EXPECT_EQ(u32At(b, 24), std::uint32_t(c.rate)) << c.name;
        EXPECT_FALSE(std::filesystem::exists(dir / ("." + c.name + ".recovery.json")));
    }
}

TEST(WAVRecovery, AFullPartOfManyChannelsIsRepairedToItsLastWholeFrame) {
    // Twelve channels outgrow a WAV within the hour: the part is cut at the largest whole
    // frame a header can describe, and its sparse stand-in here is that long.
    TemporaryDirectory dir;
    const std::string name = "2026-11-14_21-30-06.wav";
    const std::int64_t full = WAVRecordingFile::maximumPartDataBytes / 36 * 36;
    writeBytes(dir / name, staleWav(0));
    std::filesystem::resize_file(dir / name, static_cast<std::uintmax_t>(44 + full + 2));
    writeSideFile(dir, name, WAVRecoveryMetadata{name, 48000, 12}.encode());

    WAVRecordingFile::recoverInterrupted(dir.path());

    EXPECT_EQ(std::filesystem::file_size(dir / name), static_cast<std::uintmax_t>(44 + full));
    std::vector<std::uint8_t> head(44);
    std::ifstream(dir / name, std::ios::binary).read(reinterpret_cast<char*>(head.data()), 44);
    EXPECT_EQ(u32At(head, 40), std::uint32_t(full));
    EXPECT_EQ(u32At(head, 4), std::uint32_t(full + 36));
    EXPECT_FALSE(std::filesystem::exists(dir / ("." + name + ".recovery.json")));
}

TEST(WAVRecovery, LeavesEverythingElseAlone) {
    TemporaryDirectory dir;
    // Side file of a name this system never writes.
    writeBytes(dir / "song.wav", staleWav(5));
    writeSideFile(dir, "song.wav");
    // Undecodable side file.
    writeBytes(dir / "2026-01-01_00-00-00.wav", staleWav(5));
    writeSideFile(dir, "2026-01-01_00-00-00.wav", "{not json");
    // Metadata pointing outside the folder.
    writeSideFile(dir, "2026-01-01_00-00-01.wav",
                  WAVRecoveryMetadata{"../2026-01-01_00-00-01.wav", 48000, 2}.encode());
    // Shorter than a header: left as it is, side file removed.
    writeBytes(dir / "2026-01-01_00-00-03.wav", {1, 2, 3});
    writeSideFile(dir, "2026-01-01_00-00-03.wav");

    // A WAV that is a symbolic link (to a file outside), and a side file that is one.
    TemporaryDirectory outside;
    writeBytes(outside / "victim", staleWav(5));
    std::filesystem::create_symlink(outside / "victim", dir / "2026-01-01_00-00-04.wav");
    writeSideFile(dir, "2026-01-01_00-00-04.wav");
    writeBytes(dir / "2026-01-01_00-00-05.wav", staleWav(5));
    writeText(outside / "side", WAVRecoveryMetadata{"2026-01-01_00-00-05.wav", 48000, 2}.encode());
    std::filesystem::create_symlink(outside / "side",
                                    dir / ".2026-01-01_00-00-05.wav.recovery.json");

    // A part another recording is still writing.
    WAVRecordingFile live(dir / "2026-01-01_00-00-06.wav", 48000, 2);
    live.append(std::vector<float>(4, 0.5f));

    WAVRecordingFile::recoverInterrupted(dir.path());

    EXPECT_EQ(readBytes(dir / "2026-01-01_00-00-06.wav").size(), 44u + 12u);
    EXPECT_TRUE(std::filesystem::exists(dir / ".2026-01-01_00-00-06.wav.recovery.json"));
    EXPECT_EQ(readBytes(outside / "victim").size(), 49u);
    EXPECT_EQ(readBytes(dir / "2026-01-01_00-00-05.wav").size(), 49u);
    EXPECT_EQ(readBytes(dir / "song.wav").size(), 49u);
    EXPECT_TRUE(std::filesystem::exists(dir / ".song.wav.recovery.json"));
    EXPECT_EQ(readBytes(dir / "2026-01-01_00-00-00.wav").size(), 49u);
    EXPECT_TRUE(std::filesystem::exists(dir / ".2026-01-01_00-00-00.wav.recovery.json"));
    EXPECT_TRUE(std::filesystem::exists(dir / ".2026-01-01_00-00-01.wav.recovery.json"));
    EXPECT_EQ(readBytes(dir / "2026-01-01_00-00-03.wav").size(), 3u);
    EXPECT_FALSE(std::filesystem::exists(dir / ".2026-01-01_00-00-03.wav.recovery.json"));
}

} // namespace
} // namespace kelvo
