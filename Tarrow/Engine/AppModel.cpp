#include "Engine/AppModel.h"

#include "DMX/NWUDPSocket.h"
#include "Engine/ArtNetVariants.h"
#include "Engine/BundledHarness.h"
#include "Engine/CaptureKeeper.h"
#include "Engine/ModelVariants.h"
#include "Support/ChangeNotification.h"
#include "Support/Logging.h"

namespace kelvo {

namespace {

/// Without discovery nothing is heard; health then never gets past "searching".
class NoArtNetDiscovery final : public ArtNetDiscovering {
public:
    void start() override {}
    void setUnicastTarget(std::optional<std::string>) override {}
    ArtNetDiscoveryState snapshot() const override { return {}; }
};

} // namespace

/// The capture as the engine loop sees it, and what keeps it running while the loop wants it.
/// Capture may start later than asked (the audio server is reached off the main thread): its
/// outcome clears or sets the complaint and finishes a recording start that waited for it.
class AppModel::CaptureHopSource final : public HopSource {
public:
    explicit CaptureHopSource(AppModel& model)
        : model_(model), mic_(*model.mic_), keeper_(*model.environment_.timers) {
        started_ = QObject::connect(&mic_, &MicCapture::isCapturingChanged, &model, [this] {
            if (mic_.isCapturing())
                captureStarted();
        });
        failed_ = QObject::connect(&mic_, &MicCapture::startFailed, &model,
                                   [this](const QString& reason) { captureFailed(reason); });
        QObject::connect(&keeper_, &CaptureKeeper::attemptDue, &keeper_, [this] { check(); });
    }
    ~CaptureHopSource() override {
        QObject::disconnect(started_);
        QObject::disconnect(failed_);
    }
    bool isCapturing() const override { return mic_.isCapturing(); }
    std::vector<MicHop> takePendingHops() override {
        std::vector<MicHop> hops = mic_.takePendingHops();
        if (!hops.empty()) {
            heardSinceCheck_ = true;
            if (std::exchange(wentSilent_, false))
                clearComplaint();
        }
        return hops;
    }
    CaptureKeeper& keeper() { return keeper_; }

    /// Starts capture on the chosen input unless it runs or is starting; true when it runs or
    /// is starting.
    bool attempt() {
        if (mic_.isCapturing() || mic_.isStarting())
            return true;
        return open();
    }

private:
    /// The keeper's periodic check: starts capture, or reopens a running stream that was silent
    /// since the last check, and says so.
    void check() {
        if (mic_.isCapturing() && !mic_.isStarting() && !std::exchange(heardSinceCheck_, false)) {
            wentSilent_ = true;
            model_.setStatusMessage(QString(audioUnavailablePrefix) + inputSilentText);
            open();
            return;
        }
        attempt();
    }

    bool open() {
        try {
            model_.audioSelection_->applyAudioInputSelection(false);
            model_.engine_.replaceDropDetector();
            mic_.start(model_.audioSelection_->activeAudioDeviceUID(),
                       model_.captureChannelCount());
        } catch (const std::exception& error) {
            captureFailed(QString::fromUtf8(error.what()));
            return false;
        }
        return true;
    }

    void clearComplaint() {
        if (model_.statusMessage_.startsWith(QLatin1String(audioUnavailablePrefix)))
            model_.setStatusMessage({});
    }

    void captureStarted() {
        // A new stream has until the next check to be heard. The complaint about the input is
        // stale once it listens again; after silence, once sound comes.
        heardSinceCheck_ = true;
        if (!wentSilent_)
            clearComplaint();
        if (model_.pendingRecordingStart_ && !model_.requestingAudioPermission_) {
            model_.pendingRecordingStart_ = false;
            mic_.recording().start(static_cast<int>(mic_.sampleRate()), mic_.recordingChannels(),
                                   model_.environment_.recordingDirectory);
        }
    }

    void captureFailed(const QString& reason) {
        model_.setStatusMessage(QString(audioUnavailablePrefix) + reason);
        if (model_.pendingRecordingStart_ && !model_.requestingAudioPermission_ &&
            !mic_.isStarting()) {
            model_.pendingRecordingStart_ = false;
            model_.setStatusMessage(recordingNeedsInputText);
            mic_.recording().setMessage(QString(recordingNeedsInputText));
        }
    }

