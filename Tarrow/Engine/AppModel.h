#pragma once

#include "Audio/AudioInputPlatform.h"
#include "Audio/Capture/MicCapture.h"
#include "Audio/Devices/AudioInputDeviceMonitor.h"
#include "Audio/Devices/AudioInputSelectionModel.h"
#include "Cloud/BridgeServerConfig.h"
#include "Cloud/BridgeSettings.h"
#include "Cloud/CacheWriter.h"
#include "Cloud/CloudSession.h"
#include "Cloud/LatestValue.h"
#include "Cloud/OfflineShowCache.h"
#include "Cloud/ShowUpdatesChannel.h"
#include "Cloud/TickSlots.h"
#include "DMX/ArtNetHealthMonitor.h"
#include "DMX/LiveDmxOutput.h"
#include "DMX/OutputConfiguration.h"
#include "Engine/EngineHost.h"
#include "Engine/EngineLoop.h"
#include "Engine/ForcedDrop.h"
#include "Engine/LightingDesk.h"
#include "Engine/LiveControl.h"
#include "Engine/MicrophoneAuthorization.h"
#include "Engine/ShowDownload.h"
#include "Engine/ShowRealisation.h"
#include "Engine/StoredOutputSettings.h"
#include "Show/InterpretationTree.h"
#include "Show/ShowOptions.h"
#include "Show/ShowPatch.h"
#include "Support/MonotonicClock.h"
#include "Support/TickScheduler.h"
#include "Support/Timer.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <filesystem>
#include <memory>
#include <optional>

namespace kelvo {

/// The counters and states the headless status line reads, taken at one moment.
struct AppStatusSnapshot {
    std::uint64_t tickCount = 0;
    BeatReadout beat;
    std::string dropStatus; ///< "held" while forced, else the engine's drop status
    std::uint64_t artnetPacketsSent = 0;
    std::string artnetHealth; ///< the health headline
    std::uint64_t enttecFramesWritten = 0;
    bool capturing = false;
    bool recording = false;
    std::string connectionStatus; ///< empty without a cloud link
    std::string statusMessage;

