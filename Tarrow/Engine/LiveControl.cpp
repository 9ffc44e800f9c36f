#include "Engine/LiveControl.h"

#include "Engine/EngineHost.h"
#include "Show/JsonValueReaders.h"
#include "Support/ChangeNotification.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

namespace {

std::optional<std::string> stringValue(const nlohmann::json& state, const char* key) {
    return json_read::jsonString(json_read::member(state, key));
}

std::optional<double> numberValue(const nlohmann::json& state, const char* key) {
    return json_read::jsonDouble(json_read::member(state, key));
}

} // namespace

nlohmann::json LightingModeSelection::controlFields() const {
    return {{"mode", modeId},
            {"mode_to", modeTo ? nlohmann::json(*modeTo) : nlohmann::json(nullptr)},
            {"mode_lerp", amount}};
}

LiveControl::LiveControl(EngineHost& engine, const MonotonicClock& clock,
                         LiveControlQueries queries, QObject* parent)
    : QObject(parent), engine_(engine), clock_(clock), queries_(std::move(queries)) {}

std::optional<nlohmann::json> LiveControl::themePayloads() const {
    return queries_.themePayloads ? queries_.themePayloads() : std::nullopt;
}

bool LiveControl::ownsModeFields() const {
    return sendRunning_ || pending_.has_value() || (ownedUntil_ && clock_.now() < *ownedUntil_);
}

LightingModeSelection LiveControl::lightingModeSelection() const {
    return {selectedModeId_, selectedModeTo_, selectedModeLerp_};
}

void LiveControl::applyLiveControlState(const nlohmann::json& incoming) {
    if (!incoming.is_object())
        return;
    nlohmann::json state = incoming;
    const bool owned = ownsModeFields();
    if (owned && state.contains("mode")) {
        const nlohmann::json local = lightingModeSelection().controlFields();
        for (const auto& [key, value] : local.items())
            state[key] = value;
    }
    for (const auto& [key, value] : state.items())
        lastControlState_[key] = value;

    bool changed = false;
    const std::optional<std::string> mode = stringValue(state, "mode");
    if (mode && !mode->empty()) {
        const double lerp = numberValue(state, "mode_lerp").value_or(0.0);
        const LightingModeSelection selection{*mode, stringValue(state, "mode_to"),
                                              std::isfinite(lerp) ? std::clamp(lerp, 0.0, 1.0)
                                                                  : 0.0};
        changed = selection != lightingModeSelection();
        selectedModeId_ = selection.modeId;
        selectedModeTo_ = selection.modeTo;
        selectedModeLerp_ = selection.amount;
        if (!owned)
            confirmed_ = lightingModeSelection();
    }
    const std::optional<std::string> theme = stringValue(state, "theme_name");
    if (theme && !theme->empty() && *theme != selectedThemeName_) {
        selectedThemeName_ = *theme;
        changed = true;
    }
    if (changed)
        emit selectionsChanged();

    EngineControl control;
    control.modeId = mode;
    control.modeTo = stringValue(state, "mode_to");
    control.modeLerp = numberValue(state, "mode_lerp");
    control.themeName = theme;
    control.themes = themePayloads();
    control.manualDimmer = EngineHost::manualDimmer(state);
    engine_.applyControl(control);

    if (mode)
        emit remoteModeApplied();
    emit workspaceEdited();
}

void LiveControl::selectLightingBlend(const LightingModeSelection& requested) {
    LightingModeSelection selection = requested;
    selection.amount =
        std::isfinite(selection.amount) ? std::clamp(selection.amount, 0.0, 1.0) : 0.0;
    if (selection == lightingModeSelection())
        return;
    if (!confirmed_)
        confirmed_ = lightingModeSelection();
    ++generation_;
    applyLocalModeSelection(selection);
    if (!queries_.hasDeviceToken || !queries_.hasDeviceToken()) {
        // Offline or unpaired: nobody can disagree, so the pick is final.
        confirmed_ = selection;
        return;
    }
    pending_ = PendingSelection{selection, generation_};
    ownedUntil_ =
        clock_.now() + std::chrono::duration_cast<MonotonicClock::Duration>(ownershipWindow);
    if (!sendRunning_)
        emit modeSelectionPending();
}

void LiveControl::modeSelectionSent(const LightingModeSelection& selection,
                                    std::uint64_t generation) {
    if (pending_ && pending_->generation == generation)
        pending_.reset();
    confirmed_ = selection;
}

void LiveControl::applyLocalModeSelection(const LightingModeSelection& selection) {
    const bool changed = selection != lightingModeSelection();
    selectedModeId_ = selection.modeId;
    selectedModeTo_ = selection.modeTo;
    selectedModeLerp_ = selection.amount;
    if (changed)
        emit selectionsChanged();
    engine_.applyControl(
        {.modeId = selection.modeId, .modeTo = selection.modeTo, .modeLerp = selection.amount});
    emit workspaceEdited();
}

void LiveControl::selectTheme(const std::string& name) {
    engine_.applyControl({.themeName = name, .themes = themePayloads()});
    setAndNotify(selectedThemeName_, name, this, &LiveControl::selectionsChanged);
    emit workspaceEdited();
}

void LiveControl::pushThemesToEngine() {
    const std::optional<nlohmann::json> themes = themePayloads();
    if (!themes && selectedThemeName_.empty())
        return;
    engine_.applyControl({.themeName = selectedThemeName_, .themes = themes});
}

void LiveControl::restoreSelections(const std::string& modeId, std::optional<std::string> modeTo,
                                    double modeLerp, const std::string& themeName) {
    const LightingModeSelection restored{
        modeId, std::move(modeTo), std::isfinite(modeLerp) ? std::clamp(modeLerp, 0.0, 1.0) : 0.0};
    const bool changed = restored != lightingModeSelection() || themeName != selectedThemeName_;
    selectedModeId_ = restored.modeId;
    selectedModeTo_ = restored.modeTo;
    selectedModeLerp_ = restored.amount;
    selectedThemeName_ = themeName;
    if (changed)
        emit selectionsChanged();
}

} // namespace kelvo
