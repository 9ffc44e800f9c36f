#include "Audio/Capture/MicCapture.h"

#include "support/FakeAudioInput.h"
#include "support/FileBytes.h"
#include "support/QtEventLoop.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace kelvo {
namespace {

using FakeBackend = test::FakeAudioBackend;
using FakeStream = test::FakeAudioStream;

class MicCaptureTest : public ::testing::Test {
protected:
    void SetUp() override { test::qtApplication(); }
    std::shared_ptr<FakeBackend> backend = std::make_shared<FakeBackend>();
    MicCapture capture{backend};
};

std::vector<float> tone(std::size_t frames, std::size_t channels) {
    std::vector<float> out(frames * channels);
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<float>(0.4 * std::sin(0.05 * double(i / channels)));
    return out;
}

TEST_F(MicCaptureTest, StartsIdleAndSilent) {
    EXPECT_FALSE(capture.isCapturing());
    EXPECT_EQ(capture.bandLevels(), BandDecibelLevels::silent());
    EXPECT_EQ(capture.recordingChannels(), 1);
    EXPECT_EQ(capture.sampleRate(), 44100);
    EXPECT_EQ(capture.chunker().channelCount(), std::nullopt);
}

TEST_F(MicCaptureTest, HopsReachTheMainThreadQueueInOrder) {
    capture.start("djm", std::nullopt);
    ASSERT_TRUE(capture.isCapturing());
    EXPECT_EQ(capture.activeDeviceUID(), "djm");
    const auto audio = tone(2048, 2);
    std::thread([&] { backend->last->deliver(audio); }).join();
    ASSERT_EQ(capture.pendingHops().size(), 4u);
    const auto hops = capture.takePendingHops();
    EXPECT_TRUE(capture.pendingHops().empty());
    EXPECT_FLOAT_EQ(hops[1].samples[0], audio[2 * 512]);
    EXPECT_EQ(capture.bandLevels(), hops.back().levels);
    EXPECT_DOUBLE_EQ(hops[0].dt, 512.0 / 48000.0);
}

TEST_F(MicCaptureTest, AZeroRateDeviceRunsAt44100) {
    backend->format = {0, 1};
    capture.start(std::nullopt, std::nullopt);
    EXPECT_EQ(capture.sampleRate(), 44100);
    EXPECT_DOUBLE_EQ(capture.chunker().hopSeconds(), 512.0 / 44100.0);
}

TEST_F(MicCaptureTest, ChannelRequestsAreCappedByTheDevice) {
    backend->format = {48000, 16};
    capture.start("djm", 2);
    EXPECT_EQ(capture.recordingChannels(), 2);
    EXPECT_EQ(capture.chunker().channelCount(), 2);
    backend->format = {48000, 2};
    capture.start("two", 4);
    EXPECT_EQ(capture.recordingChannels(), 2);
    backend->format = {48000, 6};
    capture.start("six", std::nullopt);
    EXPECT_EQ(capture.recordingChannels(), 6);
}

TEST_F(MicCaptureTest, StopEmptiesTheQueueAndDropsLateHopsOfTheOldRun) {
    capture.start("a", std::nullopt);
    FakeStream* old = backend->last;
    std::thread([&] { old->deliver(tone(512, 2)); }).join();
    ASSERT_TRUE(test::pumpUntil([&] { return !capture.pendingHops().empty(); }));
    std::thread([&] { old->deliver(tone(1024, 2)); }).join(); // queued, not yet published
    capture.stop();
    EXPECT_FALSE(capture.isCapturing());
    EXPECT_TRUE(capture.pendingHops().empty());
    EXPECT_EQ(capture.bandLevels(), BandDecibelLevels::silent());
    test::pumpFor(std::chrono::milliseconds(30));
    EXPECT_TRUE(capture.pendingHops().empty());

    // A replaced run's late hops are dropped as well.
    capture.start("a", std::nullopt);
    const RenderReceiver firstRun = backend->last->receiver; // an old buffer still in flight
    capture.start("b", std::nullopt);
    const auto audio = tone(512, 2);
    std::thread([&] {
        const AudioBuffer buffer{2, audio.data()};
        firstRun(AudioBufferListView(&buffer, 1), 512);
    }).join();
    test::pumpFor(std::chrono::milliseconds(30));
    EXPECT_TRUE(capture.pendingHops().empty());
}

TEST_F(MicCaptureTest, AFailedStartLeavesCaptureStopped) {
    capture.start("a", std::nullopt);
    backend->failStart = true;
    EXPECT_THROW(capture.start("b", std::nullopt), AudioInputException);
    EXPECT_FALSE(capture.isCapturing());
    EXPECT_EQ(capture.activeDeviceUID(), std::nullopt);
    backend->failStart = false;
    backend->missingUID = "gone";
    try {
        capture.start("gone", std::nullopt);
        FAIL();
    } catch (const AudioInputException& e) {
        EXPECT_STREQ(e.what(), "Audio input device not found (gone)");
    }
}

TEST_F(MicCaptureTest, AStreamThatFailsStopsCapture) {
    capture.start("a", std::nullopt);
    FakeStream* stream = backend->last;
    stream->running = false;
    std::thread([&] { stream->configurationChanged(); }).join();
    ASSERT_TRUE(test::pumpUntil([&] { return !capture.isCapturing(); }));

    // A notice while the stream still runs is not a failure.
    capture.start("a", std::nullopt);
    std::thread([&] { backend->last->configurationChanged(); }).join();
    test::pumpFor(std::chrono::milliseconds(30));
    EXPECT_TRUE(capture.isCapturing());
}

TEST_F(MicCaptureTest, ABackendThatMayWaitIsOpenedOffTheMainThread) {
    backend->waits = true;
    std::promise<void> gate;
    backend->beforeOpen = [held = gate.get_future().share()] { held.wait(); };
    capture.start("a", std::nullopt);
    EXPECT_TRUE(capture.isStarting()) << "start returned while the backend was held";
    EXPECT_FALSE(capture.isCapturing());
    gate.set_value();
    ASSERT_TRUE(test::pumpUntil([&] { return capture.isCapturing(); }));
    EXPECT_FALSE(capture.isStarting());
    EXPECT_EQ(capture.activeDeviceUID(), "a");

    // Stopped while under way: the late run is stopped, never taken.
    std::promise<void> entered, second;
    backend->beforeOpen = [&entered, held = second.get_future().share()] {
        entered.set_value();
        held.wait();
    };
    capture.start("b", std::nullopt);
    entered.get_future().wait();
    capture.stop();
    EXPECT_FALSE(capture.isStarting());
    second.set_value();
    ASSERT_TRUE(
        test::pumpUntil([&] { return backend->opened.size() == 2 && !backend->last->running; }));
    test::pumpFor(std::chrono::milliseconds(30));
    EXPECT_FALSE(capture.isCapturing());

    // A failure arrives as a signal with its text.
    backend->beforeOpen = nullptr;
    backend->failStart = true;
    QString reason;
    QObject::connect(&capture, &MicCapture::startFailed, [&](const QString& r) { reason = r; });
    capture.start("c", std::nullopt);
    ASSERT_TRUE(test::pumpUntil([&] { return !reason.isEmpty(); }));
    EXPECT_EQ(reason, "The device is busy");
    EXPECT_FALSE(capture.isStarting());
    EXPECT_FALSE(capture.isCapturing());
}

TEST_F(MicCaptureTest, TheRecorderSeesEveryBufferAndStopsWithCapture) {
    test::TemporaryDirectory dir;
    backend->format = {48000, 4};
    capture.start("a", 2);
    capture.recording().start(48000, capture.recordingChannels(), dir.path());
    std::thread([&] {
        backend->last->deliver(tone(100, 4)); // no hop completes, still recorded
        backend->last->deliver(tone(700, 4));
    }).join();
    capture.stop();
    EXPECT_FALSE(capture.recording().isRecording());
    EXPECT_EQ(capture.recording().message(),
              QStringLiteral("Recording saved in Downloads. Audio input stopped or changed."));
    capture.recording().writer().waitUntilIdle();
    const auto bytes = test::readBytes(*capture.recording().firstFile());
    EXPECT_EQ(test::u32At(bytes, 40), 800u * 2 * 3);
    EXPECT_EQ(test::u16At(bytes, 22), 2);
}

} // namespace
} // namespace kelvo