    friend bool operator==(const AppStatusSnapshot&, const AppStatusSnapshot&) = default;
};

/// What the model is built on; production fills it from the running system, tests with fakes.
struct AppModelEnvironment {
    std::unique_ptr<BridgeSettings> settings;
    std::unique_ptr<OfflineShowCache> cache;
    AudioInputPlatform audio;
    std::shared_ptr<UDPSending> artnetTransport;
    /// The transport's status for the health monitor; unset reads it from an `NWUDPSocket`
    /// transport (and an idle status from any other).
    std::function<UDPTransportStatus()> artnetTransportStatus;
    /// Art-Net discovery; unset means none (it binds UDP 6454 and broadcasts, so only the
    /// running bridge and tests inside their own network namespace supply one).
    std::shared_ptr<ArtNetDiscovering> artnetDiscovery;
    EnttecSerialSender enttec;
    std::shared_ptr<MicrophoneAuthorization> microphone =
        std::make_shared<AlwaysAuthorizedMicrophone>();
    std::shared_ptr<TimerFactory> timers = std::make_shared<QtTimerFactory>();
    std::shared_ptr<const MonotonicClock> clock = std::make_shared<SteadyMonotonicClock>();
    /// False in tests that call `tick()` by hand.
    bool runTickTimer = true;
    /// The server chosen from the launch arguments (`BridgeServerConfig::resolve`).
    QUrl serverURL = BridgeServerConfig::productionURL();
    /// The HTTP transport of the cloud link; without one the model never talks to a cloud.
    std::shared_ptr<URLRequestPerforming> http;
    std::shared_ptr<CloudScheduler> cloudScheduler = std::make_shared<QtCloudScheduler>();
    /// Tells the cloud at quit that the bridge leaves.
    std::shared_ptr<DisconnectNotifying> leaving;
    /// Where recordings go; unset is the user's Downloads folder.
    std::optional<std::filesystem::path> recordingDirectory;
};

class AppModel : public QObject, private ShowDownloadTarget {
    Q_OBJECT
    // Every property notifies only when its value changes. Records are handed to the dashboard
    // as QVariant maps and lists, built when read.
    Q_PROPERTY(QString statusMessage READ statusMessage NOTIFY statusMessageChanged)
    Q_PROPERTY(QString serverURLString READ serverURLString NOTIFY serverURLStringChanged)
    Q_PROPERTY(bool hasOfflineWorkspace READ hasOfflineWorkspace NOTIFY hasOfflineWorkspaceChanged)
    // Cloud link
    Q_PROPERTY(QString connectionStatus READ connectionStatusText NOTIFY connectionStatusChanged)
    Q_PROPERTY(QVariant sessionInfo READ sessionInfoVariant NOTIFY sessionInfoChanged)
    Q_PROPERTY(QVariant appUpdateDownloadURL READ appUpdateDownloadURLVariant NOTIFY
                   appUpdateDownloadURLChanged)
    // Outputs
    Q_PROPERTY(
        bool artnetEnabled READ artnetEnabled WRITE setArtNetEnabled NOTIFY artnetEnabledChanged)
    Q_PROPERTY(QString artnetHost READ artnetHost WRITE setArtNetHost NOTIFY artnetHostChanged)
    Q_PROPERTY(
        bool artnetAutoFix READ artnetAutoFix WRITE setArtNetAutoFix NOTIFY artnetAutoFixChanged)
    Q_PROPERTY(
        bool enttecEnabled READ enttecEnabled WRITE setEnttecEnabled NOTIFY enttecEnabledChanged)
    Q_PROPERTY(QVariantList routes READ routesVariant NOTIFY routesChanged)
    Q_PROPERTY(QVariantMap artnetDiscoveryState READ artnetDiscoveryStateVariant NOTIFY
                   artnetDiscoveryStateChanged)
    Q_PROPERTY(QVariantMap artnetHealth READ artnetHealthVariant NOTIFY artnetHealthChanged)
    Q_PROPERTY(
        QVariant artnetLastAutoFix READ artnetLastAutoFixVariant NOTIFY artnetLastAutoFixChanged)
    Q_PROPERTY(qint64 artnetPacketsPerSecond READ artnetPacketsPerSecond NOTIFY
                   artnetPacketsPerSecondChanged)
    // Engine views
    Q_PROPERTY(QVariantMap micTrace READ micTraceVariant NOTIFY micTraceChanged)
    Q_PROPERTY(QVariantMap beatReadout READ beatReadoutVariant NOTIFY beatReadoutChanged)
    Q_PROPERTY(QVariantList lightingPlot READ lightingPlotVariant NOTIFY lightingPlotChanged)
    Q_PROPERTY(QVariantList liveScheme READ liveSchemeVariant NOTIFY liveSchemeChanged)
    Q_PROPERTY(QVariantMap dmxPreview READ dmxPreviewVariant NOTIFY dmxPreviewChanged)
    // Show and controls
    Q_PROPERTY(QVariantList shows READ showsVariant NOTIFY showsChanged)
    Q_PROPERTY(QVariant selectedShowId READ selectedShowIdVariant NOTIFY selectedShowIdChanged)
    Q_PROPERTY(QVariant showPatch READ showPatchVariant NOTIFY showPatchChanged)
    Q_PROPERTY(QVariantList lightingModes READ lightingModesVariant NOTIFY lightingModesChanged)
    Q_PROPERTY(QString selectedModeId READ selectedModeIdText NOTIFY selectedModeIdChanged)
    Q_PROPERTY(QVariant selectedModeTo READ selectedModeToVariant NOTIFY selectedModeToChanged)
    Q_PROPERTY(double selectedModeLerp READ selectedModeLerp NOTIFY selectedModeLerpChanged)
    Q_PROPERTY(QVariantList themes READ themesVariant NOTIFY themesChanged)
    Q_PROPERTY(QString selectedThemeName READ selectedThemeNameText NOTIFY selectedThemeNameChanged)
    Q_PROPERTY(bool isUpdatingControl READ isUpdatingControl NOTIFY isUpdatingControlChanged)
    // Show switch and the interpretation screen
    Q_PROPERTY(bool isSwitchingShow READ isSwitchingShow NOTIFY isSwitchingShowChanged)
    Q_PROPERTY(QVariant pendingShowSwitchId READ pendingShowSwitchIdVariant NOTIFY
                   pendingShowSwitchIdChanged)
    Q_PROPERTY(bool interpretationScreenVisible READ interpretationScreenVisible WRITE
                   setInterpretationScreenVisible NOTIFY interpretationScreenVisibleChanged)
    Q_PROPERTY(QVariant interpretation READ interpretationVariant NOTIFY interpretationTreeChanged)
    Q_PROPERTY(bool isShiftingInterpretation READ isShiftingInterpretation NOTIFY
                   isShiftingInterpretationChanged)
    // Drop
    Q_PROPERTY(bool isDropHeld READ isDropHeld NOTIFY isDropHeldChanged)
    Q_PROPERTY(
        QVariantMap dropDiagnostics READ dropDiagnosticsVariant NOTIFY dropDiagnosticsChanged)
    // Lighting desk
    Q_PROPERTY(bool deskLive READ deskLive WRITE setDeskLive NOTIFY deskLiveChanged)
    Q_PROPERTY(int deskUniverse READ deskUniverse WRITE setDeskUniverse NOTIFY deskUniverseChanged)
    Q_PROPERTY(
        QList<double> deskLevels READ deskLevels WRITE setDeskLevels NOTIFY deskLevelsChanged)
    Q_PROPERTY(double deskGrandMaster READ deskGrandMaster WRITE setDeskGrandMaster NOTIFY
                   deskGrandMasterChanged)
    Q_PROPERTY(bool deskBlackout READ deskBlackout WRITE setDeskBlackout NOTIFY deskBlackoutChanged)
    Q_PROPERTY(QString deskRouteLine READ deskRouteLine NOTIFY deskRouteLineChanged)
    // Dashboard: the audio input choice and the recording are observable objects of their own.
    Q_PROPERTY(QObject* audioInput READ audioInputObject CONSTANT)
    Q_PROPERTY(QObject* recording READ recordingObject CONSTANT)
    Q_PROPERTY(QVariantList audioInputDevices READ audioInputDevicesVariant NOTIFY
                   audioInputDevicesChanged)
    Q_PROPERTY(bool showingDropDiagnostics READ showingDropDiagnostics WRITE
                   setShowingDropDiagnostics NOTIFY showingDropDiagnosticsChanged)

public:
    static constexpr const char* microphoneRequiredText =
        "Microphone access is required. Enable Kelvo in System Settings → Privacy & Security → "
        "Microphone.";
    static constexpr const char* audioUnavailablePrefix =
        AudioInputSelectionModel::unavailablePrefix;
    static constexpr const char* recordingNeedsInputText =
        "Recording needs an available audio input.";
    /// After `audioUnavailablePrefix`: capture runs, yet no sound came between two of the
    /// keeper's checks (a hung or suspended audio server); the input is then reopened.
    static constexpr const char* inputSilentText = "no sound has come from the input; reopening it";
    static constexpr const char* workspaceNotSavedPrefix =
        "Couldn’t save the dashboard selections: ";
    static constexpr const char* switchShowFailedPrefix = "Couldn’t switch show: ";
    static constexpr const char* notLinkedText = "this bridge is not linked to the cloud";
    static constexpr const char* publishInterpretationFailedPrefix =
        "Couldn’t publish interpretation: ";

