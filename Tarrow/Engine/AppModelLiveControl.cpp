#include "Engine/AppModel.h"

// The application model's side of the live control: where its picks go in the cloud, and
// what the operator reads when the cloud does not take them.

namespace kelvo {

LiveControlQueries AppModel::liveControlQueries() {
    LiveControlQueries queries;
    queries.themePayloads = [this] { return themePayloads(); };
    queries.deviceToken = [this]() -> std::optional<std::string> {
        if (!cloud_)
            return std::nullopt;
        return settings_->authToken(cloud_->serverURL());
    };
    queries.sendControlState = [this](nlohmann::json fields, std::string token,
                                      CancellationToken cancel) {
        return cloud_->client().patchControlState(fields, token, std::move(cancel));
    };
    return queries;
}

void AppModel::connectLiveControl() {
    connect(&liveControl_, &LiveControl::selectionsChanged, this, &AppModel::publishSelections);
    connect(&liveControl_, &LiveControl::workspaceEdited, this, &AppModel::persistWorkspaceUI);
    connect(&liveControl_, &LiveControl::isUpdatingControlChanged, this,
            &AppModel::isUpdatingControlChanged);
    connect(&liveControl_, &LiveControl::controlChangeFailed, this, &AppModel::setStatusMessage);
    // Another part's complaint stays; only a stale one about the same kind of change goes.
    connect(&liveControl_, &LiveControl::controlChangeSucceeded, this,
            [this](const QString& prefix) {
                if (statusMessage_.startsWith(prefix))
                    setStatusMessage({});
            });
}

} // namespace kelvo
