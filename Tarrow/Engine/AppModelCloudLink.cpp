#include "Engine/AppModel.h"

#include "Cloud/BuildRevision.h"
#include "Show/BootstrapViewData.h"
#include "Show/ShowPatchBuilder.h"
#include "Support/ChangeNotification.h"

#include <QDebug>

// The application model's side of the cloud link: wiring the session and the download, and
// applying what they bring (the bootstrap, show patches, themes).

namespace kelvo {

void AppModel::makeCloudLink() {
    cacheWriter_ = std::make_unique<CacheWriter>();
    // Tearing down the engine a new one replaced takes the better part of a millisecond.
    QObject::connect(&engine_, &EngineHost::engineRetired, this, [this] {
        if (tickSlots_)
            tickSlots_->post([this] { engine_.releaseRetiredEngine(); }, {});
        else
            engine_.releaseRetiredEngine();
    });
    if (!environment_.http) {
        showRealisation_ = std::make_unique<ShowRealisation>(engine_, nullptr, nullptr);
        return;
    }
    tickSlots_ = std::make_unique<TickSlots>([this] { return tickScheduler_.isActive(); });
    showRealisation_ = std::make_unique<ShowRealisation>(engine_, tickSlots_.get(), this);
    ShowDownloadTarget& target = *this;
    showDownload_ = std::make_unique<ShowDownload>(*cache_, engine_, target, cacheWriter_.get(),
                                                   this, tickSlots_.get());
    CloudSessionEnvironment cloud;
    cloud.serverURL = environment_.serverURL;
    cloud.http = environment_.http;
    cloud.tokens = settings_.get();
    cloud.scheduler = environment_.cloudScheduler;
    cloud.leaving = environment_.leaving;
    cloud.hasOfflineWorkspace = [this] { return hasOfflineWorkspace_; };
    cloud.fetchShowAndHarness = [this](std::string token, CancellationToken cancel) {
        return showDownload_->fetchShowAndHarness(cloud_->client(), std::move(token),
                                                  std::move(cancel));
    };
    cloud.buildRevision = QString::fromStdString(buildRevision());
    cloud_ = std::make_unique<CloudSession>(std::move(cloud));
    QObject::connect(cloud_.get(), &CloudSession::statusReported, this, &AppModel::showCloudStatus);
    QObject::connect(cloud_.get(), &CloudSession::connectionStatusChanged, this,
                     &AppModel::connectionStatusChanged);
    QObject::connect(cloud_.get(), &CloudSession::sessionInfoChanged, this,
                     &AppModel::sessionInfoChanged);
    QObject::connect(cloud_.get(), &CloudSession::appUpdateDownloadURLChanged, this,
                     &AppModel::appUpdateDownloadURLChanged);
    QObject::connect(cloud_.get(), &CloudSession::pairingPageReady, this,
                     &AppModel::pairingPageReady);
    QObject::connect(cloud_.get(), &CloudSession::signedOut, this, &AppModel::resetAfterSignOut);
    QObject::connect(cloud_.get(), &CloudSession::connected, this, [this] {
        if (!engineLoopWanted_)
            startEngineLoop();
        // Opening the socket is a few tenths of a millisecond once the channel has loaded the
        // TLS backend on its worker; it still waits for a slot after a tick.
        tickSlots_->post(
            [this] {
                if (showUpdates_ && !showUpdates_->isOpen())
                    if (const auto token = settings_->authToken(cloud_->serverURL()))
                        startShowUpdates(*token);
            },
            cloud_->lifetimeToken());
    });
    makeShowUpdatesChannel();
}

void AppModel::showCloudStatus(const QString& message) {
    // The cloud having nothing to say must not wipe another part's complaint (audio input).
    if (message.isEmpty() && statusMessage_ != lastCloudStatus_)
        return;
    lastCloudStatus_ = message;
    setStatusMessage(message);
}

void AppModel::startPairing() {
    if (cloud_)
        cloud_->startPairing();
}

void AppModel::autoConnect() {
    if (cloud_)
        cloud_->autoConnect();
}

void AppModel::reauthenticate() {
    if (cloud_)
        cloud_->reauthenticate();
}

void AppModel::notifyDisconnectSync(std::chrono::milliseconds timeout) {
    if (cloud_)
        cloud_->notifyDisconnectSync(timeout);
}

void AppModel::refreshAppUpdateNotice() {
    if (cloud_)
        cloud_->refreshAppUpdateNotice();
}

QCoro::Task<> AppModel::fetchShowAndHarness(std::string token) {
    if (!cloud_)
        throw std::logic_error("no cloud link");
    return showDownload_->fetchShowAndHarness(cloud_->client(), std::move(token),
                                              cloud_->lifetimeToken());
}

void AppModel::resetAfterSignOut() {
    stopShowUpdates();
    liveControl_.restoreSelections(BootstrapViewData::defaultModeId, std::nullopt, 0.0,
                                   BootstrapViewData::defaultThemeName);
    publishSelections();
    engine_.applyControl({.modeId = BootstrapViewData::defaultModeId,
                          .modeTo = std::nullopt,
                          .modeLerp = 0.0,
                          .themeName = BootstrapViewData::defaultThemeName});
    stopEngineLoop();
    lastCloudStatus_ = CloudSession::signedOutText;
    setStatusMessage(CloudSession::signedOutText);
    startEngineLoop();
}

void AppModel::refreshOfflineWorkspace() {
    const bool offline = cache_->hasOfflineRuntime();
    if (offline != hasOfflineWorkspace_) {
        hasOfflineWorkspace_ = offline;
        emit hasOfflineWorkspaceChanged();
    }
}

void AppModel::applyBootstrap(const QByteArray& payload) {
    inBackground(applyParsedBootstrap(BootstrapViewData::parseDocument(std::string_view(
                                          payload.constData(), std::size_t(payload.size()))),
                                      cloudLifetime()));
}

CancellationToken AppModel::cloudLifetime() const {
    return cloud_ ? cloud_->lifetimeToken() : CancellationToken();
}

QCoro::Task<> AppModel::inBackground(QCoro::Task<> flow) {
    try {
        co_await std::move(flow);
    } catch (const FlowCancelled&) {
        // Signed out or quitting: nothing is left to apply it to.
    }
}

QCoro::Task<> AppModel::applyParsedBootstrap(nlohmann::json bootstrap, CancellationToken cancel) {
    if (assignIfChanged(shows_, BootstrapViewData::parsed::extractShowList(bootstrap)))
        emit showsChanged();
    if (assignIfChanged(lightingModes_, BootstrapViewData::parsed::extractLightingModes(bootstrap)))
        emit lightingModesChanged();
    const BridgeControlSelections selections =
        BootstrapViewData::parsed::extractControlSelections(bootstrap);
    liveControl_.restoreSelections(selections.modeId, selections.modeTo, selections.modeLerp,
                                   selections.themeName);
    publishSelections();
    const LightingModeSelection selection = liveControl_.lightingModeSelection();

    nlohmann::json controlState = nlohmann::json::object();
    if (const auto found = bootstrap.find("control_state");
        found != bootstrap.end() && found->is_object())
        controlState = *found;
    controlState.update(selection.controlFields());
    // The selections and the themes reach the engine with the show, never a tick after it.
    const auto applySelections = [this, selection] {
        engine_.applyControl(
            {.modeId = selection.modeId, .modeTo = selection.modeTo, .modeLerp = selection.amount});
        pushThemesToEngine();
    };
    bool applied = false;
    const auto activeShow = bootstrap.find("active_show");
    if (activeShow != bootstrap.end() && activeShow->is_object()) {
        QCoro::Task<> loading = loadActiveShow(std::move(*activeShow), std::move(controlState),
                                               cancel, [&applied, applySelections](bool switched) {
                                                   if (switched) {
                                                       applySelections();
                                                       applied = true;
                                                   }
                                               });
        co_await std::move(loading);
    }
    // A new engine without a show to switch with takes over now (a newer show brings it).
    if (!showRealisation_->isRealising())
        engine_.installStagedHarness();
    if (!engine_.hasRealizedShow() && !showRealisation_->isRealising()) {
        if (const std::optional<QByteArray> snapshot = cache_->loadShowSnapshot())
            engine_.loadCachedShow(
                std::string_view(snapshot->constData(), std::size_t(snapshot->size())));
    }
    if (!applied)
        applySelections();
    persistWorkspaceUI();
    refreshOfflineWorkspace();
}

QCoro::Task<> AppModel::loadActiveShow(nlohmann::json activeShow, nlohmann::json controlState,
                                       CancellationToken cancel,
                                       std::function<void(bool switched)> atSwitch) {
    if (const std::optional<ShowPatch> patch = ShowPatchBuilder::build(activeShow)) {
        setAndNotify(selectedShowId_, std::optional<std::string>(patch->showId), this,
                     &AppModel::selectedShowIdChanged);
        recordShowPatch(*patch);
    }
    QCoro::Task<std::optional<std::string>> realising = showRealisation_->realise(
        std::move(activeShow), std::move(controlState), std::move(cancel), std::move(atSwitch));
    if (const std::optional<std::string> subset = co_await std::move(realising)) {
        // Snapshots pushed in a burst are written once: only the newest is worth the disk.
        if (pendingSnapshot_->put(QByteArray::fromStdString(*subset)))
            cacheWriter_->write(
                [cache = cache_.get(), pending = pendingSnapshot_] {
                    if (const std::optional<QByteArray> snapshot = pending->take())
                        cache->saveShowSnapshot(*snapshot);
                },
                this, [this] { refreshOfflineWorkspace(); });
    }
}

void AppModel::recordShowPatch(const ShowPatch& patch) {
    if (selectedShowId_ == patch.showId && showPatch_ == patch)
        return; // on disk already: a snapshot pushed again must not queue another write
    cacheWriter_->write([cache = cache_.get(), patch] { cache->savePatch(patch); });
    if (selectedShowId_ == patch.showId &&
        assignIfChanged(showPatch_, std::optional<ShowPatch>(patch)))
        emit showPatchChanged();
}

void AppModel::replaceThemes(std::vector<ThemeOption> themes) {
    if (assignIfChanged(themes_, std::move(themes)))
        emit themesChanged();
    pushThemesToEngine();
}

void AppModel::showDownloadFinished() {
    persistWorkspaceUI();
    refreshOfflineWorkspace();
    if (!engineLoopWanted_)
        startEngineLoop();
}

QVariant AppModel::sessionInfoVariant() const {
    if (!cloud_ || !cloud_->sessionInfo())
        return {};
    const BridgeSessionInfo& info = *cloud_->sessionInfo();
    QVariantMap map;
    const auto text = [&map](const char* key, const std::optional<std::string>& value) {
        if (value)
            map.insert(QLatin1String(key), QString::fromStdString(*value));
    };
    text("displayName", info.displayName);
    text("orgId", info.orgId);
    text("orgName", info.orgName);
    text("accountName", info.accountName);
    text("deviceName", info.deviceName);
    if (info.isBridge)
        map.insert(QStringLiteral("isBridge"), *info.isBridge);
    return map;
}

QVariant AppModel::appUpdateDownloadURLVariant() const {
    if (!cloud_ || !cloud_->appUpdateDownloadURL())
        return {};
    return *cloud_->appUpdateDownloadURL();
}

} // namespace kelvo
