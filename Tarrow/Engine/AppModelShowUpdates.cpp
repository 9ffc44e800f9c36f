#include "Engine/AppModel.h"

#include "Show/BootstrapViewData.h"
#include "Show/UntrustedJSON.h"

#include <QDebug>

// The application model's side of the cloud's push socket: what each pushed message does,
// and the reload of the active show when the cloud says it changed.

namespace kelvo {

void AppModel::makeShowUpdatesChannel() {
    showUpdates_ = std::make_unique<ShowUpdatesChannel>(
        [this] { return connectionStatus() == ConnectionStatus::connected; });
    QObject::connect(showUpdates_.get(), &ShowUpdatesChannel::messageReceived, this,
                     &AppModel::handleShowUpdate);
    // Another client changed the mode: the editor shows the engine's new choice.
    QObject::connect(&liveControl_, &LiveControl::remoteModeApplied, this,
                     &AppModel::publishInterpretationIfLinked);
    QObject::connect(showUpdates_.get(), &ShowUpdatesChannel::activeShowReloadDue, this,
                     [this](std::optional<std::int64_t>) {
                         if (!cloud_)
                             return;
                         if (const auto token = settings_->authToken(cloud_->serverURL()))
                             reloadActiveShow(*token, showSwitchGeneration_);
                     });
}

void AppModel::startShowUpdates(const std::string& token) {
    if (showUpdates_ && cloud_)
        showUpdates_->start(cloud_->client().showUpdatesWebSocketURL(token));
}

void AppModel::stopShowUpdates() {
    if (showUpdates_)
        showUpdates_->stop();
}

void AppModel::handleShowUpdate(const ShowUpdateMessage& message) {
    using namespace show_update;
    if (const auto* bootstrap = std::get_if<Bootstrap>(&message)) {
        if (showDownload_)
            showDownload_->applyPushedBootstrap(QByteArray::fromStdString(bootstrap->bytes),
                                                cloudLifetime());
    } else if (const auto* control = std::get_if<ControlState>(&message)) {
        applyLiveControlState(control->object);
    } else if (const auto* snapshot = std::get_if<ShowSnapshot>(&message)) {
        applyLiveShowSnapshot(snapshot->object);
    } else if (const auto* drop = std::get_if<ForceDrop>(&message)) {
        if (!isDropHeld()) // a hold at the venue wins over the cloud
            engine_.setForcedDrop(drop->active);
    } else if (std::holds_alternative<ShiftLightingOnly>(message)) {
        if (engine_.hasSession()) {
            engine_.shiftLighting();
            publishInterpretationIfLinked();
        }
    } else if (std::holds_alternative<ShiftColorScheme>(message)) {
        engine_.shiftColorScheme();
    }
}

void AppModel::applyLiveShowSnapshot(const nlohmann::json& activeShow) {
    // While a local pick is being activated, a snapshot of another show is the cloud's past.
    if (pendingShowSwitchId_) {
        const auto summary = activeShow.find("summary");
        const bool isPending = summary != activeShow.end() && summary->is_object() &&
                               summary->value("id", nlohmann::json()) == *pendingShowSwitchId_;
        if (!isPending)
            return;
    }
    nlohmann::json controlState = liveControl_.lightingModeSelection().controlFields();
    inBackground(loadActiveShow(activeShow, std::move(controlState), cloudLifetime()));
}

QCoro::Task<> AppModel::reloadActiveShow(std::string token, std::uint64_t switchGeneration) {
    try {
        QCoro::Task<QByteArray> fetching =
            cloud_->client().fetchRuntimeActiveShow(token, cloud_->lifetimeToken());
        const QByteArray bytes = co_await std::move(fetching);
        const auto document =
            parseUntrustedJSON(std::string_view(bytes.constData(), std::size_t(bytes.size())));
        // A show switched here meanwhile wins over what the cloud had before it heard of it.
        if (switchGeneration != showSwitchGeneration_ || !document.is_object())
            co_return;
        const auto activeShow = document.find("active_show");
        if (activeShow != document.end() && activeShow->is_object())
            applyLiveShowSnapshot(*activeShow);
    } catch (const std::exception&) {
        // The next change notice or reconnect tries again.
    }
}

} // namespace kelvo
