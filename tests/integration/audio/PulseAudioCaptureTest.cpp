#include "Audio/Capture/AudioFileInput.h"
#include "Audio/Capture/MicCapture.h"
#include "Audio/PulseAudio/PulseAudioDeviceLayer.h"
#include "Audio/PulseAudio/PulseAudioInputBackend.h"

#include "support/CaptureStart.h"
#include "support/PulseAudioServer.h"
#include "support/QtEventLoop.h"
#include "support/RequiredTool.h"
#include "support/SoundFile.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <thread>

namespace kelvo {
namespace {

// A test track: a kick-like 60 Hz burst every 0.5 s over a 1 kHz tone and a little noise,
// different on the two channels.
std::vector<float> testTrack(int rate, int channels, double seconds) {
    const auto frames = static_cast<std::size_t>(seconds * rate);
    std::vector<float> out(frames * channels);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> noise(-0.02f, 0.02f);
    for (std::size_t f = 0; f < frames; ++f) {
        const double t = double(f) / rate;
        const double beat = std::fmod(t, 0.5);
        const double kick = beat < 0.1 ? 0.6 * std::sin(2 * std::numbers::pi * 60 * t) : 0.0;
        const double tone = 0.2 * std::sin(2 * std::numbers::pi * 1000 * t);
        for (int c = 0; c < channels; ++c)
            out[f * channels + c] =
                static_cast<float>(kick + (c == 0 ? tone : -tone * 0.5)) + noise(random);
    }
    return out;
}

// The same analysis run offline over the whole track.
std::vector<MicHop> offlineHops(const std::vector<float>& track, int rate, int channels) {
    HopChunker chunker(std::make_unique<BandEnergyExtractor>(rate), rate);
    const AudioBuffer buffer{static_cast<std::uint32_t>(channels), track.data()};
    return chunker.pushMono(AudioBufferListView(&buffer, 1),
                            static_cast<std::uint32_t>(track.size() / channels));
}

class PulseAudioCaptureTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::qtApplication();
        KELVO_REQUIRE_TOOL(server.running(), server.failure());
        layer = std::make_shared<PulseAudioDeviceLayer>();
    }
    test::PulseAudioServer server;
    std::shared_ptr<PulseAudioDeviceLayer> layer;
};

TEST_F(PulseAudioCaptureTest, CapturedHopsMatchAnOfflineAnalysisInOrderWithoutGaps) {
    const int rate = 48000, channels = 2;
    const auto djm =
        server.loadPipeSource("djm", "device.description='DJM-A9' device.bus=usb", rate, channels);
    ASSERT_TRUE(djm);
    MicCapture capture(std::make_shared<PulseAudioInputBackend>(layer));
    ASSERT_EQ(test::startCapture(capture, "djm", 2), std::nullopt);
    const auto track = testTrack(rate, channels, 3.0);
    const auto expected = offlineHops(track, rate, channels);
    std::thread writer([&] { test::writeToFifo(djm->fifo, track, channels, rate, 2.0); });
    std::vector<MicHop> captured;
    const bool complete = test::pumpUntil(
        [&] {
            for (auto& hop : capture.takePendingHops())
                captured.push_back(std::move(hop));
            return captured.size() >= expected.size();
        },
        std::chrono::seconds(20));
    writer.join();
    ASSERT_TRUE(complete) << captured.size() << " of " << expected.size() << " hops";

    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(captured[i].samples, expected[i].samples)
            << "hop " << i << " out of order or gapped";
        EXPECT_NEAR(captured[i].levels.low, expected[i].levels.low, 0.01) << i;
        EXPECT_NEAR(captured[i].levels.mid, expected[i].levels.mid, 0.01) << i;
        EXPECT_NEAR(captured[i].levels.high, expected[i].levels.high, 0.01) << i;
        EXPECT_NEAR(captured[i].levels.onset, expected[i].levels.onset, 1e-6) << i;
        EXPECT_DOUBLE_EQ(captured[i].dt, 512.0 / rate);
    }
}

