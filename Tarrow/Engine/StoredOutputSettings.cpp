#include "Engine/StoredOutputSettings.h"

#include "Support/Logging.h"

namespace kelvo {

void StoredOutputSettings::saveRoutes(const std::vector<UniverseRoute>& routes) {
    settings_.saveRoutesJSON(QByteArray::fromStdString(encodeUniverseRoutes(routes)));
}

std::optional<std::vector<UniverseRoute>> StoredOutputSettings::loadRoutes() const {
    const std::optional<QByteArray> json = settings_.loadRoutesJSON();
    if (!json)
        return std::nullopt;
    std::string reason;
    auto routes = decodeUniverseRoutes(std::string_view(json->constData(), json->size()), &reason);
    if (!routes)
        qCInfo(lcEngine) << "stored routes ignored:" << reason.c_str();
    return routes;
}

std::optional<ArtNetConfig> StoredOutputSettings::loadArtNetConfig() const {
    const std::optional<bool> enabled = settings_.loadArtNetEnabled();
    if (!enabled)
        return std::nullopt;
    return ArtNetConfig{*enabled,
                        settings_.loadArtNetHost().value_or(OutputSettings::defaultArtNetHost)};
}

} // namespace kelvo