    explicit AppModel(AppModelEnvironment environment, QObject* parent = nullptr);
    ~AppModel() override;

    /// Start-up from the cache: settings, harness, show, workspace, themes, engine loop, audio
    /// devices. Lighting runs before any network exists.
    void bootstrap();
    /// At quit: stop capture, close a running recording (the disk gets a bounded wait, and the
    /// recording's `message` says what missed it), finish the settings and workspace writes
    /// still under way, then tell the cloud the bridge leaves (at most 2 s).
    void applicationWillTerminate();

    // Cloud link (the flows live in CloudSession and ShowDownload)
    Q_INVOKABLE void startPairing();
    void autoConnect();
    Q_INVOKABLE void reauthenticate();
    /// The selected show's page in the cloud editor; empty without a selected show.
    Q_INVOKABLE QUrl showEditorURL() const {
        if (!selectedShowId_)
            return {};
        return BridgeServerConfig::showEditorURL(environment_.serverURL,
                                                 QString::fromStdString(*selectedShowId_))
            .value_or(QUrl());
    }
    void notifyDisconnectSync(std::chrono::milliseconds timeout);
    void refreshAppUpdateNotice();
    QCoro::Task<> fetchShowAndHarness(std::string token);
    /// Applies a runtime bootstrap payload; throws the parser's error or BootstrapViewDataError.
    /// With a cloud link the show is realised in slots after the following ticks.
    void applyBootstrap(const QByteArray& payload);
    void recordShowPatch(const ShowPatch& patch) override;
    /// Absent when the model was built without a cloud transport.
    CloudSession* cloudSession() { return cloud_.get(); }
    // Live show updates pushed by the cloud
    void startShowUpdates(const std::string& token);
    void stopShowUpdates();
    ShowUpdatesChannel* showUpdatesChannel() { return showUpdates_.get(); }
    /// Loads the cloud's active show as it is now (a pushed snapshot or a reload).
    void applyLiveShowSnapshot(const nlohmann::json& activeShow);
    /// Raised on every local show switch; a reload started before it is discarded.
    std::uint64_t showSwitchGeneration() const { return showSwitchGeneration_; }
    ConnectionStatus connectionStatus() const {
        return cloud_ ? cloud_->connectionStatus() : ConnectionStatus::disconnected;
    }

