#include "Engine/AppModel.h"

#include "Support/ChangeNotification.h"

#include <algorithm>

// The desk's route editor.
namespace kelvo {

namespace {
// Art-Net addresses 15 bits of port-address; virtual universes count from 1.
constexpr qint64 maxArtNetUniverse = 32767;

std::optional<UniverseRoute::Destination> destinationNamed(const QString& name,
                                                           qint64 artnetUniverse) {
    if (name == u"artnet") {
        if (artnetUniverse < 0 || artnetUniverse > maxArtNetUniverse)
            return std::nullopt;
        return UniverseRoute::Destination::artnet(artnetUniverse);
    }
    if (name == u"enttec")
        return UniverseRoute::Destination::enttec();
    if (name == u"unmapped")
        return UniverseRoute::Destination::unmapped();
    return std::nullopt;
}
} // namespace

void AppModel::setRoute(qint64 virtualUniverse, const QString& destination, qint64 artnetUniverse) {
    const auto chosen = destinationNamed(destination, artnetUniverse);
    if (virtualUniverse < 1 || !chosen)
        return; // the editor only offers valid choices; anything else changes nothing
    if (changeRouteDestination(virtualUniverse, *chosen))
        return;
    std::vector<UniverseRoute> table = routes();
    table.push_back(UniverseRoute{virtualUniverse, *chosen});
    std::ranges::sort(table, {}, &UniverseRoute::virtualUniverse);
    replaceRoutes(std::move(table));
}

void AppModel::removeRoute(qint64 virtualUniverse) {
    std::vector<UniverseRoute> table = routes();
    if (std::erase_if(table, [&](const UniverseRoute& r) {
            return r.virtualUniverse == virtualUniverse;
        }) > 0)
        replaceRoutes(std::move(table));
}

void AppModel::refreshDeskRouteLine() {
    setAndNotify(deskRouteLine_,
                 QString::fromStdString(deskRouteStatusLine(routes(), deskUniverse(), deskLive())),
                 this, &AppModel::deskRouteLineChanged);
}

} // namespace kelvo