TEST_F(PulseAudioCaptureTest, RemovingTheSourceStopsCapture) {
    const auto source = server.loadPipeSource(
        "codec", "device.description='USB Audio CODEC' device.bus=usb", 48000, 2);
    ASSERT_TRUE(source);
    MicCapture capture(std::make_shared<PulseAudioInputBackend>(layer));
    ASSERT_EQ(test::startCapture(capture, "codec"), std::nullopt);
    ASSERT_TRUE(server.unloadModule(source->module));
    ASSERT_TRUE(test::pumpUntil([&] { return !capture.isCapturing(); }));
    EXPECT_EQ(capture.bandLevels(), BandDecibelLevels::silent());
}

TEST_F(PulseAudioCaptureTest, EachChannelOfAFourChannelInterfaceArrivesAsItLeftIt) {
    const int rate = 48000, channels = 4;
    const auto quad =
        server.loadPipeSource("quad", "device.description='USB Audio 4x4' device.bus=usb", rate,
                              channels, "aux0,aux1,aux2,aux3");
    ASSERT_TRUE(quad);
    MicCapture capture(std::make_shared<PulseAudioInputBackend>(layer));
    ASSERT_EQ(test::startCapture(capture, "quad"), std::nullopt);
    ASSERT_EQ(capture.recordingChannels(), channels);
    test::TemporaryDirectory dir;
    capture.recording().start(rate, channels, dir.path());

    const std::vector<float> levels = {0.1f, 0.2f, 0.3f, 0.4f};
    std::vector<float> track;
    for (int f = 0; f < rate; ++f)
        track.insert(track.end(), levels.begin(), levels.end());
    std::thread writer([&] { test::writeToFifo(quad->fifo, track, channels, rate, 4.0); });
    std::vector<MicHop> hops;
    test::pumpUntil(
        [&] {
            for (auto& hop : capture.takePendingHops())
                hops.push_back(std::move(hop));
            return hops.size() >= 80;
        },
        std::chrono::seconds(10));
    writer.join();
    capture.stop();
    capture.recording().writer().waitUntilIdle();

    ASSERT_GE(hops.size(), 80u);
    EXPECT_NEAR(hops[40].samples[100], 0.25f, 1e-6) << "the analysis hears the mean";
    const test::SoundFile recorded = test::readSoundFile(*capture.recording().firstFile());
    ASSERT_EQ(recorded.channels, channels);
    ASSERT_GT(recorded.frames, rate / 2);
    const std::size_t middle = std::size_t(recorded.frames / 2) * channels;
    for (int c = 0; c < channels; ++c)
        EXPECT_NEAR(recorded.samples[middle + c], levels[c], 1e-6) << "channel " << c + 1;
}

TEST_F(PulseAudioCaptureTest, TheSpeakersMonitorIsNoInput) {
    // The only source is the speakers' monitor, which the server offers as its default input.
    MicCapture capture(std::make_shared<PulseAudioInputBackend>(layer));
    EXPECT_EQ(test::startCapture(capture, std::nullopt),
              "No audio input is connected (the speakers’ monitor is not an input)");
    EXPECT_FALSE(capture.isCapturing());
}

TEST(AudioFileInput, PlaysTheFileInRealTimeAndLoops) {
    test::qtApplication();
    test::TemporaryDirectory dir;
    const int rate = 44100;
    const auto track = testTrack(rate, 2, 0.25); // 21.5 hops
    const auto path = dir / "loop.flac";
    ASSERT_TRUE(test::writeSoundFile(path, track, rate, 2, SF_FORMAT_FLAC | SF_FORMAT_PCM_24));

    MicCapture capture(std::make_shared<AudioFileInputBackend>(path));
    const auto started = std::chrono::steady_clock::now();
    capture.start("ignored", std::nullopt);
    EXPECT_EQ(capture.sampleRate(), rate);
    std::vector<MicHop> hops;
    ASSERT_TRUE(test::pumpUntil([&] {
        for (auto& hop : capture.takePendingHops())
            hops.push_back(std::move(hop));
        return hops.size() >= 60;
    }));
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    capture.stop();
    // 60 hops are 0.70 s of audio: the file (0.25 s) looped, at real-time pace, not faster.
    EXPECT_GE(elapsed, 0.6);
    // Hop 22 starts 11264 frames in; the file is 11025 frames, so it starts 239 frames into
    // the second pass (FLAC holds 24 bits).
    EXPECT_NEAR(hops[22].samples[0], (track[239 * 2] + track[239 * 2 + 1]) / 2, 1e-6);
}

} // namespace
} // namespace kelvo
