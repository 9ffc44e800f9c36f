#pragma once

#include "Audio/AudioInputPlatform.h"
#include "Audio/Capture/MicCapture.h"
#include "Audio/Devices/AudioInputDeviceMonitor.h"
#include "Audio/Devices/AudioInputSelectionModel.h"
#include "Cloud/OfflineShowCache.h"
#include "DMX/LiveDmxOutput.h"
#include "DMX/OutputConfiguration.h"
#include "Engine/EngineHost.h"
#include "Engine/EngineLoop.h"
#include "Engine/ForcedDrop.h"
#include "Engine/LightingDesk.h"
#include "Engine/LiveControl.h"
#include "Engine/MicrophoneAuthorization.h"
#include "Engine/MonotonicClock.h"
#include "Engine/TickScheduler.h"
#include "Engine/Timer.h"
#include "Show/ShowOptions.h"
#include "Show/ShowPatch.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

namespace kelvo {

/// What the model is built on; production fills it from the running system, tests with fakes.
struct AppModelEnvironment {
    std::unique_ptr<OfflineShowCache> cache;
    AudioInputPlatform audio;
    std::shared_ptr<UDPSending> artnetTransport;
    EnttecSerialSender enttec;
    std::shared_ptr<MicrophoneAuthorization> microphone =
        std::make_shared<AlwaysAuthorizedMicrophone>();
    std::shared_ptr<TimerFactory> timers = std::make_shared<QtTimerFactory>();
    std::shared_ptr<const MonotonicClock> clock = std::make_shared<SteadyMonotonicClock>();
    /// False in tests that call `tick()` by hand.
    bool runTickTimer = true;
    std::optional<QString> serverURL;
};

/// The application model: owns every long-lived component and every value the dashboard shows.
/// Main thread only. Behaviour lives in the focused classes it owns; this wires them together.
class AppModel : public QObject, private EngineLoopListener {
    Q_OBJECT
    Q_PROPERTY(QString statusMessage READ statusMessage NOTIFY statusMessageChanged)
    Q_PROPERTY(bool hasOfflineWorkspace READ hasOfflineWorkspace NOTIFY hasOfflineWorkspaceChanged)
    Q_PROPERTY(bool isDropHeld READ isDropHeld NOTIFY isDropHeldChanged)
    Q_PROPERTY(
        bool artnetEnabled READ artnetEnabled WRITE setArtNetEnabled NOTIFY outputSettingsChanged)
    Q_PROPERTY(QString artnetHost READ artnetHost WRITE setArtNetHost NOTIFY outputSettingsChanged)
    Q_PROPERTY(
        bool artnetAutoFix READ artnetAutoFix WRITE setArtNetAutoFix NOTIFY outputSettingsChanged)
    Q_PROPERTY(
        bool enttecEnabled READ enttecEnabled WRITE setEnttecEnabled NOTIFY outputSettingsChanged)
    Q_PROPERTY(QString serverURLString READ serverURLString CONSTANT)

public:
    static constexpr const char* microphoneRequiredText =
        "Microphone access is required. Enable Kelvo in System Settings → Privacy & Security → "
        "Microphone.";
    static constexpr const char* audioUnavailablePrefix = "Audio input unavailable: ";
    static constexpr const char* recordingNeedsInputText =
        "Recording needs an available audio input.";

    explicit AppModel(AppModelEnvironment environment, QObject* parent = nullptr);
    ~AppModel() override;

    /// Start-up from the cache: settings, harness, show, workspace, themes, engine loop, audio
    /// devices. Lighting runs before any network exists.
    void bootstrap();
    /// At quit: stop capture, which closes a running recording.
    void applicationWillTerminate();

    // Engine loop
    void startEngineLoop();
    void stopEngineLoop();
    void tick();
    void outputMergedDmx(const DmxFrame& engineBuffers);
    std::optional<int> captureChannelCount() const;
    void toggleAudioRecording();
    bool isEngineLoopRunning() const { return tickScheduler_.isActive() || loopRunning_; }

