#include "App/HeadlessBridge.h"

#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "DMX/NWUDPSocket.h"

#include <algorithm>

namespace kelvo {

HeadlessBridge::HeadlessBridge(std::unique_ptr<AppModel> model, LaunchOptions options,
                               std::FILE* out, QObject* parent)
    : QObject(parent), model_(std::move(model)), options_(std::move(options)), out_(out) {
    statusTimer_.setTimerType(Qt::PreciseTimer);
    statusTimer_.setInterval(1000);
    connect(&statusTimer_, &QTimer::timeout, this, &HeadlessBridge::printStatus);
}

std::unique_ptr<AppModel> HeadlessBridge::makeModel(const LaunchOptions& options) {
    AppModelEnvironment environment;
    // The cache is told which server is production because a token stored before tokens were
    // kept per server belongs to production only; the server in use picks its own key.
    environment.cache = std::make_unique<OfflineShowCache>(OfflineShowCache::openUserSettings(),
                                                           BridgeServerConfig::productionURL());
    std::optional<std::filesystem::path> audioFile;
    if (options.audioFile)
        audioFile = *options.audioFile;
    environment.audio = AudioInputPlatform::make(audioFile);
    environment.artnetTransport = std::make_shared<NWUDPSocket>();
    environment.serverURL = QUrl(QString::fromStdString(options.serverURL));
    environment.http = std::make_shared<QtURLSession>();
    environment.leaving = std::make_shared<ThreadedDisconnectNotifier>();
    return std::make_unique<AppModel>(std::move(environment));
}

int HeadlessBridge::signOut(const LaunchOptions& options, std::FILE* out) {
    const QUrl server(QString::fromStdString(options.serverURL));
    OfflineShowCache settings(OfflineShowCache::openUserSettings(),
                              BridgeServerConfig::productionURL());
    const std::optional<std::string> token = settings.authToken(server);
    if (!token) {
        std::fprintf(out, "This bridge is not linked to %s.\n", options.serverURL.c_str());
        return 0;
    }
    ThreadedDisconnectNotifier().notifyAndWait(server, *token, CloudSession::quitDisconnectTimeout);
    settings.clearAuthToken(server);
    std::fprintf(out, "Signed out of %s; run with --pair to link this bridge again.\n",
                 options.serverURL.c_str());
    return 0;
}

void HeadlessBridge::persistLaunchSettings(OfflineShowCache& settings,
                                           const LaunchOptions& options) {
    // Written the way the dashboard writes them: the Art-Net switch, host and auto-fix switch
    // together, so a host given alone on a fresh machine is not lost.
    OutputSettings stored = loadOutputSettings(settings);
    if (options.routes)
        settings.saveRoutes(*options.routes);
    if (options.artnetEnabled || options.artnetHost) {
        if (options.artnetEnabled)
            stored.artnetEnabled = *options.artnetEnabled;
        if (options.artnetHost) {
            const QString host = QString::fromStdString(*options.artnetHost).trimmed();
            if (!host.isEmpty())
                stored.artnetHost = host.toStdString();
        }
        settings.saveArtNetEnabled(stored.artnetEnabled);
        settings.saveArtNetHost(stored.artnetHost);
        settings.saveArtNetAutoFix(stored.artnetAutoFix);
    }
    if (options.enttecEnabled)
        settings.saveEnttecEnabled(*options.enttecEnabled);
}

void HeadlessBridge::chooseAudioDevice(const std::string& uid) {
    // The model listed the devices when it was made, so the choice is in place when start-up
    // opens the capture.
    AudioInputSelectionModel& selection = model_->audioSelection();
    const auto listed = [&selection, uid] {
        const auto& devices = selection.audioInputDevices();
        return std::any_of(devices.begin(), devices.end(),
                           [&](const auto& device) { return device.uid == uid; });
    };
    if (listed()) {
        selection.selectAudioInputDevice(uid);
        return;
    }
    std::fprintf(out_, "Audio input \"%s\" is not connected; using %s until it is.\n", uid.c_str(),
                 selection.audioInputDisplayName().c_str());
    // Plugged in (or its audio server started) later: taken then, once.
    pendingDevice_ = connect(&selection, &AudioInputSelectionModel::audioInputDevicesChanged, this,
                             [this, &selection, uid, listed] {
                                 if (!listed())
                                     return;
                                 disconnect(pendingDevice_);
                                 selection.selectAudioInputDevice(uid);
                             });
}

void HeadlessBridge::start() {
    // Before bootstrap, so capture and the outputs start as asked rather than being switched
    // over a moment later.
    persistLaunchSettings(model_->cache(), options_);
    if (options_.audioDeviceUID)
        chooseAudioDevice(*options_.audioDeviceUID);
    // A venue server may have no browser: the operator opens the page on a phone.
    connect(model_.get(), &AppModel::pairingPageReady, this, [this](const QUrl& page) {
        std::fprintf(out_, "%s\n%s\n", approvalPagePrompt, page.toString().toUtf8().constData());
        std::fflush(out_);
    });
    model_->bootstrap();
    if (options_.pairOnStart)
        model_->startPairing();
    if (options_.recordOnStart)
        model_->toggleAudioRecording();
    if (!model_->engine().hasRealizedShow())
        std::fprintf(out_, "No cached show: the engine waits for a harness and a show (outputs "
                           "hold their last state).\n");
    std::fflush(out_);
    lastStatusTime_ = std::chrono::steady_clock::now();
    lastTicks_ = model_->tickCount();
    lastArtNetPackets_ = model_->dmxOutput().artnetPacketsSent();
    lastEnttecFrames_ = model_->dmxOutput().enttecFramesWritten();
    statusTimer_.start();
}

void HeadlessBridge::printStatus() {
    const auto now = std::chrono::steady_clock::now();
    BridgeStatusSample sample;
    sample.seconds = std::chrono::duration<double>(now - lastStatusTime_).count();
    sample.ticks = model_->tickCount() - lastTicks_;
    sample.beat = model_->beatReadout();
    sample.dropStatus = model_->isDropHeld() ? "held" : model_->engine().dropDiagnostics().status;
    sample.artnetPackets = model_->dmxOutput().artnetPacketsSent() - lastArtNetPackets_;
    sample.enttecFrames = model_->dmxOutput().enttecFramesWritten() - lastEnttecFrames_;
    sample.capturing = model_->mic().isCapturing();
    sample.recording = model_->mic().recording().isRecording();
    if (model_->cloudSession())
        sample.connectionStatus = connectionStatusText(model_->connectionStatus());
    // The message is repeated only when it changes, so a long one does not fill the log.
    if (model_->statusMessage() != lastPrintedStatus_) {
        lastPrintedStatus_ = model_->statusMessage();
        sample.statusMessage = lastPrintedStatus_.toStdString();
    }
    lastStatusTime_ = now;
    lastTicks_ = model_->tickCount();
    lastArtNetPackets_ = model_->dmxOutput().artnetPacketsSent();
    lastEnttecFrames_ = model_->dmxOutput().enttecFramesWritten();
    std::fprintf(out_, "%s\n", formatBridgeStatusLine(sample).c_str());
    std::fflush(out_);
}

void HeadlessBridge::shutdown() {
    if (stopped_)
        return;
    stopped_ = true;
    statusTimer_.stop();
    model_->applicationWillTerminate();
    const auto& recording = model_->mic().recording();
    if (recording.message())
        std::fprintf(out_, "%s\n", recording.message()->toStdString().c_str());
    std::fflush(out_);
}

} // namespace kelvo
