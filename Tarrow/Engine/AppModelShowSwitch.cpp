#include "Engine/AppModel.h"

#include "Support/ChangeNotification.h"

// A show picked on the dashboard: the cloud activates it and pushes it back over the
// show-updates channel; here the list, the patch and the workspace follow at once.

namespace kelvo {

void AppModel::selectShow(const QString& id) {
    if (!cloud_ || id.isEmpty())
        return;
    switchShow(id.toStdString());
}

QCoro::Task<> AppModel::switchShow(std::string id) {
    const std::optional<std::string> token = settings_->authToken(cloud_->serverURL());
    if (!token) {
        // Only the cloud holds the other shows; unlinked, the cached one keeps running.
        setStatusMessage(QString::fromUtf8(switchShowFailedPrefix) +
                         QString::fromUtf8(notLinkedText));
        co_return;
    }
    // Reloads already under way carry the show the cloud had before it heard of this one.
    ++showSwitchGeneration_;
    setAndNotify(pendingShowSwitchId_, std::optional<std::string>(id), this,
                 &AppModel::pendingShowSwitchIdChanged);
    setAndNotify(isSwitchingShow_, true, this, &AppModel::isSwitchingShowChanged);
    const CancellationToken cancel = cloud_->lifetimeToken();
    std::optional<std::string> failure;
    try {
        QCoro::Task<nlohmann::json> activating = cloud_->client().activateShow(id, *token, cancel);
        co_await std::move(activating);
    } catch (const FlowCancelled&) {
        co_return; // the model is going away
    } catch (const std::exception& error) {
        failure = error.what();
    }
    if (cancel.isCancelled())
        co_return;
    if (pendingShowSwitchId_ == id)
        setAndNotify(pendingShowSwitchId_, std::optional<std::string>(), this,
                     &AppModel::pendingShowSwitchIdChanged);
    setAndNotify(isSwitchingShow_, false, this, &AppModel::isSwitchingShowChanged);
    if (failure) {
        setStatusMessage(QString::fromUtf8(switchShowFailedPrefix) +
                         QString::fromStdString(*failure));
        co_return;
    }
    if (assignIfChanged(shows_, ShowList::markingActive(shows_, id)))
        emit showsChanged();
    setAndNotify(selectedShowId_, std::optional<std::string>(id), this,
                 &AppModel::selectedShowIdChanged);
    loadCachedPatchOfSelectedShow();
    persistWorkspaceUI();
}

QVariant AppModel::pendingShowSwitchIdVariant() const {
    if (!pendingShowSwitchId_)
        return {};
    return QString::fromStdString(*pendingShowSwitchId_);
}

void AppModel::loadCachedPatchOfSelectedShow() {
    if (!selectedShowId_)
        return;
    // Queued behind the patch writes, so a patch recorded just before is the one read.
    auto loaded = std::make_shared<std::optional<ShowPatch>>();
    cacheWriter_->write(
        [cache = cache_.get(), id = *selectedShowId_, loaded] { *loaded = cache->loadPatch(id); },
        this,
        [this, id = *selectedShowId_, loaded] {
            if (selectedShowId_ == id)
                setAndNotify(showPatch_, std::move(*loaded), this, &AppModel::showPatchChanged);
        });
}

} // namespace kelvo
