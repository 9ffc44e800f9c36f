#pragma once

#include "Support/MonotonicClock.h"

#ifndef Q_MOC_RUN // moc cannot read the coroutine headers
#include "Cloud/Cancellation.h"

#include <QCoro/QCoroTask>
#endif

#include <QObject>
#include <QString>

#include <nlohmann/json.hpp>

#include <functional>
#include <optional>
#include <string>

namespace kelvo {

class EngineHost;

/// A lighting mode, optionally blended towards a second one.
struct LightingModeSelection {
    std::string modeId;
    std::optional<std::string> modeTo;
    double amount = 0.0;

    /// The control-state entries "mode", "mode_to" (null without a second mode), "mode_lerp".
    nlohmann::json controlFields() const;

    friend bool operator==(const LightingModeSelection&, const LightingModeSelection&) = default;
};

/// What the live control asks its owner.
struct LiveControlQueries {
    /// The engine payload of every known theme; nullopt when there are none.
    std::function<std::optional<nlohmann::json>()> themePayloads;
    /// The device token stored for the configured server; nullopt offline or unpaired.
    std::function<std::optional<std::string>()> deviceToken;
    /// Sends control-state fields to the cloud; fails with the cloud link's error.
    std::function<QCoro::Task<>(nlohmann::json fields, std::string deviceToken,
                                CancellationToken cancel)>
        sendControlState;
};

/// Mode, blend and colour scheme, changed locally or by the cloud. A local mode pick owns the mode
/// fields for a short window so that an older remote echo cannot undo it. Main thread only.
class LiveControl : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds ownershipWindow{600};
    static constexpr const char* switchModeFailedPrefix = "Couldn’t switch mode: ";
    static constexpr const char* switchColorSchemeFailedPrefix = "Couldn’t switch color scheme: ";

    LiveControl(EngineHost& engine, const MonotonicClock& clock, LiveControlQueries queries,
                QObject* parent = nullptr);
    ~LiveControl() override;

    void applyLiveControlState(const nlohmann::json& state);
    void selectLightingBlend(const LightingModeSelection& selection);
    void applyLocalModeSelection(const LightingModeSelection& selection);
    void selectTheme(const std::string& name);
    /// Sends every theme and the selected one to the engine (after start-up or a theme list
    /// change).
    void pushThemesToEngine();
    /// Restores selections from the cache without any engine or cloud traffic.
    void restoreSelections(const std::string& modeId, std::optional<std::string> modeTo,
                           double modeLerp, const std::string& themeName);

    bool ownsModeFields() const;
    /// A mode or colour-scheme change is on its way to the cloud.
    bool isUpdatingControl() const { return modeSendRunning_ || themeSendRunning_; }
    LightingModeSelection lightingModeSelection() const;
    const std::string& selectedModeId() const { return selectedModeId_; }
    const std::optional<std::string>& selectedModeTo() const { return selectedModeTo_; }
    double selectedModeLerp() const { return selectedModeLerp_; }
    const std::string& selectedThemeName() const { return selectedThemeName_; }
    const nlohmann::json& lastControlState() const { return lastControlState_; }
    const std::optional<LightingModeSelection>& confirmedModeSelection() const {
        return confirmed_;
    }
    struct PendingSelection {
        LightingModeSelection selection;
        std::uint64_t generation = 0;
    };
    const std::optional<PendingSelection>& pendingModeSelection() const { return pending_; }
    std::uint64_t modeSelectionGeneration() const { return generation_; }

signals:
    /// Any of the selected mode, blend or theme changed.
    void selectionsChanged();
    /// Selections were applied, changed or not: the workspace file follows them.
    void workspaceEdited();
    /// A remote state carried a mode: the interpretation is published if linked.
    void remoteModeApplied();
    void isUpdatingControlChanged();
    /// A change was not taken by the cloud: the whole status line ("Couldn’t …: reason").
    void controlChangeFailed(const QString& message);
    /// A change of the kind whose failures start with `prefix` went through: a complaint of
    /// that kind is stale.
    void controlChangeSucceeded(const QString& prefix);

private:
    std::optional<nlohmann::json> themePayloads() const;
    std::optional<std::string> deviceToken() const;
    QCoro::Task<> runModeSelectionTask(CancellationToken cancel);
    QCoro::Task<> runThemeTask(CancellationToken cancel);
    void setSendRunning(bool& flag, bool running);

    EngineHost& engine_;
    const MonotonicClock& clock_;
    LiveControlQueries queries_;

    std::string selectedModeId_;
    std::optional<std::string> selectedModeTo_;
    double selectedModeLerp_ = 0.0;
    std::string selectedThemeName_;
    nlohmann::json lastControlState_ = nlohmann::json::object();
    std::optional<PendingSelection> pending_;
    // The newest remote mode that the local pick (of that generation) overrode.
    std::optional<PendingSelection> overriddenRemote_;
    std::optional<LightingModeSelection> confirmed_;
    std::uint64_t generation_ = 0;
    std::optional<MonotonicClock::Duration> ownedUntil_;
    bool modeSendRunning_ = false;
    // The colour scheme waiting to be sent; a newer pick replaces it.
    std::optional<std::string> pendingTheme_;
    bool themeSendRunning_ = false;
    // Cancelled when the control goes away, so a send in flight never touches it again.
    std::shared_ptr<CancellationSource> lifetime_ = std::make_shared<CancellationSource>();
};

} // namespace kelvo