    // Show switch (AppModelShowSwitch.cpp)
    /// Asks the cloud to activate the show; the engine gets it through the show-updates channel.
    Q_INVOKABLE void selectShow(const QString& id);
    bool isSwitchingShow() const { return isSwitchingShow_; }
    const std::optional<std::string>& pendingShowSwitchId() const { return pendingShowSwitchId_; }

    // Interpretation screen and publishing (AppModelInterpretation.cpp)
    bool interpretationScreenVisible() const { return interpretationScreenVisible_; }
    /// The dashboard sets it while the interpretation screen is shown; the tree is refreshed
    /// only then.
    void setInterpretationScreenVisible(bool visible);
    void refreshInterpretationTree();
    const std::optional<InterpretationTree>& interpretationTree() const {
        return interpretationTree_;
    }
    /// Sends the engine's current interpretation to the cloud; throws the cloud link's error.
    QCoro::Task<> publishInterpretation(std::string token);
    /// Publishes in the background when this server has a device token; failures are ignored.
    void publishInterpretationIfLinked();
    /// Regenerates the engine's interpreters, refreshes the tree and publishes it.
    Q_INVOKABLE void shiftLightingInterpretation();
    bool isShiftingInterpretation() const { return isShiftingInterpretation_; }

    // Engine loop
    void startEngineLoop();
    void stopEngineLoop();
    void tick();
    void outputMergedDmx(const DmxFrame& engineBuffers);
    std::optional<int> captureChannelCount() const;
    Q_INVOKABLE void toggleAudioRecording();
    bool isEngineLoopRunning() const { return tickScheduler_.isActive() || loopRunning_; }

    // Drop
    void beginForcedDrop(DropHoldSource source) { dropHold_.begin(source); }
    void endForcedDrop(DropHoldSource source) { dropHold_.end(source); }
    Q_INVOKABLE void triggerMenuDrop() { dropHold_.triggerMenuDrop(); }
    bool isDropHeld() const { return dropHold_.isDropHeld(); }
    const DropDiagnostics& dropDiagnostics() const { return dropDiagnostics_; }

    // Live control and workspace
    void applyLiveControlState(const nlohmann::json& state) {
        liveControl_.applyLiveControlState(state);
    }
    void selectLightingBlend(const LightingModeSelection& s) {
        liveControl_.selectLightingBlend(s);
    }
    void selectTheme(const std::string& name) { liveControl_.selectTheme(name); }
    void pushThemesToEngine() { liveControl_.pushThemesToEngine(); }
    void persistWorkspaceUI();
    void restoreWorkspaceUIFromCache();
    const LiveControl& liveControl() const { return liveControl_; }
    /// A local mode or colour-scheme pick is on its way to the cloud.
    bool isUpdatingControl() const { return liveControl_.isUpdatingControl(); }

