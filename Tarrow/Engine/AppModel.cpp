#include "Engine/AppModel.h"

#include "Engine/ModelVariants.h"

#include <QDebug>

namespace kelvo {

namespace {

/// Stores `value` in `field`; true when that changed it.
template <typename T> bool assign(T& field, T value) {
    if (field == value)
        return false;
    field = std::move(value);
    return true;
}

} // namespace

/// The capture as the engine loop sees it.
class AppModel::CaptureHopSource final : public HopSource {
public:
    explicit CaptureHopSource(MicCapture& mic) : mic_(mic) {}
    bool isCapturing() const override { return mic_.isCapturing(); }
    std::vector<MicHop> takePendingHops() override { return mic_.takePendingHops(); }

private:
    MicCapture& mic_;
};

AppModel::AppModel(AppModelEnvironment environment, QObject* parent)
    : QObject(parent), environment_(std::move(environment)), cache_(std::move(environment_.cache)),
      mic_(new MicCapture(environment_.audio.backend, nullptr, MicCapture::fallbackSampleRate,
                          this)),
      audioMonitor_(new AudioInputDeviceMonitor(environment_.audio.deviceLayer, this)),
      audioSelection_(nullptr),
      dmxOutput_(std::move(environment_.enttec), environment_.artnetTransport),
      outputs_(dmxOutput_, *cache_), hopSource_(std::make_unique<CaptureHopSource>(*mic_)),
      engineLoop_(engine_, *hopSource_, *environment_.clock, *this),
      tickScheduler_(std::chrono::nanoseconds(1'000'000'000) / 60, this),
      dropHold_(
          *environment_.timers, [this](bool on) { engine_.setForcedDrop(on); },
          [this](bool) { emit isDropHeldChanged(); }),
      liveControl_(engine_, *environment_.clock, liveControlHooks()) {
    AudioInputSelectionModel::Hooks hooks;
    hooks.engineLoopRunning = [this] { return isEngineLoopRunning(); };
    hooks.replaceDropDetector = [this] { engine_.replaceDropDetector(); };
    hooks.startCapture = [this](const std::optional<std::string>& uid,
                                std::optional<int> channels) { mic_->start(uid, channels); };
    hooks.setStatusMessage = [this](const QString& message) { setStatusMessage(message); };
    audioSelection_ = new AudioInputSelectionModel(std::move(hooks), this);
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
    if (environment_.audio.deviceListUnavailable)
        qInfo().noquote() << "Audio devices:"
                          << QString::fromStdString(*environment_.audio.deviceListUnavailable);
    makeCloudLink();
}

AppModel::~AppModel() {
    tickScheduler_.stop();
    mic_->stop();
}

LiveControlHooks AppModel::liveControlHooks() {
    LiveControlHooks hooks;
    hooks.themePayloads = [this] { return themePayloads(); };
    // Pairing and the cloud's control-state endpoint are not part of this build: every local
    // pick is final, so no send task is started.
    hooks.hasDeviceToken = [] { return false; };
    hooks.persistWorkspaceUI = [this] { persistWorkspaceUI(); };
    hooks.selectionsChanged = [this] { publishSelections(); };
    return hooks;
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
    if (message == statusMessage_)
        return;
    statusMessage_ = message;
    emit statusMessageChanged();
}

void AppModel::publishSelections() {
    PublishedSelections& published = publishedSelections_;
    if (assign(published.modeId, liveControl_.selectedModeId()))
        emit selectedModeIdChanged();
    if (assign(published.modeTo, liveControl_.selectedModeTo()))
        emit selectedModeToChanged();
    if (assign(published.modeLerp, liveControl_.selectedModeLerp()))
        emit selectedModeLerpChanged();
    if (assign(published.themeName, liveControl_.selectedThemeName()))
        emit selectedThemeNameChanged();
}

void AppModel::bootstrap() {
    if (assign(serverURLString_, environment_.serverURL.toString()))
        emit serverURLStringChanged();

    const OutputSettings before = outputs_.settings();
    outputs_.load();
    publishOutputSettings(before);

    if (const std::optional<QByteArray> harness = cache_->loadHarnessJS())
        engine_.loadHarness(std::string_view(harness->constData(), std::size_t(harness->size())));
    if (const std::optional<QByteArray> snapshot = cache_->loadShowSnapshot())
        engine_.loadCachedShow(
            std::string_view(snapshot->constData(), std::size_t(snapshot->size())));

    restoreWorkspaceUIFromCache();

    refreshOfflineWorkspace();

    pushThemesToEngine();
    refreshDropDiagnostics();
    // Audio device monitoring started with the model, before this first capture start.
    startEngineLoop();
    // The Art-Net health monitor starts here once the bridge has discovery and health.
    // The cloud comes last, in the background: the cached show is already lighting the venue.
    autoConnect();
    refreshAppUpdateNotice();
}

void AppModel::applicationWillTerminate() {
    mic_->stop();
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
        if (!startCapture())
            return;
        loopRunning_ = true;
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
    dropHold_.releaseAll();
    tickScheduler_.stop();
    loopRunning_ = false;
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
    audioSelection_->applyAudioInputSelection(false);
    engine_.replaceDropDetector();
    try {
        mic_->start(audioSelection_->activeAudioDeviceUID(), captureChannelCount());
    } catch (const std::exception& error) {
        setStatusMessage(QString(audioUnavailablePrefix) + QString::fromUtf8(error.what()));
        return false;
    }
    // The complaint about the input is stale once it listens again.
    if (statusMessage_.startsWith(QLatin1String(audioUnavailablePrefix)))
        setStatusMessage({});
    return true;
}

void AppModel::tick() {
    engineLoop_.tick();
}

void AppModel::outputMergedDmx(const DmxFrame& engineBuffers) {
    DmxFrame merged = mergeLightingDesk(engineBuffers, desk_);
    if (merged != dmxPreview_) {
        dmxPreview_ = std::move(merged);
        emit dmxPreviewChanged();
    }
    outputs_.outputFrame(dmxPreview_);
}

void AppModel::visualsRefreshed() {
    if (engine_.lightingPlot() != lightingPlot_) {
        lightingPlot_ = engine_.lightingPlot();
        emit lightingPlotChanged();
    }
    if (engine_.liveScheme() != liveScheme_) {
        liveScheme_ = engine_.liveScheme();
        emit liveSchemeChanged();
    }
    refreshDropDiagnostics();
}

void AppModel::refreshDropDiagnostics() {
    DropDiagnostics diagnostics = engine_.dropDiagnostics();
    if (diagnostics != dropDiagnostics_) {
        dropDiagnostics_ = std::move(diagnostics);
        emit dropDiagnosticsChanged();
    }
}

void AppModel::toggleAudioRecording() {
    AudioRecordingController& recorder = mic_->recording();
    if (recorder.isRecording()) {
        recorder.stop();
        return;
    }
    if (!mic_->isCapturing())
        stopEngineLoop();
    pendingRecordingStart_ = true;
    startEngineLoop();
    if (requestingAudioPermission_)
        return;
    pendingRecordingStart_ = false;
    if (mic_->isCapturing()) {
        recorder.start(static_cast<int>(mic_->sampleRate()), mic_->recordingChannels());
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
    try {
        cache_->saveWorkspaceUI(*state);
        lastSavedWorkspace_ = state;
    } catch (const std::exception& error) {
        // The previous file is intact; lighting goes on, the operator learns the cache is stale.
        setStatusMessage(QStringLiteral("Couldn’t save the dashboard selections: ") +
                         QString::fromUtf8(error.what()));
    }
}

void AppModel::restoreWorkspaceUIFromCache() {
    const std::optional<OfflineWorkspaceUIState> state = cache_->loadWorkspaceUI();
    if (!state)
        return;
    if (assign(shows_, state->shows))
        emit showsChanged();
    if (assign(selectedShowId_, state->selectedShowId))
        emit selectedShowIdChanged();
    if (assign(lightingModes_, state->lightingModes))
        emit lightingModesChanged();
    if (assign(themes_, state->themes))
        emit themesChanged();
    liveControl_.restoreSelections(state->selectedModeId, state->selectedModeTo,
                                   state->selectedModeLerp.value_or(0.0), state->selectedThemeName);
    const LightingModeSelection selection = liveControl_.lightingModeSelection();
    engine_.applyControl(
        {.modeId = selection.modeId, .modeTo = selection.modeTo, .modeLerp = selection.amount});
    if (selectedShowId_ && assign(showPatch_, cache_->loadPatch(*selectedShowId_)))
        emit showPatchChanged();
    lastSavedWorkspace_ = state;
}

// Output configuration

void AppModel::publishOutputSettings(const OutputSettings& before) {
    const OutputSettings& now = outputs_.settings();
    if (before.artnetEnabled != now.artnetEnabled)
        emit artnetEnabledChanged();
    if (before.artnetHost != now.artnetHost)
        emit artnetHostChanged();
    if (before.artnetAutoFix != now.artnetAutoFix)
        emit artnetAutoFixChanged();
    if (before.enttecEnabled != now.enttecEnabled)
        emit enttecEnabledChanged();
    if (before.routes != now.routes)
        emit routesChanged();
}

void AppModel::setArtNetEnabled(bool enabled) {
    if (enabled == artnetEnabled())
        return;
    outputs_.setArtNetEnabled(enabled);
    outputs_.persistArtNetConfig();
    emit artnetEnabledChanged();
}

void AppModel::setArtNetHost(const QString& host) {
    const std::string trimmed = host.trimmed().toStdString();
    if (trimmed.empty() || trimmed == outputs_.settings().artnetHost)
        return;
    outputs_.setArtNetHost(trimmed);
    outputs_.persistArtNetConfig();
    emit artnetHostChanged();
}

void AppModel::setArtNetAutoFix(bool enabled) {
    if (enabled == artnetAutoFix())
        return;
    outputs_.setArtNetAutoFix(enabled);
    outputs_.persistArtNetConfig();
    emit artnetAutoFixChanged();
}

void AppModel::setEnttecEnabled(bool enabled) {
    if (enabled == enttecEnabled())
        return;
    outputs_.setEnttecEnabled(enabled);
    outputs_.persistEnttecConfig();
    emit enttecEnabledChanged();
}

void AppModel::replaceRoutes(std::vector<UniverseRoute> routes) {
    const OutputSettings before = outputs_.settings();
    outputs_.replaceRoutes(std::move(routes));
    publishOutputSettings(before);
}

void AppModel::changeRouteDestination(std::int64_t virtualUniverse,
                                      UniverseRoute::Destination destination) {
    const OutputSettings before = outputs_.settings();
    outputs_.changeDestination(virtualUniverse, destination);
    publishOutputSettings(before);
}

// Lighting desk

void AppModel::applyDesk(const LightingDeskState& desk) {
    const LightingDeskState before = std::exchange(desk_, desk);
    if (before.live != desk_.live)
        emit deskLiveChanged();
    if (before.universe != desk_.universe)
        emit deskUniverseChanged();
    if (before.levels != desk_.levels)
        emit deskLevelsChanged();
    if (before.grandMaster != desk_.grandMaster)
        emit deskGrandMasterChanged();
    if (before.blackout != desk_.blackout)
        emit deskBlackoutChanged();
}

void AppModel::setDesk(const LightingDeskState& desk) {
    applyDesk(desk);
}

void AppModel::setDeskLive(bool live) {
    changeDesk([&](LightingDeskState& desk) { desk.live = live; });
}

void AppModel::setDeskUniverse(int universe) {
    changeDesk([&](LightingDeskState& desk) { desk.universe = universe; });
}

void AppModel::setDeskLevels(const QList<double>& levels) {
    changeDesk([&](LightingDeskState& desk) { desk.levels.assign(levels.begin(), levels.end()); });
}

void AppModel::setDeskLevel(int channel, double level) {
    if (channel < 0 || std::size_t(channel) >= LightingDeskState::channelCount)
        return;
    changeDesk([&](LightingDeskState& desk) {
        if (desk.levels.size() <= std::size_t(channel))
            desk.levels.resize(std::size_t(channel) + 1, 0.0);
        desk.levels[std::size_t(channel)] = level;
    });
}

void AppModel::setDeskGrandMaster(double level) {
    changeDesk([&](LightingDeskState& desk) { desk.grandMaster = level; });
}

void AppModel::setDeskBlackout(bool blackout) {
    changeDesk([&](LightingDeskState& desk) { desk.blackout = blackout; });
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

} // namespace kelvo
