#include "Engine/AppModel.h"

#include "Support/ChangeNotification.h"

#include <QLoggingCategory>

// The interpretation screen and the cloud's copy of it: the tree is decoded from the engine
// only while the screen is shown, and the payload goes to the cloud unchanged off the tick.

namespace kelvo {

namespace {
Q_LOGGING_CATEGORY(lcInterpretation, "kelvo.cloud.interpretation")

QVariantMap partVariant(const InterpretationLabelPart& part) {
    return {{QStringLiteral("label"), QString::fromStdString(part.label)},
            {QStringLiteral("category"), QString::fromStdString(part.category)}};
}

QVariantMap rowVariant(const InterpretationRow& row) {
    QVariantList parts;
    for (const InterpretationLabelPart& part : row.parts)
        parts.push_back(partVariant(part));
    QStringList fixtureIds;
    for (const std::string& id : row.fixtureIds)
        fixtureIds.push_back(QString::fromStdString(id));
    return {{QStringLiteral("id"), QString::fromStdString(row.id())},
            {QStringLiteral("label"), QString::fromStdString(row.label())},
            {QStringLiteral("fixtureLabel"), QString::fromStdString(row.fixtureLabel)},
            {QStringLiteral("fixtureIds"), fixtureIds},
            {QStringLiteral("parts"), parts}};
}
} // namespace

void AppModel::setInterpretationScreenVisible(bool visible) {
    if (setAndNotify(interpretationScreenVisible_, visible, this,
                     &AppModel::interpretationScreenVisibleChanged))
        refreshInterpretationTree(); // the screen opens on the current tree, not the last one
}

void AppModel::refreshInterpretationTree() {
    if (!interpretationScreenVisible_)
        return;
    const std::optional<std::string> payload = engine_.interpretationPayload();
    if (!payload)
        return;
    std::optional<InterpretationTree> tree = InterpretationTree::decode(*payload);
    if (!tree)
        return; // a malformed payload leaves the screen as it was
    setAndNotify(interpretationTree_, std::move(tree), this, &AppModel::interpretationTreeChanged);
}

QVariant AppModel::interpretationVariant() const {
    if (!interpretationTree_)
        return {};
    QVariantList groups;
    for (const InterpretationGroup& group : interpretationTree_->groups) {
        QVariantList rows;
        for (const InterpretationRow& row : group.rows)
            rows.push_back(rowVariant(row));
        groups.push_back(QVariantMap{{QStringLiteral("label"), QString::fromStdString(group.label)},
                                     {QStringLiteral("rows"), rows}});
    }
    return QVariantMap{
        {QStringLiteral("modeId"), QString::fromStdString(interpretationTree_->modeId)},
        {QStringLiteral("groups"), groups}};
}

QCoro::Task<> AppModel::publishInterpretation(std::string token) {
    if (!cloud_)
        co_return;
    const std::optional<std::string> payload = engine_.interpretationPayload();
    if (!payload)
        co_return;
    const CancellationToken cancel = cloud_->lifetimeToken();
    QCoro::Task<> sending = cloud_->client().publishInterpretationTree(
        QByteArray::fromStdString(*payload), token, cancel);
    co_await std::move(sending);
    cancel.throwIfCancelled();
}

QCoro::Task<> AppModel::publishIgnoringFailure(std::string token) {
    // One publish at a time; those asked for meanwhile become one more with the newest payload,
    // so a burst of remote mode changes never piles requests up.
    if (std::exchange(backgroundPublish_.running, true)) {
        backgroundPublish_.again = true;
        co_return;
    }
    do {
        backgroundPublish_.again = false;
        try {
            QCoro::Task<> publishing = publishInterpretation(token);
            co_await std::move(publishing);
        } catch (const FlowCancelled&) {
            co_return; // the model is going away; nothing of it may be touched
        } catch (const std::exception& error) {
            // The editor shows a stale interpretation until the next publish; the lights are
            // fine.
            qCInfo(lcInterpretation) << "interpretation not published:" << error.what();
        }
    } while (backgroundPublish_.again);
    backgroundPublish_.running = false;
}

void AppModel::publishInterpretationIfLinked() {
    if (!cloud_)
        return;
    if (const std::optional<std::string> token = settings_->authToken(cloud_->serverURL()))
        publishIgnoringFailure(*token);
}

void AppModel::publishInterpretationInBackground(const std::string& token) {
    publishIgnoringFailure(token);
}

void AppModel::shiftLightingInterpretation() {
    if (!isShiftingInterpretation_)
        runInterpretationShift();
}

QCoro::Task<> AppModel::runInterpretationShift() {
    setAndNotify(isShiftingInterpretation_, true, this, &AppModel::isShiftingInterpretationChanged);
    engine_.shiftLighting();
    refreshInterpretationTree();
    const std::optional<std::string> token =
        cloud_ ? settings_->authToken(cloud_->serverURL()) : std::nullopt;
    if (token) {
        try {
            QCoro::Task<> publishing = publishInterpretation(*token);
            co_await std::move(publishing);
        } catch (const FlowCancelled&) {
            co_return;
        } catch (const std::exception& error) {
            setStatusMessage(QString::fromUtf8(publishInterpretationFailedPrefix) +
                             QString::fromUtf8(error.what()));
        }
    }
    setAndNotify(isShiftingInterpretation_, false, this,
                 &AppModel::isShiftingInterpretationChanged);
}

} // namespace kelvo