    // Output configuration
    bool artnetEnabled() const { return outputs_.settings().artnetEnabled; }
    QString artnetHost() const { return QString::fromStdString(outputs_.settings().artnetHost); }
    bool artnetAutoFix() const { return outputs_.settings().artnetAutoFix; }
    bool enttecEnabled() const { return outputs_.settings().enttecEnabled; }
    /// The Art-Net switch, host and auto-fix switch are saved together whenever one changes.
    void setArtNetEnabled(bool enabled);
    void setArtNetHost(const QString& host);
    void setArtNetAutoFix(bool enabled);
    void setEnttecEnabled(bool enabled);
    /// Replaces the route table and saves it (also when unchanged, so the settings hold it).
    void replaceRoutes(std::vector<UniverseRoute> routes);
    /// False when no route has that virtual universe.
    bool changeRouteDestination(std::int64_t virtualUniverse,
                                UniverseRoute::Destination destination);
    const std::vector<UniverseRoute>& routes() const { return outputs_.routes(); }
    /// The desk's route editor: `destination` is "artnet", "enttec" or "unmapped"; the Art-Net
    /// universe counts only for "artnet". A new virtual universe is added to the table.
    Q_INVOKABLE void setRoute(qint64 virtualUniverse, const QString& destination,
                              qint64 artnetUniverse);
    Q_INVOKABLE void removeRoute(qint64 virtualUniverse);
    /// Where the desk's universe goes, and whether the desk or the engine drives it.
    const QString& deskRouteLine() const { return deskRouteLine_; }

    // Art-Net health
    /// Aims and starts discovery and the once-a-second health check; once only.
    void startArtNetMonitor();
    void refreshArtNetHealth() { artnetMonitor_->refresh(); }
    /// Applies a repair; `automatic` marks it as the monitor's own ("Auto: …").
    void apply(const ArtNetAutoFix& fix, bool automatic);
    /// The dashboard's fix button: the repair the current diagnosis offers, if any.
    Q_INVOKABLE void applyArtNetFix();
    const ArtNetHealth& artnetHealth() const { return artnetMonitor_->health(); }
    const ArtNetDiscoveryState& artnetDiscoveryState() const {
        return artnetMonitor_->discoveryState();
    }
    const std::optional<std::string>& artnetLastAutoFix() const { return artnetLastAutoFix_; }
    qint64 artnetPacketsPerSecond() const { return artnetMonitor_->packetsPerSecond(); }

    // Lighting desk: the whole state at once, or one field at a time from the desk view.
    void setDesk(const LightingDeskState& desk) { desk_.setState(desk); }
    const LightingDeskState& desk() const { return desk_.state(); }
    bool deskLive() const { return desk().live; }
    int deskUniverse() const { return static_cast<int>(desk().universe); }
    QList<double> deskLevels() const { return {desk().levels.begin(), desk().levels.end()}; }
    double deskGrandMaster() const { return desk().grandMaster; }
    bool deskBlackout() const { return desk().blackout; }
    void setDeskLive(bool live) { desk_.setLive(live); }
    void setDeskUniverse(int universe) { desk_.setUniverse(universe); }
    void setDeskLevels(const QList<double>& levels) {
        desk_.setLevels({levels.begin(), levels.end()});
    }
    /// One fader: `channel` is 0-based; the level list grows to reach it.
    Q_INVOKABLE void setDeskLevel(int channel, double level) { desk_.setLevel(channel, level); }
    void setDeskGrandMaster(double level) { desk_.setGrandMaster(level); }
    void setDeskBlackout(bool blackout) { desk_.setBlackout(blackout); }

