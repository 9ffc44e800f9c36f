#include "Audio/Recording/WAVRecordingFile.h"
#include "support/AppModelRig.h"
#include "support/FileBytes.h"
#include "support/QtEventLoop.h"

#include <QMetaProperty>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <thread>

namespace kelvo {
namespace {

using nlohmann::json;

/// Counts the NOTIFY signals of every property of an object, by property name.
class NotifyCounter : public QObject {
    Q_OBJECT
public:
    explicit NotifyCounter(QObject& watched) : meta_(*watched.metaObject()) {
        const QMetaMethod slot = metaObject()->method(metaObject()->indexOfSlot("notified()"));
        for (int i = meta_.propertyOffset(); i < meta_.propertyCount(); ++i)
            if (meta_.property(i).hasNotifySignal())
                connect(&watched, meta_.property(i).notifySignal(), this, slot,
                        Qt::UniqueConnection);
    }
    /// Property name → notifications since the last call.
    std::map<std::string, int> take() {
        std::map<std::string, int> counts;
        for (const int signal : std::exchange(signals_, {}))
            for (int i = meta_.propertyOffset(); i < meta_.propertyCount(); ++i)
                if (meta_.property(i).notifySignalIndex() == signal)
                    ++counts[meta_.property(i).name()];
        return counts;
    }
public slots:
    void notified() { signals_.push_back(senderSignalIndex()); }

private:
    const QMetaObject& meta_;
    std::vector<int> signals_;
};

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

TEST_F(AppModelTest, AStreamThatFallsSilentIsReopenedAndSaidUntilSoundComes) {
    seedCache();
    auto model = makeModel();
    model->bootstrap();
    const auto hear = [&] {
        backend->last->deliver(std::vector<float>(2 * 4800, 0.1f));
        model->tick();
    };
    hear();
    timers->advance(std::chrono::milliseconds(2000));
    hear();
    model->toggleAudioRecording(); // each toggle tries capture once more: not a check
    model->toggleAudioRecording();
    model->toggleAudioRecording();
    timers->advance(std::chrono::milliseconds(2000));
    EXPECT_EQ(backend->opened.size(), 1u) << "heard between the checks: left alone";
    EXPECT_TRUE(model->statusMessage().isEmpty());

    // A hung or suspended server: the stream stays open and nothing comes.
    model->tick();
    timers->advance(std::chrono::milliseconds(2000));
    EXPECT_EQ(backend->opened.size(), 2u);
    EXPECT_EQ(model->statusMessage(),
              "Audio input unavailable: no sound has come from the input; reopening it");
    timers->advance(std::chrono::milliseconds(2000));
    EXPECT_EQ(backend->opened.size(), 2u) << "a new stream has until the next check";
    EXPECT_EQ(model->statusMessage(),
              "Audio input unavailable: no sound has come from the input; reopening it");
    hear();
    EXPECT_TRUE(model->statusMessage().isEmpty()) << "sound again";
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

TEST_F(AppModelTest, QuitWaitsForASlowDiskToTakeTheLastSamplesOfTheRecording) {
    auto model = makeModel();
    model->toggleAudioRecording();
    AudioRecordingController& recording = model->mic().recording();
    ASSERT_TRUE(test::pumpUntil([&] { return recording.firstFile().has_value(); }));
    EXPECT_EQ(recording.firstFile()->parent_path(), dir / "Downloads");
    recording.writer().setBeforeAppendHook(
        [] { std::this_thread::sleep_for(std::chrono::milliseconds(200)); });
    backend->last->deliver(std::vector<float>(2 * 4800, 0.25f));

    model->applicationWillTerminate();

    const std::filesystem::path wav = *recording.firstFile();
    EXPECT_EQ(test::u32At(test::readBytes(wav), 40), 4800u * 2 * 3);
    EXPECT_FALSE(std::filesystem::exists(WAVRecordingFile::recoveryURLFor(wav)));
    EXPECT_EQ(recording.message(), QString(AudioRecordingController::captureStoppedText));
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

TEST_F(AppModelTest, PropertiesNotifyOnceOnAChangeAndNeverOnARepeat) {
    seedCache();
    makeCache()->saveWorkspaceUI(
        {.shows = {{"s1", "Club", true, false}},
         .selectedShowId = "s1",
         .lightingModes = {{"m1", "pulse", "Pulse", "general", 0, true, {}, {}}},
         .selectedModeId = "pulse",
         .themes = {{"Ice", {{0, 0, 1}}, {}, false, false}},
         .selectedThemeName = "Ice"});
    auto model = makeModel();
    NotifyCounter counter(*model);
    model->bootstrap();
    model->beginForcedDrop(DropHoldSource::pointer);
    counter.take();

    // The same values again, through every path that can set them.
    model->restoreWorkspaceUIFromCache();
    model->replaceRoutes(model->routes());
    model->setArtNetHost(" 127.0.0.1 ");
    model->setEnttecEnabled(model->enttecEnabled());
    model->setDesk(model->desk());
    model->setDeskLevel(0, 0.0);
    model->applyLiveControlState({{"mode", "pulse"}, {"theme_name", "Ice"}});
    model->selectLightingBlend({"pulse", std::nullopt, 0.0});
    model->selectTheme("Ice");
    model->beginForcedDrop(DropHoldSource::keyboard);
    EXPECT_EQ(counter.take(), (std::map<std::string, int>{})) << "a repeat notifies nothing";

    // Each real change notifies its own property once.
    model->changeRouteDestination(1, UniverseRoute::Destination::artnet(3));
    model->setDeskLevel(2, 0.5);
    model->setArtNetHost("10.0.0.9");
    model->applyLiveControlState({{"mode", "chase"}, {"mode_lerp", 0.25}, {"theme_name", "Ice"}});
    model->endForcedDrop(DropHoldSource::pointer);
    model->endForcedDrop(DropHoldSource::keyboard);
    // The route of the desk's universe changed, so the desk's route line did too.
    EXPECT_EQ(counter.take(), (std::map<std::string, int>{{"routes", 1},
                                                          {"deskRouteLine", 1},
                                                          {"deskLevels", 1},
                                                          {"artnetHost", 1},
                                                          {"selectedModeId", 1},
                                                          {"selectedModeLerp", 1},
                                                          {"isDropHeld", 1}}));
}

} // namespace
} // namespace kelvo

#include "AppModelTest.moc"
