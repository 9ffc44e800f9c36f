#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <QMetaProperty>

#include <gtest/gtest.h>

#include <fstream>

namespace kelvo {
namespace {

using nlohmann::json;

/// Counts the NOTIFY signals of every property of an object, by property name.
class NotifyCounter : public QObject {
    Q_OBJECT
public:
    explicit NotifyCounter(QObject& watched) {
        const QMetaObject& meta = *watched.metaObject();
        const QMetaMethod slot = metaObject()->method(metaObject()->indexOfSlot("notified()"));
        for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
            const QMetaProperty property = meta.property(i);
            if (!property.hasNotifySignal())
                continue;
            names_[property.notifySignalIndex()].push_back(property.name());
            connect(&watched, property.notifySignal(), this, slot);
        }
    }
    /// Property name → notifications since the last call.
    std::map<std::string, int> take() { return std::exchange(counts_, {}); }

public slots:
    void notified() {
        for (const std::string& name : names_[senderSignalIndex()])
            ++counts_[name];
    }

private:
    std::map<int, std::vector<std::string>> names_;
    std::map<std::string, int> counts_;
};

class AppModelTest : public testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override { test::qtApplication(); }

    void enableArtNet(AppModel& model) {
        model.replaceRoutes({{1, UniverseRoute::Destination::artnet(3)}});
        model.setArtNetEnabled(true);
    }

    void feedAudio() {
        backend->last->deliver(std::vector<float>(2 * 512, 0.25f));
        test::pumpFor(std::chrono::milliseconds(20));
    }
};

TEST_F(AppModelTest, EmptyCacheStillStartsTheLoopAndCapture) {
    auto model = makeModel();
    model->bootstrap();
    EXPECT_TRUE(model->isEngineLoopRunning());
    EXPECT_TRUE(model->mic().isCapturing());
    EXPECT_FALSE(model->hasOfflineWorkspace());
    EXPECT_FALSE(model->engine().hasRealizedShow());
    EXPECT_TRUE(model->shows().empty());
    model->tick();
    EXPECT_TRUE(transport->sent.empty());
    EXPECT_TRUE(model->statusMessage().isEmpty());
}

TEST_F(AppModelTest, HarnessWithoutSnapshotIsNoOfflineWorkspace) {
    seedCache(false);
    auto model = makeModel();
    model->bootstrap();
    EXPECT_TRUE(model->engine().hasContext());
    EXPECT_FALSE(model->hasOfflineWorkspace());
    EXPECT_TRUE(model->isEngineLoopRunning());
}

TEST_F(AppModelTest, DamagedWorkspaceFileDoesNotStopStartUp) {
    seedCache();
    std::ofstream(dir / "cache" / "workspace_ui.json") << "{\"shows\": [ broken";
    auto model = makeModel();
    model->bootstrap();
    EXPECT_TRUE(model->hasOfflineWorkspace());
    EXPECT_TRUE(model->shows().empty());
    EXPECT_TRUE(model->isEngineLoopRunning());
    EXPECT_TRUE(model->engine().hasRealizedShow());
}

TEST_F(AppModelTest, CachedShowLightsArtNetWithASharedSequence) {
    seedCache();
    auto model = makeModel();
    model->bootstrap();
    enableArtNet(*model);
    ASSERT_TRUE(model->engine().hasRealizedShow());
    feedAudio();
    for (int i = 0; i < 3; ++i)
        model->tick();
    ASSERT_EQ(transport->sent.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& packet = transport->sent[i];
        EXPECT_EQ(packet.host, "127.0.0.1");
        EXPECT_EQ(packet.port, 6454);
        ASSERT_GE(packet.datagram.size(), 21u);
        EXPECT_EQ(packet.datagram[12], i + 1) << "sequence runs across ticks";
        EXPECT_EQ(packet.datagram[14], 3) << "Art-Net universe of the route";
        EXPECT_EQ(packet.datagram[18], 10);
        EXPECT_EQ(packet.datagram[20], 30);
    }
    EXPECT_EQ(model->dmxOutput().artnetPacketsSent(), 3u);
}

