#include "App/HeadlessBridge.h"

#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "DMX/ArtNetDiscovery.h"
#include "DMX/NWUDPSocket.h"

#include <algorithm>

namespace kelvo {

HeadlessBridge::HeadlessBridge(std::unique_ptr<AppModel> model, LaunchOptions options,
                               std::FILE* out, QObject* parent)
    : QObject(parent), model_(std::move(model)), options_(std::move(options)), out_(out) {
    statusTimer_.setTimerType(Qt::PreciseTimer);
    statusTimer_.setInterval(1000);
    connect(&statusTimer_, &QTimer::timeout, this, &HeadlessBridge::printStatus);
    // A repair the bridge made by itself is told once, when it happens.
    connect(model_.get(), &AppModel::artnetAutoFixApplied, this,
            [this](const QString& text) { printLine(text.toStdString()); });
}

std::unique_ptr<AppModel> HeadlessBridge::makeModel(const LaunchOptions& options) {
    AppModelEnvironment environment;
    // The settings are told which server is production because a token stored before tokens
    // were kept per server belongs to production only; the server in use picks its own key.
    environment.settings = std::make_unique<BridgeSettings>(BridgeSettings::openUserSettings(),
                                                            BridgeServerConfig::productionURL());
    environment.cache = std::make_unique<OfflineShowCache>();
    std::optional<std::filesystem::path> audioFile;
    if (options.audioFile)
        audioFile = *options.audioFile;
    environment.audio = AudioInputPlatform::make(audioFile);
    environment.artnetTransport = std::make_shared<NWUDPSocket>();
    environment.artnetDiscovery = std::make_shared<ArtNetDiscovery>();
    environment.serverURL = QUrl(QString::fromStdString(options.serverURL));
    environment.http = std::make_shared<QtURLSession>();
    environment.leaving = std::make_shared<ThreadedDisconnectNotifier>();
    return std::make_unique<AppModel>(std::move(environment));
}

int HeadlessBridge::signOut(const LaunchOptions& options, std::FILE* out) {
    const QUrl server(QString::fromStdString(options.serverURL));
    BridgeSettings settings(BridgeSettings::openUserSettings(),
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

void HeadlessBridge::persistLaunchSettings(OutputSettingsStore& settings,
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
    // Taken whenever it is listed, so in place before start-up opens the capture when the list
    // is already there, and again after an unplug.
    AudioInputSelectionModel& selection = model_->audioSelection();
    selection.preferAudioInputDevice(uid);
    const auto sayIfAbsent = [this, &selection, uid] {
        const auto& devices = selection.audioInputDevices();
        if (std::none_of(devices.begin(), devices.end(),
                         [&](const auto& device) { return device.uid == uid; }))
            printLine("Audio input \"" + uid + "\" is not connected; using " +
                      selection.audioInputDisplayName() + " until it is.");
    };
    if (!selection.audioInputDevices().empty()) {
        sayIfAbsent();
        return;
    }
    // The audio server is still being asked: judged by its first list, once the choice is made.
    pendingDevice_ = connect(
        &selection, &AudioInputSelectionModel::audioInputDevicesChanged, this,
        [this, sayIfAbsent] {
            disconnect(pendingDevice_);
            sayIfAbsent();
        },
        Qt::QueuedConnection);
}

void HeadlessBridge::start() {
    // Before bootstrap, so capture and the outputs start as asked rather than being switched
    // over a moment later.
    persistLaunchSettings(model_->outputSettingsStore(), options_);
    if (options_.audioDeviceUID)
        chooseAudioDevice(*options_.audioDeviceUID);
    // A venue server may have no browser: the operator opens the page on a phone.
    connect(model_.get(), &AppModel::pairingPageReady, this, [this](const QUrl& page) {
        printLine(std::string(approvalPagePrompt) + "\n" + page.toString().toStdString());
    });
    model_->bootstrap();
    if (options_.pairOnStart)
        model_->startPairing();
    if (options_.recordOnStart)
        model_->toggleAudioRecording();
    if (!model_->engine().hasRealizedShow())
        printLine("No cached show: the engine waits for a harness and a show (outputs hold their "
                  "last state).");
    lastStatusTime_ = model_->clock().now();
    lastStatus_ = model_->statusSnapshot();
    statusTimer_.start();
}

void HeadlessBridge::printStatus() {
    const MonotonicClock::Duration now = model_->clock().now();
    const AppStatusSnapshot status = model_->statusSnapshot();
    BridgeStatusSample sample{
        .seconds = std::chrono::duration<double>(now - lastStatusTime_).count(),
        .ticks = status.tickCount - lastStatus_.tickCount,
        .beat = status.beat,
        .dropStatus = status.dropStatus,
        .artnetPackets = status.artnetPacketsSent - lastStatus_.artnetPacketsSent,
        .artnetHealth = status.artnetHealth,
        .enttecFrames = status.enttecFramesWritten - lastStatus_.enttecFramesWritten,
        .capturing = status.capturing,
        .recording = status.recording,
        .connectionStatus = status.connectionStatus,
        .statusMessage = {}};
    // The message is repeated only when it changes, so a long one does not fill the log.
    if (status.statusMessage != lastStatus_.statusMessage || !printedStatusYet_) {
        sample.statusMessage = status.statusMessage;
        printedStatusYet_ = true;
    }
    lastStatusTime_ = now;
    lastStatus_ = status;
    printLine(formatBridgeStatusLine(sample));
}

void HeadlessBridge::printLine(const std::string& line) {
    std::string text;
    if (linesLost_ > 0) {
        char note[96];
        std::snprintf(note, sizeof note, linesLostNote, linesLost_);
        text = std::string(note) + "\n";
    }
    text += line + "\n";
    // One write of the whole text: a stalled output refuses it at once and whole.
    if (std::fputs(text.c_str(), out_) < 0 || std::fflush(out_) != 0) {
        std::clearerr(out_);
        ++linesLost_;
        return;
    }
    linesLost_ = 0;
}

void HeadlessBridge::shutdown() {
    if (stopped_)
        return;
    stopped_ = true;
    statusTimer_.stop();
    model_->applicationWillTerminate();
    // What a slow disk kept from the recording is said.
    if (const auto& message = model_->mic().recording().message())
        printLine(message->toStdString());
}

} // namespace kelvo
