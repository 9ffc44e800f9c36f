#include "Audio/Recording/AudioRecordingController.h"

#include "support/FileBytes.h"
#include "support/QtEventLoop.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

class AudioRecordingControllerTest : public ::testing::Test {
protected:
    void SetUp() override { test::qtApplication(); }
    test::TemporaryDirectory dir;
    AudioRecordingController controller;
};

TEST_F(AudioRecordingControllerTest, StartAndStopPublishTheStateAndTheSavedNotice) {
    controller.setMessage(QStringLiteral("old notice"));
    controller.start(48000, 2, dir.path());
    ASSERT_TRUE(controller.isRecording());
    EXPECT_TRUE(controller.startedAt().has_value()) << "the elapsed time runs from the click";
    EXPECT_FALSE(controller.message().has_value());
    ASSERT_TRUE(test::pumpUntil([&] { return controller.firstFile().has_value(); }));
    const QUuid session = controller.session();
    controller.start(48000, 2, dir.path()); // already recording: nothing changes
    EXPECT_EQ(controller.session(), session);

    controller.stop();
    EXPECT_FALSE(controller.isRecording());
    EXPECT_EQ(controller.message(), QStringLiteral("Recording saved in Downloads."));
}

TEST_F(AudioRecordingControllerTest, StartFailuresAreExplained) {
    controller.start(0, 2, dir.path());
    EXPECT_EQ(
        controller.errorMessage(),
        QStringLiteral("Could not start recording: The audio input format cannot be recorded."));
    EXPECT_FALSE(controller.isRecording());

    test::writeText(dir / "plain-file", "x");
    controller.start(48000, 2, dir / "plain-file" / "sub");
    ASSERT_TRUE(test::pumpUntil([&] { return !controller.isRecording(); }));
    EXPECT_FALSE(controller.startedAt().has_value());
    EXPECT_EQ(controller.errorMessage(),
              QStringLiteral("Could not start recording: Not a directory"));
}

TEST_F(AudioRecordingControllerTest, AWriterFailureStopsTheRecordingUnlessItIsAnEarlierOnes) {
    controller.start(48000, 2, dir.path());
    ASSERT_TRUE(test::pumpUntil([&] { return controller.firstFile().has_value(); }));
    controller.writer().async([this] { controller.writer().fail("No space left on device"); });
    ASSERT_TRUE(test::pumpUntil([&] { return !controller.isRecording(); }));
    EXPECT_EQ(controller.errorMessage(),
              QStringLiteral("Recording stopped: No space left on device"));

    test::TemporaryDirectory second, third;
    controller.start(48000, 2, second.path());
    ASSERT_TRUE(test::pumpUntil([&] { return controller.firstFile().has_value(); }));
    // Its notice is still queued for the main thread when the operator stops and starts again.
    controller.writer().sync([this] { controller.writer().fail("Input/output error"); });
    controller.stop();
    controller.start(48000, 2, third.path());
    test::pumpFor(std::chrono::milliseconds(50));
    EXPECT_TRUE(controller.isRecording());
    EXPECT_FALSE(controller.errorMessage().has_value());
}

} // namespace
} // namespace kelvo
