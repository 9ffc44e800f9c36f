#include "Audio/Recording/AudioRecordingWriter.h"

#include "Audio/Recording/RecordingError.h"
#include "support/FileBytes.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <ctime>
#include <future>
#include <mutex>
#include <thread>

namespace kelvo {
namespace {

using test::readBytes;
using test::TemporaryDirectory;
using test::u32At;

std::chrono::system_clock::time_point localTime(int y, int mo, int d, int h, int mi, int s,
                                                int micros) {
    std::tm t{};
    t.tm_year = y - 1900;
    t.tm_mon = mo - 1;
    t.tm_mday = d;
    t.tm_hour = h;
    t.tm_min = mi;
    t.tm_sec = s;
    t.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&t)) +
           std::chrono::microseconds(micros);
}

struct Failures {
    std::mutex mutex;
    std::vector<std::string> messages;
    AudioRecordingWriter::FailureHandler handler() {
        return [this](const std::string& m) {
            std::lock_guard lock(mutex);
            messages.push_back(m);
        };
    }
    std::vector<std::string> snapshot() {
        std::lock_guard lock(mutex);
        return messages;
    }
};

AudioRecordingWriter::Started startAndWait(AudioRecordingWriter& writer, int channels,
                                           const std::filesystem::path& dir,
                                           AudioRecordingWriter::FailureHandler failure = {}) {
    std::promise<AudioRecordingWriter::Started> opened;
    writer.start(48000, channels, dir, std::move(failure),
                 [&](const AudioRecordingWriter::Started& s) { opened.set_value(s); });
    return opened.get_future().get();
}

void captureMono(AudioRecordingWriter& writer, const std::vector<float>& samples) {
    const AudioBuffer buffer{1, samples.data()};
    writer.capture({&buffer, 1}, static_cast<std::uint32_t>(samples.size()), 1);
}

TEST(AudioRecordingWriter, IgnoresAudioUntilStarted) {
    AudioRecordingWriter writer;
    captureMono(writer, std::vector<float>(512, 0.5f));
    EXPECT_EQ(writer.pendingSamples(), 0);
    EXPECT_FALSE(writer.accepting());
}

TEST(AudioRecordingWriter, CutsPartsAtExactlySegmentFramesAndNamesTheSecondWithMicroseconds) {
    TemporaryDirectory dir;
    const auto t = localTime(2026, 11, 14, 21, 30, 5, 42);
    AudioRecordingWriter writer(1.0, [t] { return t; });
    Failures failures;
    const auto started = startAndWait(writer, 1, dir.path(), failures.handler());
    EXPECT_EQ(started.firstFile, dir / "2026-11-14_21-30-05.wav");
    EXPECT_EQ(writer.segmentFrames(), 48000);

    std::vector<float> samples(50000);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(i % 100) / 100.0f;
    captureMono(writer, samples);
    writer.stop();
    writer.waitUntilIdle();

    const auto a = readBytes(dir / "2026-11-14_21-30-05.wav");
    const auto b = readBytes(dir / "2026-11-14_21-30-05.000042.wav");
    EXPECT_EQ(u32At(a, 40), 48000u * 3);
    EXPECT_EQ(u32At(b, 40), 2000u * 3);
    // The second part continues the signal exactly where the first stopped.
    const std::int32_t expected = WAVRecordingFile::sampleCode(samples[48000]);
    EXPECT_EQ(b[44] | b[45] << 8 | b[46] << 16, expected & 0xFFFFFF);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 2)
        << "side files must be gone after stop";
    EXPECT_TRUE(failures.snapshot().empty());
    EXPECT_EQ(writer.pendingSamples(), 0);
}

TEST(AudioRecordingWriter, StartsWithoutWaitingForTheDiskAndKeepsWhatComesMeanwhile) {
    TemporaryDirectory dir;
    AudioRecordingWriter writer;
    std::promise<void> diskAnswers;
    writer.async([gate = diskAnswers.get_future().share()] { gate.wait(); }); // the writer is busy
    std::promise<AudioRecordingWriter::Started> opened;
    writer.start(48000, 1, dir / "new", {},
                 [&](const AudioRecordingWriter::Started& s) { opened.set_value(s); });
    EXPECT_TRUE(writer.accepting());
    captureMono(writer, std::vector<float>(300, 0.5f)); // before the part exists
    diskAnswers.set_value();
    const auto started = opened.get_future().get();
    captureMono(writer, std::vector<float>(200, 0.5f));
    writer.stop();
    writer.waitUntilIdle();
    EXPECT_EQ(u32At(readBytes(started.firstFile), 40), 500u * 3);
}

TEST(AudioRecordingWriter, PartsAreAnHourUnlessThatOutgrowsAWavFile) {
    EXPECT_EQ(AudioRecordingWriter::segmentFramesFor(3600, 48000, 2), 172800000);
    EXPECT_EQ(AudioRecordingWriter::segmentFramesFor(3600, 44100, 1), 158760000);
    // 16 channels: an hour would be 8.3 GB; a part stops just short of 4 GiB.
    EXPECT_EQ(AudioRecordingWriter::segmentFramesFor(3600, 48000, 16), 4294967258 / 48);
    EXPECT_EQ(AudioRecordingWriter::segmentFramesFor(0.00001, 8000, 1), 1);
}