    // Dashboard commands (AppModelDashboard.cpp)
    /// A mode picked on the dashboard: no blend.
    Q_INVOKABLE void selectLightingMode(const QString& modeId);
    /// A blend towards `modeTo` (empty for none) by `amount` (0…1).
    Q_INVOKABLE void selectLightingBlend(const QString& modeId, const QString& modeTo,
                                         double amount);
    Q_INVOKABLE void selectTheme(const QString& name) { selectTheme(name.toStdString()); }
    void selectTheme(const char* name) { selectTheme(std::string(name)); }
    /// The hold tile: pressed holds the drop, released lets go.
    Q_INVOKABLE void holdDropFromPointer(bool held);
    Q_INVOKABLE void selectAudioInputDevice(const QString& uid);
    /// The menu's "Check for Updates…": asks the server again (no updater on Linux).
    Q_INVOKABLE void checkForUpdates() { refreshAppUpdateNotice(); }
    bool showingDropDiagnostics() const { return showingDropDiagnostics_; }
    void setShowingDropDiagnostics(bool showing);

    // Published views
    const QString& statusMessage() const { return statusMessage_; }
    void setStatusMessage(const QString& message);
    bool hasOfflineWorkspace() const { return hasOfflineWorkspace_; }
    const QString& serverURLString() const { return serverURLString_; }
    const std::string& selectedModeId() const { return liveControl_.selectedModeId(); }
    const std::optional<std::string>& selectedModeTo() const {
        return liveControl_.selectedModeTo();
    }
    double selectedModeLerp() const { return liveControl_.selectedModeLerp(); }
    const std::string& selectedThemeName() const { return liveControl_.selectedThemeName(); }
    const MicBandTrace& micTrace() const { return engineLoop_.micTrace(); }
    const BeatReadout& beatReadout() const { return engineLoop_.beatReadout(); }
    const LightingPlot& lightingPlot() const { return lightingPlot_; }
    const std::vector<ThemePaletteColor>& liveScheme() const { return liveScheme_; }
    const DmxFrame& dmxPreview() const { return dmxPreview_; }
    const std::vector<ShowOption>& shows() const { return shows_; }
    const std::optional<std::string>& selectedShowId() const { return selectedShowId_; }
    const std::vector<LightingModeOption>& lightingModes() const { return lightingModes_; }
    const std::vector<ThemeOption>& themes() const { return themes_; }
    const std::optional<ShowPatch>& showPatch() const { return showPatch_; }
    std::uint64_t tickCount() const { return engineLoop_.tickCount(); }
    AppStatusSnapshot statusSnapshot() const;
    /// The one monotonic clock the model and its components read.
    const MonotonicClock& clock() const { return *environment_.clock; }

    // Components
    EngineHost& engine() { return engine_; }
    /// The cloud link's main-thread pieces (absent without a cloud link).
    const TickSlots* tickSlots() const { return tickSlots_.get(); }
    MicCapture& mic() { return *mic_; }
    AudioInputSelectionModel& audioSelection() { return *audioSelection_; }
    LiveDmxOutput& dmxOutput() { return dmxOutput_; }
    OfflineShowCache& cache() { return *cache_; }
    BridgeSettings& settings() { return *settings_; }
    /// The output settings as stored, in the DMX output's terms.
    OutputSettingsStore& outputSettingsStore() { return outputStore_; }

signals:
    void statusMessageChanged();
    void serverURLStringChanged();
    void hasOfflineWorkspaceChanged();
    void artnetEnabledChanged();
    void artnetHostChanged();
    void artnetAutoFixChanged();
    void enttecEnabledChanged();
    void routesChanged();
    void artnetDiscoveryStateChanged();
    void artnetHealthChanged();
    void artnetLastAutoFixChanged();
    void artnetPacketsPerSecondChanged();
    /// Each time the monitor repairs the configuration by itself: "Auto: " and the summary.
    void artnetAutoFixApplied(const QString& text);
    void micTraceChanged();
    void beatReadoutChanged();
    void lightingPlotChanged();
    void liveSchemeChanged();
    void dmxPreviewChanged();
    void showsChanged();
    void selectedShowIdChanged();
    void showPatchChanged();
    void lightingModesChanged();
    void selectedModeIdChanged();
    void selectedModeToChanged();
    void selectedModeLerpChanged();
    void themesChanged();
    void selectedThemeNameChanged();
    void isUpdatingControlChanged();
    void isDropHeldChanged();
    void dropDiagnosticsChanged();
    void deskLiveChanged();
    void deskUniverseChanged();
    void deskLevelsChanged();
    void deskGrandMasterChanged();
    void deskBlackoutChanged();
    void deskRouteLineChanged();
    void connectionStatusChanged();
    void sessionInfoChanged();
    void appUpdateDownloadURLChanged();
    void isSwitchingShowChanged();
    void pendingShowSwitchIdChanged();
    void interpretationScreenVisibleChanged();
    void interpretationTreeChanged();
    void isShiftingInterpretationChanged();
    void audioInputDevicesChanged();
    void showingDropDiagnosticsChanged();
    /// The pairing approval page: the window opens it in the browser, headless prints it.
    void pairingPageReady(const QUrl& url);

private:
    class CaptureHopSource;

