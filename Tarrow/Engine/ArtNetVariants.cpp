#include "Engine/ArtNetVariants.h"

#include "DMX/ArtNetDiagnosis.h"

#include <QDateTime>

namespace kelvo::model_variants {

namespace {

QVariantList universes(const std::vector<std::int64_t>& list) {
    QVariantList values;
    for (const std::int64_t universe : list)
        values.append(qint64(universe));
    return values;
}

QString text(const std::string& value) {
    return QString::fromStdString(value);
}

} // namespace

QVariantMap artnetNode(const ArtNetNode& node) {
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(node.lastSeen.time_since_epoch());
    return {{"ip", text(node.ip)},
            {"mac", text(node.mac)},
            {"shortName", text(node.shortName)},
            {"longName", text(node.longName)},
            {"outputUniverses", universes(node.outputUniverses)},
            {"transmittingUniverses", universes(node.transmittingUniverses)},
            {"lastSeen", QDateTime::fromMSecsSinceEpoch(millis.count())}};
}

QVariantMap artnetDiscoveryState(const ArtNetDiscoveryState& state) {
    QVariantList nodes;
    for (const ArtNetNode& node : state.nodes)
        nodes.append(artnetNode(node));
    return {
        {"nodes", nodes},
        {"heardAnyTraffic", state.heardAnyTraffic},
        {"pollCycles", qint64(state.pollCycles)},
        {"failureReason", state.failureReason ? QVariant(text(*state.failureReason)) : QVariant()}};
}

QVariantMap artnetHealth(const ArtNetHealth& health) {
    const std::optional<ArtNetAutoFix> fix = ArtNetDiagnosis::autoFix(health);
    return {{"case", text(health.caseName())},
            {"headline", text(health.headline())},
            {"detail", text(health.detail())},
            {"fix", fix ? QVariant(text(fix->summary())) : QVariant()}};
}

} // namespace kelvo::model_variants
