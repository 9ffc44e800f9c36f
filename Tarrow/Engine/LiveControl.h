#pragma once

#include "Support/MonotonicClock.h"

#include <QObject>

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
    /// True when a device token is stored for the configured server.
    std::function<bool()> hasDeviceToken;
};

/// Mode, blend and colour scheme, changed locally or by the cloud. A local mode pick owns the mode
/// fields for a short window so that an older remote echo cannot undo it. Main thread only.
class LiveControl : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds ownershipWindow{600};

    LiveControl(EngineHost& engine, const MonotonicClock& clock, LiveControlQueries queries,
                QObject* parent = nullptr);

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

    /// The cloud accepted (or gave up on) the pending selection.
    void modeSelectionSent(const LightingModeSelection& selection, std::uint64_t generation);
    void setModeSelectionSendRunning(bool running) { sendRunning_ = running; }

    bool ownsModeFields() const;
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
    /// A local pick waits to be sent to the cloud; the owner starts the send unless it runs.
    void modeSelectionPending();

private:
    std::optional<nlohmann::json> themePayloads() const;

    EngineHost& engine_;
    const MonotonicClock& clock_;
    LiveControlQueries queries_;

    std::string selectedModeId_;
    std::optional<std::string> selectedModeTo_;
    double selectedModeLerp_ = 0.0;
    std::string selectedThemeName_;
    nlohmann::json lastControlState_ = nlohmann::json::object();
    std::optional<PendingSelection> pending_;
    std::optional<LightingModeSelection> confirmed_;
    std::uint64_t generation_ = 0;
    std::optional<MonotonicClock::Duration> ownedUntil_;
    bool sendRunning_ = false;
};

} // namespace kelvo
