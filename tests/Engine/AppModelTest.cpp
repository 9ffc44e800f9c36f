#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace kelvo {
namespace {

using nlohmann::json;

class AppModelTest : public testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override { test::qtApplication(); }
};

TEST_F(AppModelTest, StartUpRunsTheLoopWhateverTheCacheHolds) {
    auto empty = makeModel();
    empty->bootstrap();
    EXPECT_TRUE(empty->isEngineLoopRunning());
    EXPECT_TRUE(empty->mic().isCapturing());
    EXPECT_FALSE(empty->hasOfflineWorkspace());
    EXPECT_TRUE(empty->statusMessage().isEmpty());

    // A damaged workspace file leaves the show lit; a harness alone is no workspace.
    seedCache();
    std::ofstream(dir / "cache" / "workspace_ui.json") << "{\"shows\": [ broken";
    auto damaged = makeModel();
    damaged->bootstrap();
    EXPECT_TRUE(damaged->hasOfflineWorkspace());
    EXPECT_TRUE(damaged->shows().empty());
    EXPECT_TRUE(damaged->engine().hasRealizedShow());
    std::filesystem::remove(dir / "cache" / "show_snapshot.json");
    auto harnessOnly = makeModel();
    harnessOnly->bootstrap();
    EXPECT_FALSE(harnessOnly->hasOfflineWorkspace());
}

TEST_F(AppModelTest, WithoutAudioTheLoopLightsOnAndCaptureIsRetriedEveryTwoSeconds) {
    seedCache();
    backend->failStart = true;
    auto model = makeModel();
    model->replaceRoutes({{1, UniverseRoute::Destination::artnet(3)}});
    model->setRoute(0, "enttec", 0); // none the editor offers: nothing changes
    model->setRoute(1, "artnet", 32768);
    model->setRoute(1, "dmx", 0);
    EXPECT_EQ(model->routes(),
              (std::vector<UniverseRoute>{{1, UniverseRoute::Destination::artnet(3)}}));
    model->setArtNetHost("10.0.0.5");
    model->setArtNetEnabled(true);
    model->bootstrap();
    EXPECT_EQ(model->statusMessage(), "Audio input unavailable: The device is busy");
    EXPECT_EQ(discovery->starts, 1);
    EXPECT_EQ(discovery->targets.back(), "10.0.0.5") << "discovery aimed at the output's host";
    model->tick();
    EXPECT_EQ(transport->sent.size(), 1u) << "the cached show goes out on silent hops";

    model->toggleAudioRecording();
    EXPECT_TRUE(model->isEngineLoopRunning()) << "the recording toggle never stops the loop";
    EXPECT_EQ(model->statusMessage(), "Recording needs an available audio input.");

    const std::size_t opened = backend->opened.size();
    timers->advance(std::chrono::milliseconds(1999));
    EXPECT_EQ(backend->opened.size(), opened);
    backend->failStart = false;
    timers->advance(std::chrono::milliseconds(1));
    EXPECT_TRUE(model->mic().isCapturing());
    EXPECT_EQ(model->statusMessage(), "Recording needs an available audio input.")
        << "only the audio complaint is cleared";

    // A stream that dies while the device list stays as it was is retried as well.
    backend->last->running = false;
    backend->last->configurationChanged();
    ASSERT_TRUE(test::pumpUntil([&] { return !model->mic().isCapturing(); }));
    timers->advance(std::chrono::milliseconds(2000));
    EXPECT_TRUE(model->mic().isCapturing());
    model->stopEngineLoop();
    EXPECT_EQ(timers->activeCount(), 0) << "a stopped loop retries nothing";
    model->setArtNetEnabled(false);
    EXPECT_EQ(discovery->targets.back(), std::nullopt) << "switching off re-targets at once";
}

TEST_F(AppModelTest, CaptureStartsAsSoonAsTheDeviceLayerReportsTheServer) {
    auto devices = std::make_shared<test::FakeAudioDeviceLayer>();
    devices->addInput("builtin", "Built-in Microphone", AudioClockTransport::builtIn, 1);
    devices->addInput("djm", "DJM-A9", AudioClockTransport::usb, 16);
    backend->format = {48000, 16};
    backend->failStart = true; // no audio server yet
    auto model = makeModel(devices);
    model->bootstrap();

    // The server is reached: the layer reports back and capture starts without waiting, on
    // the listed mixer's first two channels.
    backend->failStart = false;
    devices->listener();
    ASSERT_TRUE(test::pumpUntil([&] { return model->mic().isCapturing(); }));
    EXPECT_EQ(model->statusMessage(), "");
    EXPECT_EQ(backend->opened.back(), "djm");
    EXPECT_EQ(model->mic().chunker().channelCount(), 2);
}

TEST_F(AppModelTest, PermissionIsAskedOnceARefusalIsExplainedAndAGrantStartsTheRecording) {
    microphone->answerStatus = MicrophoneAuthorizationStatus::notDetermined;
    auto refused = makeModel();
    refused->startEngineLoop();
    refused->toggleAudioRecording();
    EXPECT_EQ(microphone->requests, 1);
    microphone->pending(false);
    const QString text = "Microphone access is required. Enable Kelvo in System Settings → Privacy "
                         "& Security → Microphone.";
    EXPECT_EQ(refused->statusMessage(), text);
    EXPECT_FALSE(refused->isEngineLoopRunning());

    auto granted = makeModel();
    granted->toggleAudioRecording();
    microphone->answerStatus = MicrophoneAuthorizationStatus::authorized;
    microphone->pending(true);
    EXPECT_TRUE(granted->mic().recording().isRecording());
    granted->beginForcedDrop(DropHoldSource::pointer);
    granted->beginForcedDrop(DropHoldSource::keyboard);
    granted->applicationWillTerminate();
    EXPECT_FALSE(granted->mic().recording().isRecording());
    granted->stopEngineLoop();
    EXPECT_FALSE(granted->isDropHeld()) << "a stopped loop releases every drop hold";
    EXPECT_EQ(timers->activeCount(), 0);
}

TEST_F(AppModelTest, SelectionsAndOutputSwitchesSurviveARestart) {
    seedCache();
    {
        auto model = makeModel();
        model->bootstrap();
        model->selectLightingBlend({"chase", "pulse", 0.25});
        model->selectTheme("Ice");
        model->setArtNetHost("10.1.2.3");
        model->setArtNetEnabled(true);
        model->setEnttecEnabled(false);
        model->applicationWillTerminate();
    }
    auto restarted = makeModel();
    restarted->bootstrap();
    EXPECT_EQ(restarted->liveControl().lightingModeSelection(),
              (LightingModeSelection{"chase", "pulse", 0.25}));
    EXPECT_EQ(restarted->selectedThemeName(), "Ice");
    EXPECT_TRUE(restarted->artnetEnabled());
    EXPECT_EQ(restarted->artnetHost(), "10.1.2.3");
    EXPECT_FALSE(restarted->enttecEnabled());
    const auto sent = test::loggedCalls(restarted->engine(), "applyControl");
    EXPECT_TRUE(std::any_of(sent.begin(), sent.end(), [](const json& control) {
        return control.value("modeId", "") == "chase";
    })) << "the restored mode goes to the engine";
}

} // namespace
} // namespace kelvo