TEST_F(AppModelTest, DeskTakesItsChannelsAndThePreviewShowsIt) {
    seedCache();
    auto model = makeModel();
    model->bootstrap();
    enableArtNet(*model);
    feedAudio();
    LightingDeskState desk;
    desk.live = true;
    desk.universe = 1;
    desk.levels = {1.0};
    desk.levels.resize(24, 0.0);
    model->setDesk(desk);
    model->tick();
    ASSERT_EQ(model->dmxPreview().at(1).size(), 512u);
    EXPECT_EQ(model->dmxPreview().at(1)[0], 255);
    EXPECT_EQ(model->dmxPreview().at(1)[1], 0) << "the desk owns channels 1…24";
    EXPECT_EQ(transport->sent.back().datagram[18], 255);
}

TEST_F(AppModelTest, WithoutAudioTheLoopLightsOnAndCaptureIsRetriedEveryTwoSeconds) {
    seedCache();
    backend->failStart = true;
    auto model = makeModel();
    enableArtNet(*model);
    model->bootstrap();
    EXPECT_TRUE(model->isEngineLoopRunning());
    EXPECT_EQ(model->statusMessage(), "Audio input unavailable: The device is busy");
    model->tick();
    EXPECT_EQ(transport->sent.size(), 1u) << "the cached show goes out on silent hops";

    model->toggleAudioRecording();
    EXPECT_TRUE(model->isEngineLoopRunning()) << "the recording toggle never stops the loop";
    EXPECT_EQ(model->statusMessage(), "Recording needs an available audio input.");
    EXPECT_EQ(model->mic().recording().message(),
              QString("Recording needs an available audio input."));

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
}

TEST_F(AppModelTest, PermissionIsAskedOnceAndARefusalIsExplained) {
    microphone->answerStatus = MicrophoneAuthorizationStatus::notDetermined;
    auto model = makeModel();
    model->startEngineLoop();
    model->startEngineLoop();
    EXPECT_EQ(microphone->requests, 1);
    EXPECT_FALSE(model->isEngineLoopRunning());
    microphone->pending(false);
    const QString text = "Microphone access is required. Enable Kelvo in System Settings → Privacy "
                         "& Security → Microphone.";
    EXPECT_EQ(model->statusMessage(), text);
    EXPECT_EQ(model->mic().recording().errorMessage(), text);

    microphone->answerStatus = MicrophoneAuthorizationStatus::denied;
    model->setStatusMessage("");
    model->startEngineLoop();
    EXPECT_EQ(model->statusMessage(), text);
    EXPECT_EQ(microphone->requests, 1);
}

TEST_F(AppModelTest, GrantedPermissionStartsThePendingRecording) {
    microphone->answerStatus = MicrophoneAuthorizationStatus::notDetermined;
    auto model = makeModel();
    model->toggleAudioRecording();
    EXPECT_FALSE(model->mic().recording().isRecording());
    microphone->answerStatus = MicrophoneAuthorizationStatus::authorized;
    microphone->pending(true);
    EXPECT_TRUE(model->isEngineLoopRunning());
    EXPECT_TRUE(model->mic().recording().isRecording());
    model->applicationWillTerminate();
    EXPECT_FALSE(model->mic().recording().isRecording());
}

TEST_F(AppModelTest, StoppingTheLoopReleasesEveryDropHold) {
    seedCache();
    auto model = makeModel();
    model->bootstrap();
    model->beginForcedDrop(DropHoldSource::pointer);
    model->beginForcedDrop(DropHoldSource::keyboard);
    EXPECT_TRUE(model->isDropHeld());
    model->stopEngineLoop();
    EXPECT_FALSE(model->isDropHeld());
    EXPECT_FALSE(model->mic().isCapturing());
    EXPECT_EQ(timers->activeCount(), 0);
}

