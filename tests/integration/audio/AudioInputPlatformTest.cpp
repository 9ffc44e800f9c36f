#include "Audio/AudioInputPlatform.h"
#include "Audio/Capture/AudioFileInput.h"
#include "Audio/Capture/MicCapture.h"
#include "Audio/Devices/AudioInputDeviceMonitor.h"

#include "support/CaptureStart.h"
#include "support/PulseAudioServer.h"
#include "support/QtEventLoop.h"
#include "support/RequiredTool.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace kelvo {
namespace {

TEST(AudioInputPlatform, WithoutAServerListsNothingAndCaptureSaysWhy) {
    test::qtApplication();
    ::setenv("PULSE_SERVER", "unix:/nonexistent/kelvo/native", 1);
    {
        AudioInputPlatform platform = AudioInputPlatform::make(std::nullopt);
        ASSERT_TRUE(platform.deviceListUnavailable.has_value());
        EXPECT_EQ(platform.deviceListUnavailable->rfind("Audio server unavailable (", 0), 0u);
        EXPECT_TRUE(platform.deviceLayer->devices().empty());

        MicCapture capture(platform.backend);
        const auto failure = test::startCapture(capture, std::nullopt);
        ASSERT_TRUE(failure.has_value()) << "started without a server";
        EXPECT_EQ(failure->rfind("Audio server unavailable (", 0), 0u) << *failure;
        EXPECT_FALSE(capture.isCapturing());
    }
    ::unsetenv("PULSE_SERVER");
}

TEST(AudioInputPlatform, AServerThatComesLaterIsListedAndCapturedFrom) {
    test::qtApplication();
    test::PulseAudioServer server; // PULSE_SERVER now names its socket
    KELVO_REQUIRE_TOOL(server.running(), server.failure());
    server.kill();
    AudioInputPlatform platform = AudioInputPlatform::make(std::nullopt);
    ASSERT_TRUE(platform.deviceListUnavailable.has_value());
    AudioInputDeviceMonitor monitor(platform.deviceLayer);
    monitor.refresh();
    ASSERT_TRUE(monitor.startListening());
    EXPECT_TRUE(monitor.devices().empty());

    // Found in the background, without a refresh from here.
    ASSERT_TRUE(server.restart()) << server.failure();
    ASSERT_TRUE(
        server.loadPipeSource("djm", "device.description='DJM-A9' device.bus=usb", 48000, 2));
    ASSERT_TRUE(
        test::pumpUntil([&] { return monitor.devices().size() == 1; }, std::chrono::seconds(15)));
    EXPECT_EQ(monitor.devices()[0].uid, "djm");

    MicCapture capture(platform.backend);
    EXPECT_EQ(test::startCapture(capture, "djm", 2), std::nullopt);
}

TEST(AudioInputPlatform, AnAudioFileReplacesTheDevices) {
    AudioInputPlatform platform = AudioInputPlatform::make("/music/set.flac");
    EXPECT_TRUE(platform.deviceLayer->devices().empty());
    const auto* file = dynamic_cast<AudioFileInputBackend*>(platform.backend.get());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->path(), "/music/set.flac");
}

} // namespace
} // namespace kelvo