    // Drop
    void beginForcedDrop(DropHoldSource source) { dropHold_.begin(source); }
    void endForcedDrop(DropHoldSource source) { dropHold_.end(source); }
    void triggerMenuDrop() { dropHold_.triggerMenuDrop(); }
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

    // Output configuration
    bool artnetEnabled() const { return outputs_.settings().artnetEnabled; }
    QString artnetHost() const { return QString::fromStdString(outputs_.settings().artnetHost); }
    bool artnetAutoFix() const { return outputs_.settings().artnetAutoFix; }
    bool enttecEnabled() const { return outputs_.settings().enttecEnabled; }
    void setArtNetEnabled(bool enabled);
    void setArtNetHost(const QString& host);
    void setArtNetAutoFix(bool enabled);
    void setEnttecEnabled(bool enabled);
    void replaceRoutes(std::vector<UniverseRoute> routes);
    void changeRouteDestination(std::int64_t virtualUniverse,
                                UniverseRoute::Destination destination);
    const std::vector<UniverseRoute>& routes() const { return outputs_.routes(); }

    // Lighting desk
    void setDesk(const LightingDeskState& desk) { desk_ = desk; }
    const LightingDeskState& desk() const { return desk_; }

    // Published views
    const QString& statusMessage() const { return statusMessage_; }
    void setStatusMessage(const QString& message);
    bool hasOfflineWorkspace() const { return hasOfflineWorkspace_; }
    const QString& serverURLString() const { return serverURLString_; }
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

    // Components
    EngineHost& engine() { return engine_; }
    MicCapture& mic() { return *mic_; }
    AudioInputSelectionModel& audioSelection() { return *audioSelection_; }
    LiveDmxOutput& dmxOutput() { return dmxOutput_; }
    OfflineShowCache& cache() { return *cache_; }

signals:
    void statusMessageChanged();
    void hasOfflineWorkspaceChanged();
    void isDropHeldChanged();
    void outputSettingsChanged();
    void micTraceChanged();
    void beatReadoutChanged();
    void lightingPlotChanged();
    void liveSchemeChanged();
    void dmxPreviewChanged();
    void dropDiagnosticsChanged();
    void selectionsChanged();
    void workspaceChanged();

private:
    class CaptureHopSource;

    // EngineLoopListener
    void micTraceChanged(const MicBandTrace&) override { emit micTraceChanged(); }
    void beatReadoutChanged(const BeatReadout&) override { emit beatReadoutChanged(); }
    void visualsRefreshed() override;
    void outputFrame(const DmxFrame& engineBuffers) override { outputMergedDmx(engineBuffers); }

    void startCaptureOrReport();
    void refreshDropDiagnostics();
    LiveControlHooks liveControlHooks();
    std::optional<nlohmann::json> themePayloads() const;
    std::optional<OfflineWorkspaceUIState> currentWorkspaceState() const;

    AppModelEnvironment environment_;
    std::unique_ptr<OfflineShowCache> cache_;
    EngineHost engine_;
    MicCapture* mic_;
    AudioInputDeviceMonitor* audioMonitor_;
    AudioInputSelectionModel* audioSelection_;
    LiveDmxOutput dmxOutput_;
    OutputConfiguration outputs_;
    std::unique_ptr<CaptureHopSource> hopSource_;
    EngineLoop engineLoop_;
    TickScheduler tickScheduler_;
    ForcedDropHold dropHold_;
    LiveControl liveControl_;

    bool loopRunning_ = false; // the timer exists (or would, with runTickTimer false)
    bool requestingAudioPermission_ = false;
    bool pendingRecordingStart_ = false;
    bool hasOfflineWorkspace_ = false;
    QString statusMessage_;
    QString serverURLString_;
    LightingDeskState desk_;
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
};

} // namespace kelvo