    /// The selections as last announced, to tell which of them a change touched.
    struct PublishedSelections {
        std::string modeId;
        std::optional<std::string> modeTo;
        double modeLerp = 0.0;
        std::string themeName;
    };

    // Property readers for the dashboard.
    QVariantList routesVariant() const;
    QVariantMap micTraceVariant() const;
    QVariantMap beatReadoutVariant() const;
    QVariantList lightingPlotVariant() const;
    QVariantList liveSchemeVariant() const;
    QVariantMap dmxPreviewVariant() const;
    QVariantList showsVariant() const;
    QVariant selectedShowIdVariant() const;
    QVariant showPatchVariant() const;
    QVariantList lightingModesVariant() const;
    QString selectedModeIdText() const { return QString::fromStdString(selectedModeId()); }
    QVariant selectedModeToVariant() const;
    QVariantList themesVariant() const;
    QString selectedThemeNameText() const { return QString::fromStdString(selectedThemeName()); }
    QVariantMap dropDiagnosticsVariant() const;
    QVariantMap artnetDiscoveryStateVariant() const;
    QVariantMap artnetHealthVariant() const;
    QVariant artnetLastAutoFixVariant() const;
    QString connectionStatusText() const {
        return QString::fromLatin1(kelvo::connectionStatusText(connectionStatus()));
    }
    QVariant sessionInfoVariant() const;
    QVariant appUpdateDownloadURLVariant() const;
    QObject* audioInputObject() const { return audioSelection_; }
    QObject* recordingObject() const;
    QVariantList audioInputDevicesVariant() const;

    // Cloud link wiring
    void makeCloudLink();
    /// A cloud outcome for the status line; an empty one clears only the cloud's own text.
    void showCloudStatus(const QString& message);
    void resetAfterSignOut();
    void refreshOfflineWorkspace();
    void makeShowUpdatesChannel();
    void handleShowUpdate(const ShowUpdateMessage& message);
    QCoro::Task<> reloadActiveShow(std::string token, std::uint64_t switchGeneration);
    /// Loads `activeShow` with `controlState`, records its patch and caches the realised subset;
    /// `atSwitch` runs in the slot where the show switches (told whether it did).
    QCoro::Task<> loadActiveShow(nlohmann::json activeShow, nlohmann::json controlState,
                                 CancellationToken cancel,
                                 std::function<void(bool switched)> atSwitch = {});
    QCoro::Task<> inBackground(QCoro::Task<> flow);
    CancellationToken cloudLifetime() const;
    // ShowDownloadTarget
    QCoro::Task<> applyParsedBootstrap(nlohmann::json bootstrap, CancellationToken cancel) override;
    const std::vector<ThemeOption>& currentThemes() const override { return themes_; }
    void replaceThemes(std::vector<ThemeOption> themes) override;
    void showDownloadFinished() override;
    void publishInterpretationInBackground(const std::string& token) override;
    QCoro::Task<> switchShow(std::string id);
    QCoro::Task<> runInterpretationShift();
    QCoro::Task<> publishIgnoringFailure(std::string token);
    QVariant pendingShowSwitchIdVariant() const;
    QVariant interpretationVariant() const;
    /// The selected show's patch from the cache, read off the main thread.
    void loadCachedPatchOfSelectedShow();