TEST_F(AppModelTest, SelectionsSurviveARestart) {
    seedCache();
    {
        auto model = makeModel();
        model->bootstrap();
        model->selectLightingBlend({"chase", "pulse", 0.25});
        model->selectTheme("Ice");
    }
    auto restarted = makeModel();
    restarted->bootstrap();
    EXPECT_EQ(restarted->liveControl().selectedModeId(), "chase");
    EXPECT_EQ(restarted->liveControl().selectedModeTo(), "pulse");
    EXPECT_EQ(restarted->liveControl().selectedModeLerp(), 0.25);
    EXPECT_EQ(restarted->liveControl().selectedThemeName(), "Ice");
    const json log = json::parse(restarted->engine().interpretationPayload().value())["log"];
    bool modeSent = false;
    for (const json& entry : log)
        modeSent =
            modeSent || (entry[0] == "applyControl" && entry[1].value("modeId", "") == "chase");
    EXPECT_TRUE(modeSent) << "the restored mode goes to the engine";
}

TEST_F(AppModelTest, PropertiesNotifyOnceOnAChangeAndNeverOnARepeat) {
    seedCache();
    {
        OfflineWorkspaceUIState workspace;
        workspace.shows = {{"s1", "Club", true, false}};
        workspace.selectedShowId = "s1";
        workspace.lightingModes = {{"m1", "pulse", "Pulse", "general", 0, true, {}, {}}};
        workspace.selectedModeId = "pulse";
        workspace.themes = {{"Ice", {{0, 0, 1}}, {}, false, false}};
        workspace.selectedThemeName = "Ice";
        workspace.selectedModeLerp = 0.0;
        makeCache()->saveWorkspaceUI(workspace);
    }
    auto model = makeModel();
    NotifyCounter counter(*model);
    model->bootstrap();
    const std::map<std::string, int> startUp = counter.take();
    for (const char* name :
         {"shows", "selectedShowId", "lightingModes", "themes", "selectedModeId",
          "selectedThemeName", "hasOfflineWorkspace", "serverURLString", "dropDiagnostics"})
        EXPECT_EQ(startUp.count(name) ? startUp.at(name) : 0, 1) << name;
    EXPECT_EQ(startUp.count("routes"), 0u) << "nothing stored: the defaults stay";

    model->beginForcedDrop(DropHoldSource::pointer);
    counter.take();

    // The same values again, through every path that can set them.
    const LightingDeskState desk = model->desk();
    model->restoreWorkspaceUIFromCache();
    model->replaceRoutes(model->routes());
    model->setArtNetHost(" 127.0.0.1 ");
    model->setArtNetEnabled(model->artnetEnabled());
    model->setEnttecEnabled(model->enttecEnabled());
    model->setDesk(desk);
    model->setDeskLevel(0, desk.levels[0]);
    model->applyLiveControlState({{"mode", "pulse"}, {"theme_name", "Ice"}});
    model->selectLightingBlend({"pulse", std::nullopt, 0.0});
    model->selectTheme("Ice");
    model->pushThemesToEngine();
    model->beginForcedDrop(DropHoldSource::keyboard);
    EXPECT_EQ(counter.take(), (std::map<std::string, int>{})) << "a repeat notifies nothing";

    // Each real change notifies its own property once.
    model->replaceRoutes({{1, UniverseRoute::Destination::artnet(3)}});
    EXPECT_EQ(counter.take(), (std::map<std::string, int>{{"routes", 1}}));
    model->setDeskLevel(2, 0.5);
    EXPECT_EQ(counter.take(), (std::map<std::string, int>{{"deskLevels", 1}}));
    model->setDeskLive(true);
    EXPECT_EQ(counter.take(), (std::map<std::string, int>{{"deskLive", 1}}));
    model->applyLiveControlState({{"mode", "chase"}, {"mode_lerp", 0.25}, {"theme_name", "Ice"}});
    EXPECT_EQ(counter.take(),
              (std::map<std::string, int>{{"selectedModeId", 1}, {"selectedModeLerp", 1}}));
    model->setArtNetHost("10.0.0.9");
    EXPECT_EQ(counter.take(), (std::map<std::string, int>{{"artnetHost", 1}}));
    model->endForcedDrop(DropHoldSource::pointer);
    model->endForcedDrop(DropHoldSource::keyboard);
    EXPECT_EQ(counter.take(), (std::map<std::string, int>{{"isDropHeld", 1}}));
}

