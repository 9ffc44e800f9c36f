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

class MicCaptureTest : public ::testing::Test {
protected:
    void SetUp() override { test::qtApplication(); }
    std::shared_ptr<test::FakeAudioBackend> backend = std::make_shared<test::FakeAudioBackend>();
    MicCapture capture{backend};
    // Plays the audio thread: delivers on a thread of its own.
    void deliver(test::FakeAudioStream* stream, std::size_t frames, std::size_t channels) {
        std::vector<float> audio(frames * channels);
        for (std::size_t i = 0; i < audio.size(); ++i)
            audio[i] = static_cast<float>(0.4 * std::sin(0.05 * double(i / channels)));
        std::thread([&] { stream->deliver(audio); }).join();
    }
};

TEST_F(MicCaptureTest, RateAndRecordedChannelsAreWhatTheDeviceHas) {
    backend->format = {0, 2};
    capture.start("a", 4);
    EXPECT_EQ(capture.sampleRate(), 44100) << "no rate known";
    EXPECT_EQ(capture.recordingChannels(), 2);
    EXPECT_EQ(capture.chunker().channelCount(), 4) << "the chunker mixes what there is";
}

TEST_F(MicCaptureTest, HopsReachTheMainThreadInOrderButNoneOfAStoppedOrReplacedRun) {
    capture.start("a", std::nullopt);
    test::FakeAudioStream* old = backend->last;
    deliver(old, 2048, 2);
    const auto hops = capture.takePendingHops();
    ASSERT_EQ(hops.size(), 4u);
    EXPECT_FLOAT_EQ(hops[1].samples[0], static_cast<float>(0.4 * std::sin(0.05 * 512)));
    EXPECT_EQ(capture.bandLevels(), hops.back().levels) << "the newest levels are shown";
    deliver(old, 1024, 2); // queued, not yet taken
    capture.stop();
    EXPECT_TRUE(capture.pendingHops().empty());
    EXPECT_EQ(capture.bandLevels(), BandDecibelLevels::silent());

    capture.start("a", std::nullopt);
    const RenderReceiver firstRun = backend->last->receiver; // a buffer of it still in flight
    capture.start("b", std::nullopt);
    const std::vector<float> audio(1024, 0.3f);
    const AudioBuffer buffer{2, audio.data()};
    std::thread([&] { firstRun(AudioBufferListView(&buffer, 1), 512); }).join();
    EXPECT_TRUE(capture.pendingHops().empty());
}

TEST_F(MicCaptureTest, AFailedStartOrAFailingStreamLeavesCaptureStopped) {
    capture.start("a", std::nullopt);
    backend->failStart = true;
    EXPECT_THROW(capture.start("b", std::nullopt), AudioInputException);
    EXPECT_FALSE(capture.isCapturing());
    EXPECT_EQ(capture.activeDeviceUID(), std::nullopt);

    backend->failStart = false;
    capture.start("a", std::nullopt);
    // A notice while the stream still runs is no failure; one after it ended is.
    std::thread([&] { backend->last->configurationChanged(); }).join();
    test::pumpFor(std::chrono::milliseconds(30));
    EXPECT_TRUE(capture.isCapturing());
    backend->last->running = false;
    std::thread([&] { backend->last->configurationChanged(); }).join();
    EXPECT_TRUE(test::pumpUntil([&] { return !capture.isCapturing(); }));
}

TEST_F(MicCaptureTest, ABackendThatMayWaitIsOpenedOffTheMainThread) {
    backend->waits = true;
    std::promise<void> gate;
    backend->beforeOpen = [held = gate.get_future().share()] { held.wait(); };
    capture.start("a", std::nullopt);
    EXPECT_TRUE(capture.isStarting()) << "start returned while the backend was held";
    gate.set_value();
    ASSERT_TRUE(test::pumpUntil([&] { return capture.isCapturing(); }));

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
    // The late run is discarded on the set-up thread: `last` may already be gone.
    ASSERT_TRUE(test::pumpUntil([&] { return backend->opened.size() == 2; }));
    test::pumpFor(std::chrono::milliseconds(30));
    EXPECT_FALSE(capture.isCapturing());
}

TEST_F(MicCaptureTest, TheRecorderSeesEveryBufferAndStopsWithCapture) {
    test::TemporaryDirectory dir;
    backend->format = {48000, 4};
    capture.start("a", 2);
    capture.recording().start(48000, capture.recordingChannels(), dir.path());
    deliver(backend->last, 100, 4); // no hop completes, still recorded
    deliver(backend->last, 700, 4);
    capture.stop();
    EXPECT_EQ(capture.recording().message(),
              QStringLiteral("Recording saved in Downloads. Audio input stopped or changed."));
    capture.recording().writer().waitUntilIdle();
    ASSERT_TRUE(test::pumpUntil([&] { return capture.recording().firstFile().has_value(); }));
    const auto bytes = test::readBytes(*capture.recording().firstFile());
    EXPECT_EQ(test::u32At(bytes, 40), 800u * 2 * 3);
    EXPECT_EQ(test::u16At(bytes, 22), 2);
}

} // namespace
} // namespace kelvo
