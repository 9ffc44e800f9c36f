#include "Audio/Recording/WAVRecordingFile.h"

#include "support/FileBytes.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace kelvo {
namespace {

using test::readBytes;
using test::TemporaryDirectory;
using test::u32At;

TEST(WAVRecordingFileHeader, DescribesTwentyFourBitPcm) {
    const auto h = WAVRecordingFile::header(36, 48000, 2);
    EXPECT_EQ(std::vector<std::uint8_t>(h.begin(), h.end()),
              (std::vector<std::uint8_t>{
                  'R',  'I', 'F', 'F', 72, 0, 0,   0,   'W', 'A',  'V',  'E', 'f', 'm',  't',
                  ' ',  16,  0,   0,   0,  1, 0,   2,   0,   0x80, 0xBB, 0,   0,   0x00, 0x65,
                  0x04, 0,   6,   0,   24, 0, 'd', 'a', 't', 'a',  36,   0,   0,   0}));
}

TEST(WAVRecordingFileSamples, ClampRoundHalvesAwayFromZeroAndZeroTheNonFinite) {
    const float inf = std::numeric_limits<float>::infinity();
    const std::pair<float, std::int32_t> cases[] = {
        {1.0f, 8388607},   {-1.0f, -8388607},  {2.5f, 8388607}, {-7.0f, -8388607}, {0.5f, 4194304},
        {-0.5f, -4194304}, {std::nanf(""), 0}, {inf, 0},        {-inf, 0},
    };
    for (const auto& [x, code] : cases)
        EXPECT_EQ(WAVRecordingFile::sampleCode(x), code) << x;
}

TEST(WAVRecordingFileWrite, WritesTheSideFileThenAppendsSamplesKeepingTheHeaderAndPadByteRight) {
    TemporaryDirectory dir;
    WAVRecordingFile file(dir / "2026-11-14_21-30-05.wav", 48000, 1);
    // Written with the part, so an interrupted recording can be repaired (gone on close).
    EXPECT_EQ(test::readText(dir / ".2026-11-14_21-30-05.wav.recovery.json"),
              R"({"fileName":"2026-11-14_21-30-05.wav","sampleRate":48000,"channels":1})");
    const float samples[] = {1.0f, -1.0f, 0.5f, std::nanf("")};
    file.append(samples);
    auto b = readBytes(file.url());
    EXPECT_EQ(std::vector<std::uint8_t>(b.begin() + 44, b.end()),
              (std::vector<std::uint8_t>{0xFF, 0xFF, 0x7F, 0x01, 0x00, 0x80, 0x00, 0x00, 0x40, 0x00,
                                         0x00, 0x00}));
    EXPECT_EQ(u32At(b, 40), 12u);

    // One more mono frame: odd data gets a pad byte that only the RIFF size counts.
    const float one[] = {0.25f};
    file.append(one);
    b = readBytes(file.url());
    ASSERT_EQ(b.size(), 44u + 15u + 1u);
    EXPECT_EQ(b.back(), 0);
    EXPECT_EQ(u32At(b, 4), 15u + 36u + 1u);
    EXPECT_EQ(u32At(b, 40), 15u);
    // The next append writes over the pad byte.
    file.append(one);
    b = readBytes(file.url());
    ASSERT_EQ(b.size(), 44u + 18u);
    EXPECT_EQ(b[59], static_cast<std::uint8_t>(WAVRecordingFile::sampleCode(0.25f)));
}

TEST(WAVRecordingFileCreate, RefusesAnExistingFileAndFormatsTheHeaderCannotHold) {
    TemporaryDirectory dir;
    test::writeText(dir / "x.wav", "keep me");
    EXPECT_THROW(WAVRecordingFile(dir / "x.wav", 48000, 2), RecordingFileError);
    EXPECT_EQ(readBytes(dir / "x.wav").size(), 7u);
    EXPECT_THROW(WAVRecordingFile(dir / "a.wav", 48000, 0), RecordingFileError);
    EXPECT_THROW(WAVRecordingFile(dir / "b.wav", 48000, 21846), RecordingFileError);
    EXPECT_THROW(WAVRecordingFile(dir / "c.wav", 1431655766, 1), RecordingFileError);
    EXPECT_NO_THROW(WAVRecordingFile(dir / "d.wav", 65535, 21845));
}

TEST(WAVRecordingNames, AcceptStampsMicrosecondsAndOlderPrefixes) {
    for (const char* good : {"2026-11-14_21-30-05.wav", "2026-11-14_21-30-05.123456.wav",
                             "REC_0001.wav", "Kelvo 2024-01-01.wav"})
        EXPECT_TRUE(WAVRecordingFile::isRecordingFileName(good)) << good;
    for (const char* bad :
         {"2026-11-14_21-30-05.WAV", "2026-11-14_21-30-5.wav", "2026-11-14_21-30-05.12345.wav",
          "song.wav", "REC_/../x.wav", "2026-11-14_21-30-05.wav.txt"})
        EXPECT_FALSE(WAVRecordingFile::isRecordingFileName(bad)) << bad;
}

// What it accepts: WAVRecovery's tests, which read the side files written here.
TEST(WAVRecoveryMetadataDecode, AcceptsOnlyTheThreeTypedFields) {
    for (const char* bad : {"[]", R"({"fileName":"a.wav","sampleRate":44100})",
                            R"({"fileName":"a.wav","sampleRate":44100.5,"channels":2})",
                            R"({"fileName":"a.wav","sampleRate":44100,"channels":0})",
                            R"({"fileName":"a.wav","sampleRate":44100,"channels":99999})"})
        EXPECT_FALSE(WAVRecoveryMetadata::decode(bad).has_value()) << bad;
}

} // namespace
} // namespace kelvo