    ArtNetHealthMonitor* makeArtNetMonitor();
    /// Announces each selection that differs from the last announced one.
    void publishSelections();
    /// The model's own signals carry its components' announcements.
    void forwardComponentSignals();
    void refreshDeskRouteLine();

    /// Every fifth tick: the views of the plot, the scheme and the interpretation.
    void visualsRefreshed();

    /// Restarts a capture that was lost (no audio server at start-up, a server restart)
    /// once the device layer reports back.
    void resumeCaptureIfLost();
    /// Applies the input choice, replaces the drop detector and starts capture; false (with
    /// the reason in the status line) when it cannot.
    bool startCapture();
    void refreshDropDiagnostics();
    LiveControlQueries liveControlQueries();
    void connectLiveControl();
    std::optional<nlohmann::json> themePayloads() const;
    std::optional<OfflineWorkspaceUIState> currentWorkspaceState() const;

    AppModelEnvironment environment_;
    std::unique_ptr<BridgeSettings> settings_;
    StoredOutputSettings outputStore_;
    std::unique_ptr<OfflineShowCache> cache_;
    EngineHost engine_;
    MicCapture* mic_;
    AudioInputDeviceMonitor* audioMonitor_;
    AudioInputSelectionModel* audioSelection_;
    LiveDmxOutput dmxOutput_;
    OutputConfiguration outputs_;
    LightingDesk desk_;
    std::unique_ptr<CaptureHopSource> hopSource_;
    EngineLoop engineLoop_;
    TickScheduler tickScheduler_;
    ForcedDropHold dropHold_;
    LiveControl liveControl_;
    std::shared_ptr<ArtNetDiscovering> artnetDiscovery_;
    ArtNetHealthMonitor* artnetMonitor_;
    std::optional<std::string> artnetLastAutoFix_;
    QString deskRouteLine_;

    bool loopRunning_ = false;      // the timer exists (or would, with runTickTimer false)
    bool engineLoopWanted_ = false; // started and not stopped since, even if capture failed
    bool requestingAudioPermission_ = false;
    bool pendingRecordingStart_ = false;
    bool hasOfflineWorkspace_ = false;
    QString statusMessage_;
    QString serverURLString_;
    PublishedSelections publishedSelections_;
    DmxFrame dmxPreview_;
    LightingPlot lightingPlot_;
    std::vector<ThemePaletteColor> liveScheme_;
    DropDiagnostics dropDiagnostics_;
    std::vector<ShowOption> shows_;
    std::optional<std::string> selectedShowId_;
    std::vector<LightingModeOption> lightingModes_;
    std::vector<ThemeOption> themes_;
    std::optional<ShowPatch> showPatch_;
    std::optional<OfflineWorkspaceUIState> lastSavedWorkspace_;
    std::shared_ptr<LatestValue<QByteArray>> pendingSnapshot_ =
        std::make_shared<LatestValue<QByteArray>>();
    QString lastCloudStatus_;
    // Last, and torn down first: their flows refer to everything above. The writer finishes
    // its queued cache files before the cache goes.
    std::unique_ptr<TickSlots> tickSlots_; // the download's main-thread work, after each tick
    std::unique_ptr<CacheWriter> cacheWriter_;
    std::unique_ptr<ShowDownload> showDownload_;
    std::unique_ptr<ShowRealisation> showRealisation_; // outlives the flows the cloud cancels
    std::unique_ptr<CloudSession> cloud_;
    std::unique_ptr<ShowUpdatesChannel> showUpdates_;
    std::uint64_t showSwitchGeneration_ = 0;
    bool isSwitchingShow_ = false;
    std::optional<std::string> pendingShowSwitchId_;
    bool interpretationScreenVisible_ = false;
    std::optional<InterpretationTree> interpretationTree_;
    bool isShiftingInterpretation_ = false;
    struct BackgroundPublish {
        bool running = false;
        bool again = false;
    } backgroundPublish_;
    bool showingDropDiagnostics_ = false;
};

} // namespace kelvo
