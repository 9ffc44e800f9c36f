#include "Audio/AudioInputPlatform.h"
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

#include <cstdlib>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace kelvo {
namespace {

class PulseAudioCaptureTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::qtApplication();
        KELVO_REQUIRE_TOOL(server.running(), server.failure());
    }
    test::PulseAudioServer server;
    MicCapture capture{
        std::make_shared<PulseAudioInputBackend>(std::make_shared<PulseAudioDeviceLayer>())};
};

TEST_F(PulseAudioCaptureTest, EachChannelOfAFourChannelInterfaceArrivesAsItLeftIt) {
    const int rate = 48000, channels = 4;
    const auto quad =
        server.loadPipeSource("quad", "device.description='USB Audio 4x4' device.bus=usb", rate,
                              channels, "aux0,aux1,aux2,aux3");
    ASSERT_TRUE(quad);
    ASSERT_EQ(test::startCapture(capture, "quad"), std::nullopt);
    ASSERT_EQ(capture.recordingChannels(), channels);
    test::TemporaryDirectory dir;
    capture.recording().start(rate, channels, dir.path());

    const std::vector<float> levels = {0.1f, 0.2f, 0.3f, 0.4f};
    std::vector<float> track;
    for (int f = 0; f < rate; ++f)
        track.insert(track.end(), levels.begin(), levels.end());
    ASSERT_TRUE(test::writeToFifo(quad->fifo, track, channels, rate, 4.0));
    test::pumpFor(std::chrono::milliseconds(300)); // what the server still holds
    const auto hops = capture.takePendingHops();
    ASSERT_GT(hops.size(), 40u);
    EXPECT_NEAR(hops[40].samples[100], 0.25f, 1e-6) << "the analysis hears the mean";
    capture.stop();
    capture.recording().writer().waitUntilIdle();
    ASSERT_TRUE(test::pumpUntil([&] { return capture.recording().firstFile().has_value(); }));

    const test::SoundFile recorded = test::readSoundFile(*capture.recording().firstFile());
    ASSERT_EQ(recorded.channels, channels);
    ASSERT_GT(recorded.frames, rate / 2);
    const std::size_t middle = std::size_t(recorded.frames / 2) * channels;
    for (int c = 0; c < channels; ++c)
        EXPECT_NEAR(recorded.samples[middle + c], levels[c], 1e-6) << "channel " << c + 1;
}

TEST_F(PulseAudioCaptureTest, TheSpeakersMonitorIsNoInput) {
    // The only source is the speakers' monitor, which the server offers as its default input.
    EXPECT_EQ(test::startCapture(capture, std::nullopt),
              "No audio input is connected (the speakers’ monitor is not an input)");
}

// A server that takes the connection and never answers: nothing on the caller's thread may
// wait for it, and capture gives up with a reason.
TEST(AudioInputPlatform, AServerThatNeverAnswersHoldsUpNothingAndCaptureSaysWhy) {
    test::qtApplication();
    test::TemporaryDirectory dir;
    const auto path = dir / "silent";
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 4), 0);
    ::setenv("PULSE_SERVER", ("unix:" + path.string()).c_str(), 1);
    {
        AudioInputPlatform platform = AudioInputPlatform::make(std::nullopt);
        // A connect made here would have timed out before returning.
        EXPECT_EQ(std::dynamic_pointer_cast<PulseAudioDeviceLayer>(platform.deviceLayer)
                      ->unavailableReason(),
                  PulseAudioDeviceLayer::connectingText);

        MicCapture capture(platform.backend);
        EXPECT_EQ(test::startCapture(capture, std::nullopt),
                  "Audio server unavailable (timed out)");

        // Quitting: a start under way stops waiting for the server, whenever it began.
        std::string reason;
        std::thread opening([&] {
            try {
                platform.backend->openStream(std::nullopt);
            } catch (const std::exception& e) {
                reason = e.what();
            }
        });
        platform.backend->abandonWaits();
        opening.join();
        EXPECT_EQ(reason, std::string("Audio server unavailable (") +
                              PulseAudioConnection::abandonedReason + ")");
    }
    ::unsetenv("PULSE_SERVER");
    ::close(listener);
}

} // namespace
} // namespace kelvo
