#include "Engine/LiveControl.h"

#include "Engine/EngineHost.h"
#include "Show/JsonValueReaders.h"

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

LiveControl::LiveControl(EngineHost& engine, const MonotonicClock& clock, LiveControlHooks hooks)
    : engine_(engine), clock_(clock), hooks_(std::move(hooks)) {}

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
        call(hooks_.selectionsChanged);

    EngineControl control;
    control.modeId = mode;
    control.modeTo = stringValue(state, "mode_to");
    control.modeLerp = numberValue(state, "mode_lerp");
    control.themeName = theme;
    control.themes = hooks_.themePayloads ? hooks_.themePayloads() : std::nullopt;
    control.manualDimmer = EngineHost::manualDimmer(state);
    engine_.applyControl(control);

    if (mode)
        call(hooks_.publishInterpretationIfLinked);
    call(hooks_.persistWorkspaceUI);
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
    if (!hooks_.hasDeviceToken || !hooks_.hasDeviceToken() || !hooks_.startModeSelectionSend) {
        // Offline or unpaired: nobody can disagree, so the pick is final.
        confirmed_ = selection;
        return;
    }
    pending_ = PendingSelection{selection, generation_};
    ownedUntil_ =
        clock_.now() + std::chrono::duration_cast<MonotonicClock::Duration>(ownershipWindow);
    if (!sendRunning_)
        hooks_.startModeSelectionSend();
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
        call(hooks_.selectionsChanged);
    engine_.applyControl(
        {.modeId = selection.modeId, .modeTo = selection.modeTo, .modeLerp = selection.amount});
    call(hooks_.persistWorkspaceUI);
}

void LiveControl::selectTheme(const std::string& name) {
    engine_.applyControl({.themeName = name,
                          .themes = hooks_.themePayloads ? hooks_.themePayloads() : std::nullopt});
    if (name != selectedThemeName_) {
        selectedThemeName_ = name;
        call(hooks_.selectionsChanged);
    }
    call(hooks_.persistWorkspaceUI);
}

void LiveControl::pushThemesToEngine() {
    const std::optional<nlohmann::json> themes =
        hooks_.themePayloads ? hooks_.themePayloads() : std::nullopt;
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
        call(hooks_.selectionsChanged);
}

} // namespace kelvo
