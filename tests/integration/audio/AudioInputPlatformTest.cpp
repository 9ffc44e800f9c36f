#include "Audio/AudioInputPlatform.h"
#include "Audio/Capture/MicCapture.h"

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

} // namespace
} // namespace kelvo