TEST(AudioRecordingWriter, RecordsTheLeadingChannelsOfANonInterleavedList) {
    TemporaryDirectory dir;
    AudioRecordingWriter writer;
    startAndWait(writer, 2, dir.path());
    const std::vector<float> left = {0.5f, 0.5f}, skipped = {9, 9}, right = {-0.5f, -0.5f},
                             third = {0.25f, 0.25f};
    const AudioBuffer list[] = {
        {1, left.data()}, {1, nullptr}, {1, right.data()}, {1, third.data()}};
    writer.capture(list, 2, 2);
    writer.stop();
    writer.waitUntilIdle();
    const auto parts = std::filesystem::directory_iterator(dir.path());
    const auto b = readBytes(parts->path());
    ASSERT_EQ(b.size(), 44u + 12u);
    EXPECT_EQ(std::vector<std::uint8_t>(b.begin() + 44, b.begin() + 50),
              (std::vector<std::uint8_t>{0x00, 0x00, 0x40, 0x00, 0x00, 0xC0}));
}

TEST(AudioRecordingWriter, OnlyTheFirstFailureCounts) {
    TemporaryDirectory dir;
    AudioRecordingWriter writer;
    Failures failures;
    startAndWait(writer, 1, dir.path(), failures.handler());
    writer.sync([&] {
        writer.fail("first");
        writer.fail("second");
    });
    EXPECT_EQ(failures.snapshot(), std::vector<std::string>{"first"});
    EXPECT_EQ(writer.firstError(), "first");
    EXPECT_FALSE(writer.accepting());
    captureMono(writer, std::vector<float>(10, 0.1f));
    EXPECT_EQ(writer.pendingSamples(), 0);
}

TEST(AudioRecordingWriter, StopsWithTheOverloadTextWhenTheDiskFallsBehind) {
    TemporaryDirectory dir;
    AudioRecordingWriter writer;
    Failures failures;
    startAndWait(writer, 2, dir.path(), failures.handler());
    std::vector<float> stereo(2 * 4800, 0.25f); // 0.1 s of audio
    const AudioBuffer buffer{2, stereo.data()};
    writer.capture({&buffer, 1}, 4800, 2);
    writer.waitUntilIdle(); // the first 0.1 s reaches the disk

    std::mutex disk;
    std::unique_lock held(disk);
    writer.setBeforeAppendHook([&] { std::lock_guard wait(disk); });
    // 4,000,000 samples is 41.67 s of 48 kHz stereo: 416 buffers fit, the 417th does not.
    for (int i = 0; i < 417; ++i)
        writer.capture({&buffer, 1}, 4800, 2);
    EXPECT_EQ(writer.pendingSamples(), 416 * 9600);
    held.unlock();
    writer.waitUntilIdle();

    EXPECT_EQ(failures.snapshot(),
              std::vector<std::string>{std::string(description(RecordingError::writerOverloaded))});
    EXPECT_EQ(writer.pendingSamples(), 0);
    // Everything queued before the overload was written, and the header says so.
    const auto b = readBytes(std::filesystem::directory_iterator(dir.path())->path());
    EXPECT_EQ(u32At(b, 40), 417u * 4800 * 6);
    EXPECT_EQ(b.size(), 44u + 417u * 4800 * 6);
}

/// Four seconds of stereo queued behind a disk that holds the first write until released.
struct QueuedBehindAStalledDisk {
    QueuedBehindAStalledDisk() {
        startAndWait(writer, 2, dir.path(), failures.handler());
        writer.setBeforeAppendHook([gate = released.get_future().share()] { gate.wait(); });
        const AudioBuffer buffer{2, stereo.data()};
        for (int i = 0; i < 40; ++i)
            writer.capture({&buffer, 1}, 4800, 2);
    }
    TemporaryDirectory dir;
    std::promise<void> released; // the disk answers
    Failures failures;
    std::vector<float> stereo = std::vector<float>(2 * 4800, 0.25f);
    AudioRecordingWriter writer;
};

TEST(AudioRecordingWriter, AtQuitWhatTheDiskDidNotTakeInTimeIsDroppedCountedAndThePartClosed) {
    QueuedBehindAStalledDisk queued;
    auto release = std::async(std::launch::async, [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        queued.released.set_value(); // the write under way goes through; the time is up
    });
    const auto finish =
        queued.writer.finishWithin(std::chrono::milliseconds(0), std::chrono::seconds(30));
    release.wait();
    EXPECT_TRUE(finish.closed);
    EXPECT_GT(finish.droppedSamples, 0);
    const auto b = readBytes(std::filesystem::directory_iterator(queued.dir.path())->path());
    const std::int64_t writtenSamples = (std::int64_t(b.size()) - 44) / 3;
    EXPECT_EQ(u32At(b, 40), b.size() - 44) << "the header tells what was written";
    EXPECT_EQ(writtenSamples + finish.droppedSamples, 40 * 9600) << "nothing unaccounted for";
}

TEST(AudioRecordingWriter, AtQuitADiskThatNeverAnswersIsNotWaitedForBeyondTheLimit) {
    QueuedBehindAStalledDisk queued;
    const auto finish =
        queued.writer.finishWithin(std::chrono::milliseconds(0), std::chrono::milliseconds(100));
    EXPECT_FALSE(finish.closed);
    queued.released.set_value(); // lets the writer end with the test
}

} // namespace
} // namespace kelvo
