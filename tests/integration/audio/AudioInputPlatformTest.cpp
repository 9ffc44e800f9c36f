#include "Audio/AudioInputPlatform.h"
#include "Audio/Capture/AudioFileInput.h"
#include "Audio/Capture/MicCapture.h"

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
    AudioInputPlatform platform = AudioInputPlatform::make(std::nullopt);
    ::unsetenv("PULSE_SERVER");
    ASSERT_TRUE(platform.deviceListUnavailable.has_value());
    EXPECT_TRUE(platform.deviceLayer->devices().empty());

    ::setenv("PULSE_SERVER", "unix:/nonexistent/kelvo/native", 1);
    MicCapture capture(platform.backend);
    try {
        capture.start(std::nullopt, std::nullopt);
        ADD_FAILURE() << "started without a server";
    } catch (const AudioInputException& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Audio server unavailable (", 0), 0u) << e.what();
    }
    ::unsetenv("PULSE_SERVER");
    EXPECT_FALSE(capture.isCapturing());
}

TEST(AudioInputPlatform, AServerThatComesLaterIsFoundAtTheNextStart) {
    test::qtApplication();
    ::setenv("PULSE_SERVER", "unix:/nonexistent/kelvo/native", 1);
    AudioInputPlatform platform = AudioInputPlatform::make(std::nullopt);
    test::PulseAudioServer server; // sets PULSE_SERVER to itself
    KELVO_REQUIRE_TOOL(server.running(), server.failure());
    MicCapture capture(platform.backend);
    capture.start(std::nullopt, std::nullopt);
    EXPECT_TRUE(capture.isCapturing());
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
