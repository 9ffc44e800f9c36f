#include "Engine/LiveControl.h"

#include "Cloud/BridgeAPIError.h"
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

/// The blend as shown: 0…1, and 0 when absent or not finite.
double clampedLerp(std::optional<double> lerp) {
    const double value = lerp.value_or(0.0);
    return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0.0;
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

LiveControl::~LiveControl() {
    lifetime_->cancel();
}

std::optional<std::string> LiveControl::deviceToken() const {
    return queries_.deviceToken && queries_.sendControlState ? queries_.deviceToken()
                                                             : std::nullopt;
}

void LiveControl::setSendRunning(bool& flag, bool running) {
    const bool before = isUpdatingControl();
    flag = running;
    if (isUpdatingControl() != before)
        emit isUpdatingControlChanged();
}

std::optional<nlohmann::json> LiveControl::themePayloads() const {
    return queries_.themePayloads ? queries_.themePayloads() : std::nullopt;
}

bool LiveControl::ownsModeFields() const {
    return modeSendRunning_ || pending_.has_value() || (ownedUntil_ && clock_.now() < *ownedUntil_);
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
        if (const std::optional<std::string> mode = stringValue(state, "mode");
            mode && !mode->empty())
            overriddenRemote_ = PendingSelection{{*mode, stringValue(state, "mode_to"),
                                                  clampedLerp(numberValue(state, "mode_lerp"))},
                                                 generation_};
        const nlohmann::json local = lightingModeSelection().controlFields();
        for (const auto& [key, value] : local.items())
            state[key] = value;
    }
    for (const auto& [key, value] : state.items())
        lastControlState_[key] = value;

    bool changed = false;
    const std::optional<std::string> mode = stringValue(state, "mode");
    if (mode && !mode->empty()) {
        const LightingModeSelection selection{*mode, stringValue(state, "mode_to"),
                                              clampedLerp(numberValue(state, "mode_lerp"))};
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
    if (!deviceToken()) {
        // Offline or unpaired: nobody can disagree, so the pick is final.
        confirmed_ = selection;
        return;
    }
    pending_ = PendingSelection{selection, generation_};
    ownedUntil_ =
        clock_.now() + std::chrono::duration_cast<MonotonicClock::Duration>(ownershipWindow);
    if (!modeSendRunning_)
        runModeSelectionTask(CancellationToken(lifetime_));
}

// One send at a time, so the cloud hears the picks in order; picks made meanwhile collapse
// into the newest, which is sent next.
QCoro::Task<> LiveControl::runModeSelectionTask(CancellationToken cancel) {
    setSendRunning(modeSendRunning_, true);
    while (pending_) {
        const PendingSelection sending = *pending_;
        const std::optional<std::string> token = deviceToken();
        if (!token) { // signed out meanwhile: the pick stays, as it would offline
            confirmed_ = sending.selection;
            pending_.reset();
            break;
        }
        std::optional<std::string> failure;
        bool refused = false;
        try {
            QCoro::Task<> send =
                queries_.sendControlState(sending.selection.controlFields(), *token, cancel);
            co_await std::move(send);
        } catch (const BridgeAPIError& error) {
            failure = error.what();
            refused = error.kind() == BridgeAPIError::Kind::httpError &&
                      error.statusCode() >= 400 && error.statusCode() < 500;
        } catch (const std::exception& error) {
            failure = error.what();
        }
        if (cancel.isCancelled())
            co_return; // the control is gone
        if (!pending_)
            break;
        if (pending_->generation != sending.generation)
            continue; // a newer pick supersedes this one, whatever became of it
        pending_.reset();
        if (!failure) {
            confirmed_ = sending.selection;
            emit controlChangeSucceeded(QString::fromUtf8(switchModeFailedPrefix));
            continue;
        }
        // The cloud said no: go back to what it holds, the newest state it pushed during this
        // pick or else the last one agreed. Unreachable or failing itself, it has no say, and
        // the lights keep the operator's pick.
        if (refused) {
            if (overriddenRemote_ && overriddenRemote_->generation == sending.generation)
                confirmed_ = overriddenRemote_->selection;
            if (confirmed_)
                applyLocalModeSelection(*confirmed_);
        }
        emit controlChangeFailed(QString::fromUtf8(switchModeFailedPrefix) +
                                 QString::fromStdString(*failure));
    }
    setSendRunning(modeSendRunning_, false);
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
    if (!deviceToken())
        return;
    pendingTheme_ = name;
    if (!themeSendRunning_)
        runThemeTask(CancellationToken(lifetime_));
}

QCoro::Task<> LiveControl::runThemeTask(CancellationToken cancel) {
    setSendRunning(themeSendRunning_, true);
    while (pendingTheme_) {
        const std::string theme = *std::exchange(pendingTheme_, std::nullopt);
        const std::optional<std::string> token = deviceToken();
        if (!token)
            break;
        std::optional<std::string> failure;
        try {
            QCoro::Task<> send = queries_.sendControlState({{"theme_name", theme}}, *token, cancel);
            co_await std::move(send);
        } catch (const std::exception& error) {
            failure = error.what();
        }
        if (cancel.isCancelled())
            co_return; // the control is gone
        if (pendingTheme_)
            continue; // only the newest pick's outcome is worth a word
        if (failure)
            emit controlChangeFailed(QString::fromUtf8(switchColorSchemeFailedPrefix) +
                                     QString::fromStdString(*failure));
        else
            emit controlChangeSucceeded(QString::fromUtf8(switchColorSchemeFailedPrefix));
    }
    setSendRunning(themeSendRunning_, false);
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