    AppModel& model_;
    MicCapture& mic_;
    CaptureKeeper keeper_;
    bool heardSinceCheck_ = false;
    bool wentSilent_ = false;
    QMetaObject::Connection started_;
    QMetaObject::Connection failed_;
};

AppModel::AppModel(AppModelEnvironment environment, QObject* parent)
    : QObject(parent), environment_(std::move(environment)),
      settings_(std::move(environment_.settings)), outputStore_(*settings_),
      cache_(std::move(environment_.cache)),
      mic_(new MicCapture(environment_.audio.backend, nullptr, MicCapture::fallbackSampleRate,
                          this)),
      audioMonitor_(new AudioInputDeviceMonitor(environment_.audio.deviceLayer, this)),
      audioSelection_(nullptr),
      dmxOutput_(std::move(environment_.enttec), environment_.artnetTransport),
      outputs_(dmxOutput_, outputStore_), hopSource_(std::make_unique<CaptureHopSource>(*this)),
      engineLoop_(engine_, *hopSource_, *environment_.clock),
      tickScheduler_(std::chrono::nanoseconds(1'000'000'000) / 60, this),
      dropHold_(*environment_.timers),
      liveControl_(engine_, *environment_.clock, liveControlQueries()),
      artnetDiscovery_(environment_.artnetDiscovery ? environment_.artnetDiscovery
                                                    : std::make_shared<NoArtNetDiscovery>()),
      artnetMonitor_(makeArtNetMonitor()) {
    connect(&outputs_, &OutputConfiguration::discoveryTargetSet, this,
            [discovery = artnetDiscovery_](const std::optional<std::string>& target) {
                discovery->setUnicastTarget(target);
            });
    connect(&dropHold_, &ForcedDropHold::engineForcedDrop, this,
            [this](bool on) { engine_.setForcedDrop(on); });
    connect(&dropHold_, &ForcedDropHold::heldChanged, this, &AppModel::isDropHeldChanged);
    // The dashboard hears of the tick's trace and beat once the tick, sends included, is done.
    connect(&engineLoop_, &EngineLoop::micTraceChanged, this, &AppModel::micTraceChanged,
            Qt::QueuedConnection);
    connect(&engineLoop_, &EngineLoop::beatReadoutChanged, this, &AppModel::beatReadoutChanged,
            Qt::QueuedConnection);
    connect(&engineLoop_, &EngineLoop::visualsRefreshed, this, &AppModel::visualsRefreshed);
    connect(&engineLoop_, &EngineLoop::frameReady, this, &AppModel::outputMergedDmx);
    forwardComponentSignals();
    for (auto changed :
         {&AppModel::routesChanged, &AppModel::deskLiveChanged, &AppModel::deskUniverseChanged})
        connect(this, changed, this, &AppModel::refreshDeskRouteLine);
    refreshDeskRouteLine();
    audioSelection_ = new AudioInputSelectionModel(this);
    connect(audioSelection_, &AudioInputSelectionModel::captureRestartNeeded, this,
            [this](const std::optional<std::string>& uid, std::optional<int> channels) {
                if (!isEngineLoopRunning())
                    return; // the loop's next start captures from the new choice
                engine_.replaceDropDetector();
                try {
                    mic_->start(uid, channels);
                } catch (const AudioInputException& e) {
                    setStatusMessage(QString(audioUnavailablePrefix) + QString::fromUtf8(e.what()));
                }
            });
    connect(audioSelection_, &AudioInputSelectionModel::audioInputDevicesChanged, this,
            &AppModel::audioInputDevicesChanged);
    // The monitor lists the devices and follows them for the life of the model. The choice
    // follows it from here on, so the engine loop's first start captures from the chosen
    // device (a mixer, a picked device) instead of the default; changes restart capture only
    // once the loop runs.
    audioMonitor_->refresh();
    audioMonitor_->startListening();
    // Queued, so a restart for a changed device list has happened first.
    connect(audioMonitor_, &AudioInputDeviceMonitor::listed, this, &AppModel::resumeCaptureIfLost,
            Qt::QueuedConnection);
    audioSelection_->startAudioDeviceMonitoring(*audioMonitor_);
    makeCloudLink();
}

AppModel::~AppModel() {
    tickScheduler_.stop();
    mic_->stop();
}

void AppModel::forwardComponentSignals() {
    connect(&outputs_, &OutputConfiguration::routesChanged, this, &AppModel::routesChanged);
    connect(&outputs_, &OutputConfiguration::artnetEnabledChanged, this,
            &AppModel::artnetEnabledChanged);
    connect(&outputs_, &OutputConfiguration::artnetHostChanged, this, &AppModel::artnetHostChanged);
    connect(&outputs_, &OutputConfiguration::artnetAutoFixChanged, this,
            &AppModel::artnetAutoFixChanged);
    connect(&outputs_, &OutputConfiguration::enttecEnabledChanged, this,
            &AppModel::enttecEnabledChanged);

    connect(&desk_, &LightingDesk::liveChanged, this, &AppModel::deskLiveChanged);
    connect(&desk_, &LightingDesk::universeChanged, this, &AppModel::deskUniverseChanged);
    connect(&desk_, &LightingDesk::levelsChanged, this, &AppModel::deskLevelsChanged);
    connect(&desk_, &LightingDesk::grandMasterChanged, this, &AppModel::deskGrandMasterChanged);
    connect(&desk_, &LightingDesk::blackoutChanged, this, &AppModel::deskBlackoutChanged);

    connectLiveControl();

    // The previous file is intact; lighting goes on, the operator learns the cache is stale.
    connect(cache_.get(), &OfflineShowCache::workspaceSaveFailed, this,
            [this](const QString& reason) {
                lastSavedWorkspace_.reset(); // the next change tries again
                setStatusMessage(QString::fromUtf8(workspaceNotSavedPrefix) + reason);
            });
}

std::optional<nlohmann::json> AppModel::themePayloads() const {
    if (themes_.empty())
        return std::nullopt;
    nlohmann::json payloads = nlohmann::json::array();
    for (const ThemeOption& theme : themes_)
        payloads.push_back(theme.enginePayload());
    return payloads;
}

void AppModel::setStatusMessage(const QString& message) {
    setAndNotify(statusMessage_, message, this, &AppModel::statusMessageChanged);
}

void AppModel::publishSelections() {
    PublishedSelections& published = publishedSelections_;
    setAndNotify(published.modeId, liveControl_.selectedModeId(), this,
                 &AppModel::selectedModeIdChanged);
    setAndNotify(published.modeTo, liveControl_.selectedModeTo(), this,
                 &AppModel::selectedModeToChanged);
    setAndNotify(published.modeLerp, liveControl_.selectedModeLerp(), this,
                 &AppModel::selectedModeLerpChanged);
    setAndNotify(published.themeName, liveControl_.selectedThemeName(), this,
                 &AppModel::selectedThemeNameChanged);
}

AppStatusSnapshot AppModel::statusSnapshot() const {
    return {.tickCount = tickCount(),
            .beat = beatReadout(),
            .dropStatus = isDropHeld() ? "held" : engine_.dropDiagnostics().status,
            .artnetPacketsSent = dmxOutput_.artnetPacketsSent(),
            .artnetHealth = artnetHealth().headline(),
            .enttecFramesWritten = dmxOutput_.enttecFramesWritten(),
            .capturing = mic_->isCapturing(),
            .recording = mic_->recording().isRecording(),
            .connectionStatus = cloud_ ? kelvo::connectionStatusText(connectionStatus()) : "",
            .statusMessage = statusMessage_.toStdString()};
}

void AppModel::bootstrap() {
    setAndNotify(serverURLString_, environment_.serverURL.toString(), this,
                 &AppModel::serverURLStringChanged);

    outputs_.load();

    // The status line says when the script fails, hangs or had to be replaced, until it runs.
    disconnect(&engine_, &EngineHost::faultChanged, this, nullptr);
    connect(&engine_, &EngineHost::faultChanged, this, [this](auto previous, auto current) {
        if (current)
            setStatusMessage(QString::fromUtf8(description(*current)));
        else if (previous && statusMessage_ == QString::fromUtf8(description(*previous)))
            setStatusMessage({});
    });
    if (const std::optional<QByteArray> harness = cache_->loadHarnessJS())
        engine_.loadHarness(std::string_view(harness->constData(), std::size_t(harness->size())));
    else
        engine_.loadHarness(bundledHarnessScript());
    if (const std::optional<QByteArray> snapshot = cache_->loadShowSnapshot())
        engine_.loadCachedShow(
            std::string_view(snapshot->constData(), std::size_t(snapshot->size())));

    restoreWorkspaceUIFromCache();

    refreshOfflineWorkspace();

    pushThemesToEngine();
    refreshDropDiagnostics();
    // Audio device monitoring started with the model, before this first capture start.
    startEngineLoop();
    startArtNetMonitor();
    // The cloud comes last, in the background: the cached show is already lighting the venue.
    autoConnect();
    refreshAppUpdateNotice();
}

void AppModel::applicationWillTerminate() {
    mic_->stop();
    mic_->recording().finishForQuit();
    cache_->flushPendingWrites();
    settings_->flush();
    notifyDisconnectSync(CloudSession::quitDisconnectTimeout);
}

// Engine loop

std::optional<int> AppModel::captureChannelCount() const {
    return audioSelection_->captureChannelCount();
}

void AppModel::startEngineLoop() {
    if (loopRunning_)
        return;
    engineLoopWanted_ = true;
    switch (environment_.microphone->status()) {
    case MicrophoneAuthorizationStatus::authorized:
        // The lights never wait for the audio: without capture the loop ticks on silent hops
        // while the keeper says why and tries again.
        loopRunning_ = true;
        hopSource_->keeper().keep();
        if (environment_.runTickTimer)
            tickScheduler_.start([this] { tick(); });
        return;
    case MicrophoneAuthorizationStatus::notDetermined:
        if (requestingAudioPermission_)
            return;
        requestingAudioPermission_ = true;
        environment_.microphone->requestAccess([this](bool granted) {
            requestingAudioPermission_ = false;
            if (granted) {
                if (pendingRecordingStart_)
                    toggleAudioRecording();
                else
                    startEngineLoop();
                return;
            }
            pendingRecordingStart_ = false;
            setStatusMessage(microphoneRequiredText);
            mic_->recording().setErrorMessage(QString(microphoneRequiredText));
        });
        return;
    case MicrophoneAuthorizationStatus::denied:
        setStatusMessage(microphoneRequiredText);
        return;
    }
}

void AppModel::stopEngineLoop() {
    engineLoopWanted_ = false;
    // A recording that waited for capture is not started by a later one.
    pendingRecordingStart_ = false;
    dropHold_.releaseAll();
    tickScheduler_.stop();
    loopRunning_ = false;
    hopSource_->keeper().release();
    engineLoop_.forgetLastTickTime();
    engine_.replaceDropDetector();
    mic_->stop();
}

// A venue machine may run unattended: when the audio server returns, listening resumes
// without anyone restarting the bridge.
void AppModel::resumeCaptureIfLost() {
    if (!engineLoopWanted_ || requestingAudioPermission_ || mic_->isCapturing())
        return;
    if (!loopRunning_) {
        startEngineLoop();
        return;
    }
    startCapture();
}

bool AppModel::startCapture() {
    return hopSource_->attempt();
}

void AppModel::tick() {
    engineLoop_.tick();
    if (tickSlots_)
        tickSlots_->tickFinished();
}

void AppModel::outputMergedDmx(const DmxFrame& engineBuffers) {
    DmxFrame merged = desk_.merge(engineBuffers);
    outputs_.outputFrame(merged); // before the dashboard's preview binding runs
    setAndNotify(dmxPreview_, std::move(merged), this, &AppModel::dmxPreviewChanged);
}

void AppModel::visualsRefreshed() {
    setAndNotify(lightingPlot_, engine_.lightingPlot(), this, &AppModel::lightingPlotChanged);
    setAndNotify(liveScheme_, engine_.liveScheme(), this, &AppModel::liveSchemeChanged);
    refreshDropDiagnostics();
    refreshInterpretationTree();
}

void AppModel::refreshDropDiagnostics() {
    setAndNotify(dropDiagnostics_, engine_.dropDiagnostics(), this,
                 &AppModel::dropDiagnosticsChanged);
}

void AppModel::toggleAudioRecording() {
    AudioRecordingController& recorder = mic_->recording();
    if (recorder.isRecording()) {
        recorder.stop();
        return;
    }
    pendingRecordingStart_ = true;
    // A running loop keeps lighting: capture gets one more try now instead of a restart.
    if (loopRunning_)
        startCapture();
    startEngineLoop();
    // Waiting for permission, or for a capture start under way: its outcome decides.
    if (requestingAudioPermission_ || !pendingRecordingStart_ || mic_->isStarting())
        return;
    pendingRecordingStart_ = false;
    if (mic_->isCapturing()) {
        recorder.start(static_cast<int>(mic_->sampleRate()), mic_->recordingChannels(),
                       environment_.recordingDirectory);
    } else {
        setStatusMessage(recordingNeedsInputText);
        recorder.setMessage(QString(recordingNeedsInputText));
    }
}

// Workspace

std::optional<OfflineWorkspaceUIState> AppModel::currentWorkspaceState() const {
    OfflineWorkspaceUIState state;
    state.shows = shows_;
    state.selectedShowId = selectedShowId_;
    state.lightingModes = lightingModes_;
    state.selectedModeId = liveControl_.selectedModeId();
    state.themes = themes_;
    state.selectedThemeName = liveControl_.selectedThemeName();
    state.selectedModeTo = liveControl_.selectedModeTo();
    state.selectedModeLerp = liveControl_.selectedModeLerp();
    return state;
}

void AppModel::persistWorkspaceUI() {
    const std::optional<OfflineWorkspaceUIState> state = currentWorkspaceState();
    if (!state || state == lastSavedWorkspace_)
        return;
    // Written on the cache's worker: a blend moved at 60 Hz never waits on the disk here.
    cache_->saveWorkspaceUILater(*state);
    lastSavedWorkspace_ = state;
}

void AppModel::restoreWorkspaceUIFromCache() {
    const std::optional<OfflineWorkspaceUIState> state = cache_->loadWorkspaceUI();
    if (!state)
        return;
    setAndNotify(shows_, state->shows, this, &AppModel::showsChanged);
    setAndNotify(selectedShowId_, state->selectedShowId, this, &AppModel::selectedShowIdChanged);
    setAndNotify(lightingModes_, state->lightingModes, this, &AppModel::lightingModesChanged);
    setAndNotify(themes_, state->themes, this, &AppModel::themesChanged);
    liveControl_.restoreSelections(state->selectedModeId, state->selectedModeTo,
                                   state->selectedModeLerp.value_or(0.0), state->selectedThemeName);
    const LightingModeSelection selection = liveControl_.lightingModeSelection();
    engine_.applyControl(
        {.modeId = selection.modeId, .modeTo = selection.modeTo, .modeLerp = selection.amount});
    if (selectedShowId_)
        setAndNotify(showPatch_, cache_->loadPatch(*selectedShowId_), this,
                     &AppModel::showPatchChanged);
    lastSavedWorkspace_ = state;
}

// Output configuration

void AppModel::setArtNetEnabled(bool enabled) {
    if (outputs_.setArtNetEnabled(enabled))
        outputs_.persistArtNetConfig();
}

void AppModel::setArtNetHost(const QString& host) {
    const std::string trimmed = host.trimmed().toStdString();
    if (!trimmed.empty() && outputs_.setArtNetHost(trimmed))
        outputs_.persistArtNetConfig();
}

void AppModel::setArtNetAutoFix(bool enabled) {
    if (outputs_.setArtNetAutoFix(enabled))
        outputs_.persistArtNetConfig();
}

void AppModel::setEnttecEnabled(bool enabled) {
    if (outputs_.setEnttecEnabled(enabled))
        outputs_.persistEnttecConfig();
}

void AppModel::replaceRoutes(std::vector<UniverseRoute> routes) {
    outputs_.replaceRoutes(std::move(routes));
}

bool AppModel::changeRouteDestination(std::int64_t virtualUniverse,
                                      UniverseRoute::Destination destination) {
    return outputs_.changeDestination(virtualUniverse, destination);
}

// Art-Net health

ArtNetHealthMonitor* AppModel::makeArtNetMonitor() {
    ArtNetHealthMonitor::TransportStatusReader status = environment_.artnetTransportStatus;
    if (!status) {
        if (auto socket = std::dynamic_pointer_cast<NWUDPSocket>(environment_.artnetTransport))
            status = [socket] { return socket->status(); };
        else
            status = [] { return UDPTransportStatus{}; };
    }
    auto* monitor = new ArtNetHealthMonitor(
        *artnetDiscovery_, std::move(status),
        [this] {
            const OutputSettings& settings = outputs_.settings();
            return ArtNetOutputView{settings.artnetEnabled, settings.artnetHost,
                                    settings.artnetAutoFix, outputs_.mappedArtNetUniverses()};
        },
        this);
    connect(monitor, &ArtNetHealthMonitor::discoveryStateChanged, this,
            &AppModel::artnetDiscoveryStateChanged);
    connect(monitor, &ArtNetHealthMonitor::healthChanged, this, &AppModel::artnetHealthChanged);
    connect(monitor, &ArtNetHealthMonitor::packetsPerSecondChanged, this,
            &AppModel::artnetPacketsPerSecondChanged);
    connect(monitor, &ArtNetHealthMonitor::autoFixDue, this,
            [this](const ArtNetAutoFix& fix) { apply(fix, true); });
    return monitor;
}

void AppModel::startArtNetMonitor() {
    artnetMonitor_->start();
}

void AppModel::apply(const ArtNetAutoFix& fix, bool automatic) {
    const OutputSettings before = outputs_.settings();
    if (const auto* adopt = std::get_if<ArtNetAutoFix::AdoptHost>(&fix.value)) {
        if (adopt->host == before.artnetHost)
            return;
        outputs_.setArtNetHost(adopt->host);
    } else {
        std::vector<UniverseRoute> routes = ArtNetDiagnosis::remappedRoutes(
            before.routes, std::get<ArtNetAutoFix::RemapUniverses>(fix.value).universes);
        if (routes == before.routes)
            return;
        outputs_.replaceRoutes(std::move(routes));
    }
    const std::string text = (automatic ? ArtNetAutoFix::automaticPrefix : "") + fix.summary();
    setAndNotify(artnetLastAutoFix_, std::optional(text), this,
                 &AppModel::artnetLastAutoFixChanged);
    outputs_.persistArtNetConfig();
    if (automatic)
        emit artnetAutoFixApplied(QString::fromStdString(text));
}

void AppModel::applyArtNetFix() {
    if (const std::optional<ArtNetAutoFix> fix = ArtNetDiagnosis::autoFix(artnetHealth()))
        apply(*fix, false);
}

// Property readers

QVariantList AppModel::routesVariant() const {
    return model_variants::routes(outputs_.routes());
}

QVariantMap AppModel::micTraceVariant() const {
    return model_variants::micTrace(micTrace());
}

QVariantMap AppModel::beatReadoutVariant() const {
    return model_variants::beatReadout(beatReadout());
}

QVariantList AppModel::lightingPlotVariant() const {
    return model_variants::lightingPlot(lightingPlot_);
}

QVariantList AppModel::liveSchemeVariant() const {
    return model_variants::palette(liveScheme_);
}

QVariantMap AppModel::dmxPreviewVariant() const {
    return model_variants::dmxFrame(dmxPreview_);
}

QVariantList AppModel::showsVariant() const {
    return model_variants::viaJson(shows_).toList();
}

QVariant AppModel::selectedShowIdVariant() const {
    return selectedShowId_ ? QVariant(QString::fromStdString(*selectedShowId_)) : QVariant();
}

QVariant AppModel::showPatchVariant() const {
    return showPatch_ ? model_variants::viaJson(*showPatch_) : QVariant();
}

QVariantList AppModel::lightingModesVariant() const {
    return model_variants::viaJson(lightingModes_).toList();
}

QVariant AppModel::selectedModeToVariant() const {
    const std::optional<std::string>& modeTo = selectedModeTo();
    return modeTo ? QVariant(QString::fromStdString(*modeTo)) : QVariant();
}

QVariantList AppModel::themesVariant() const {
    return model_variants::viaJson(themes_).toList();
}

QVariantMap AppModel::dropDiagnosticsVariant() const {
    return model_variants::dropDiagnostics(dropDiagnostics_);
}

QVariantMap AppModel::artnetDiscoveryStateVariant() const {
    return model_variants::artnetDiscoveryState(artnetDiscoveryState());
}

QVariantMap AppModel::artnetHealthVariant() const {
    return model_variants::artnetHealth(artnetHealth());
}

QVariant AppModel::artnetLastAutoFixVariant() const {
    return artnetLastAutoFix_ ? QVariant(QString::fromStdString(*artnetLastAutoFix_)) : QVariant();
}

} // namespace kelvo
