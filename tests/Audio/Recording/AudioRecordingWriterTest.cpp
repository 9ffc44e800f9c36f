#include "Audio/Recording/AudioRecordingWriter.h"

#include "Audio/Recording/RecordingError.h"
#include "support/FileBytes.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <future>
#include <mutex>

namespace kelvo {
namespace {

using test::readBytes;
using test::TemporaryDirectory;
using test::u32At;
using Failures = std::vector<std::string>; // read once the writer is idle

void startAndWait(AudioRecordingWriter& writer, int channels, const std::filesystem::path& dir,
                  Failures* failures = nullptr) {
    writer.start(48000, channels, dir,
                 [failures](const std::string& m) {
                     if (failures)
                         failures->push_back(m);
                 },
                 {});
    writer.waitUntilIdle();
}

void capture(AudioRecordingWriter& writer, std::span<const float> samples, std::uint32_t channels) {
    const AudioBuffer buffer{channels, samples.data()};
    writer.capture({&buffer, 1}, static_cast<std::uint32_t>(samples.size() / channels), channels);
}

std::vector<std::uint8_t> onlyFileIn(const TemporaryDirectory& dir) {
    return readBytes(std::filesystem::directory_iterator(dir.path())->path());
}

TEST(AudioRecordingWriter, StartsWithoutWaitingForTheDiskRepairsOldPartsThenCutsAtSegmentFrames) {
    TemporaryDirectory dir;
    const auto interrupted = dir / "2026-01-01_00-00-00.wav"; // the repair itself: WAVRecovery
    test::writeBytes(interrupted, {1, 2, 3});
    test::writeText(WAVRecordingFile::recoveryURLFor(interrupted),
                    WAVRecoveryMetadata{"2026-01-01_00-00-00.wav", 48000, 1}.encode());
    std::tm t{};
    ::strptime("2026-11-14 21:30:05", "%F %T", &t);
    t.tm_isdst = -1;
    const auto at =
        std::chrono::system_clock::from_time_t(std::mktime(&t)) + std::chrono::microseconds(42);
    AudioRecordingWriter writer(1.0, [at] { return at; });
    std::promise<void> diskAnswers;
    writer.async([gate = diskAnswers.get_future().share()] { gate.wait(); }); // busy
    writer.start(48000, 1, dir.path(), {}, {});

    std::vector<float> samples(50000);
    std::ranges::generate(samples, [i = 0]() mutable { return float(i++ % 100) / 100.0f; });
    capture(writer, std::span(samples).first(300), 1); // before the part exists
    diskAnswers.set_value();
    capture(writer, std::span(samples).subspan(300), 1);
    writer.stop();
    writer.waitUntilIdle();
    EXPECT_FALSE(std::filesystem::exists(WAVRecordingFile::recoveryURLFor(interrupted)));
    const auto a = readBytes(dir / "2026-11-14_21-30-05.wav");
    const auto b = readBytes(dir / "2026-11-14_21-30-05.000042.wav");
    EXPECT_EQ(u32At(a, 40), 48000u * 3);
    EXPECT_EQ(u32At(b, 40), 2000u * 3);
    // The second part continues the signal exactly where the first stopped.
    EXPECT_EQ(b[44] | b[45] << 8 | b[46] << 16,
              WAVRecordingFile::sampleCode(samples[48000]) & 0xFFFFFF);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 3)
        << "side files must be gone after stop";
}

TEST(AudioRecordingWriter, PartsAreAnHourUnlessThatOutgrowsAWavFile) {
    EXPECT_EQ(AudioRecordingWriter::segmentFramesFor(3600, 48000, 2), 172800000);
    // 16 channels: an hour would be 8.3 GB; a part stops just short of 4 GiB.
    EXPECT_EQ(AudioRecordingWriter::segmentFramesFor(3600, 48000, 16), 4294967258 / 48);
}

TEST(AudioRecordingWriter, StopsOnceWithTheOverloadTextWhenTheDiskFallsBehind) {
    TemporaryDirectory dir;
    AudioRecordingWriter writer;
    Failures failures;
    startAndWait(writer, 2, dir.path(), &failures);
    const std::vector<float> stereo(2 * 4800, 0.25f); // 0.1 s of audio
    capture(writer, stereo, 2);
    writer.waitUntilIdle(); // the first 0.1 s reaches the disk
    std::mutex disk;
    std::unique_lock held(disk);
    writer.setBeforeAppendHook([&] { std::lock_guard wait(disk); });
    // 4,000,000 samples is 41.67 s of 48 kHz stereo: 416 buffers fit, the 417th does not.
    for (int i = 0; i < 417; ++i)
        capture(writer, stereo, 2);
    EXPECT_EQ(writer.pendingSamples(), 416 * 9600);
    held.unlock();
    writer.waitUntilIdle();
    writer.sync([&] { writer.fail("later"); });
    capture(writer, stereo, 2);

    EXPECT_EQ(failures, Failures{std::string(description(RecordingError::writerOverloaded))});
    EXPECT_EQ(writer.pendingSamples(), 0);
    // Everything queued before the overload was written, and the header says so.
    const auto b = onlyFileIn(dir);
    EXPECT_EQ(u32At(b, 40), 417u * 4800 * 6);
    EXPECT_EQ(b.size(), 44u + 417u * 4800 * 6);
}

TEST(AudioRecordingWriter, AtQuitTheDiskIsWaitedForOnlyUntilTheLimitAndNothingGoesUncounted) {
    // Four seconds of stereo queued behind a disk that holds each write until released.
    struct Stalled {
        TemporaryDirectory dir;
        std::promise<void> released;
        AudioRecordingWriter writer;
    } queued, neverAnswers;
    for (Stalled* s : {&queued, &neverAnswers}) {
        startAndWait(s->writer, 2, s->dir.path());
        s->writer.setBeforeAppendHook([gate = s->released.get_future().share()] { gate.wait(); });
        for (int i = 0; i < 40; ++i)
            capture(s->writer, std::vector<float>(2 * 4800, 0.25f), 2);
    }
    auto release = std::async(std::launch::async, [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        queued.released.set_value(); // the write under way goes through; the time is up
    });
    const auto finish =
        queued.writer.finishWithin(std::chrono::milliseconds(0), std::chrono::seconds(30));
    release.wait();
    EXPECT_TRUE(finish.closed);
    const auto b = onlyFileIn(queued.dir);
    EXPECT_EQ(u32At(b, 40), b.size() - 44) << "the header tells what was written";
    EXPECT_EQ((std::int64_t(b.size()) - 44) / 3 + finish.droppedSamples, 40 * 9600)
        << "nothing unaccounted for";

    EXPECT_FALSE(neverAnswers.writer
                     .finishWithin(std::chrono::milliseconds(0), std::chrono::milliseconds(100))
                     .closed);
    neverAnswers.released.set_value(); // lets the writer end with the test
}

} // namespace
} // namespace kelvo