TEST_F(AppModelTest, OutputSwitchesPersistUnderTheSettingsKeys) {
    {
        auto model = makeModel();
        model->setArtNetHost("10.1.2.3");
        model->setArtNetEnabled(true);
        model->setEnttecEnabled(false);
    }
    QSettings settings(settingsPath(), QSettings::IniFormat);
    EXPECT_EQ(settings.value("kelvo.bridge.artnet_host").toString(), "10.1.2.3");
    EXPECT_EQ(settings.value("kelvo.bridge.artnet_enabled").toBool(), true);
    EXPECT_EQ(settings.value("kelvo.bridge.enttec_enabled").toBool(), false);
    auto restarted = makeModel();
    restarted->bootstrap();
    EXPECT_TRUE(restarted->artnetEnabled());
    EXPECT_EQ(restarted->artnetHost(), "10.1.2.3");
    EXPECT_FALSE(restarted->enttecEnabled());
}

TEST_F(AppModelTest, CaptureStartsOnTheListedMixerAndFollowsTheDeviceLayer) {
    auto devices = std::make_shared<test::FakeAudioDeviceLayer>();
    devices->addInput("builtin", "Built-in Microphone", AudioClockTransport::builtIn, 1);
    devices->addInput("djm", "DJM-A9", AudioClockTransport::usb, 16);
    backend->format = {48000, 16};
    auto model = makeModel(devices);
    model->bootstrap();
    ASSERT_TRUE(model->mic().isCapturing());
    using Opened = std::vector<std::optional<std::string>>;
    EXPECT_EQ(backend->opened, Opened{"djm"}) << "the first start is on the mixer, not the default";
    EXPECT_EQ(model->mic().chunker().channelCount(), 2);
    EXPECT_EQ(model->mic().recordingChannels(), 2);
    EXPECT_EQ(model->audioSelection().audioInputDisplayName(), "DJM-A9");

    // The layer reports the mixer unplugged: capture moves to the microphone, all channels.
    devices->records.erase(devices->records.begin() + 1);
    ASSERT_TRUE(devices->listener);
    devices->listener();
    ASSERT_TRUE(test::pumpUntil([&] { return backend->opened.size() == 2; }));
    EXPECT_EQ(backend->opened.back(), "builtin");
    EXPECT_EQ(model->mic().chunker().channelCount(), std::nullopt);
    EXPECT_TRUE(model->mic().isCapturing());

    // Back again while the microphone was preferred: the first USB device wins.
    model->audioSelection().setPreferMicrophoneOverUSB(true);
    devices->addInput("djm", "DJM-A9", AudioClockTransport::usb, 16);
    devices->listener();
    ASSERT_TRUE(test::pumpUntil([&] { return backend->opened.size() == 3; }));
    EXPECT_EQ(backend->opened.back(), "djm");
    EXPECT_EQ(model->mic().chunker().channelCount(), 2);
    EXPECT_FALSE(model->audioSelection().preferMicrophoneOverUSB());
}

TEST_F(AppModelTest, LostCaptureResumesWhenTheDeviceLayerReportsBack) {
    auto devices = std::make_shared<test::FakeAudioDeviceLayer>();
    devices->addInput("builtin", "Built-in Microphone", AudioClockTransport::builtIn, 1);
    backend->failStart = true; // no audio server yet
    auto model = makeModel(devices);
    model->bootstrap();
    EXPECT_EQ(model->statusMessage(), "Audio input unavailable: The device is busy");

    // The server is reached: the layer reports back and capture starts without waiting.
    backend->failStart = false;
    devices->listener();
    ASSERT_TRUE(test::pumpUntil([&] { return model->mic().isCapturing(); }));
    EXPECT_EQ(model->statusMessage(), "");
    EXPECT_EQ(backend->opened.back(), "builtin");

    // A loop the operator stopped stays stopped.
    model->stopEngineLoop();
    devices->listener();
    test::pumpFor(std::chrono::milliseconds(20));
    EXPECT_FALSE(model->isEngineLoopRunning());
    EXPECT_FALSE(model->mic().isCapturing());
}

} // namespace
} // namespace kelvo

#include "AppModelTest.moc"
