#include "DMX/OutputConfiguration.h"

#include "Support/ChangeNotification.h"

namespace kelvo {

OutputConfiguration::OutputConfiguration(LiveDmxOutput& output, OutputSettingsStore& store,
                                         QObject* parent)
    : QObject(parent), output_(output), store_(store) {}

std::vector<std::int64_t> OutputConfiguration::mappedArtNetUniverses() const {
    return kelvo::mappedArtNetUniverses(settings_.routes);
}

void OutputConfiguration::load() {
    OutputSettings loaded = loadOutputSettings(store_);
    setAndNotify(settings_.routes, std::move(loaded.routes), this,
                 &OutputConfiguration::routesChanged);
    setArtNetEnabled(loaded.artnetEnabled);
    setArtNetHost(std::move(loaded.artnetHost));
    setArtNetAutoFix(loaded.artnetAutoFix);
    setEnttecEnabled(loaded.enttecEnabled);
}

void OutputConfiguration::outputFrame(const DmxFrame& merged) {
    lastFrame_ = merged;
    output_.send(lastFrame_, settings_);
}

bool OutputConfiguration::changeDestination(std::int64_t virtualUniverse,
                                            UniverseRoute::Destination destination) {
    for (UniverseRoute& route : settings_.routes) {
        if (route.virtualUniverse != virtualUniverse)
            continue;
        const bool changed = assignIfChanged(route.destination, destination);
        store_.saveRoutes(settings_.routes);
        output_.send(lastFrame_, settings_);
        if (changed)
            emit routesChanged();
        return true;
    }
    return false;
}

void OutputConfiguration::replaceRoutes(std::vector<UniverseRoute> routes) {
    const bool changed = assignIfChanged(settings_.routes, std::move(routes));
    store_.saveRoutes(settings_.routes);
    if (changed)
        emit routesChanged();
}

bool OutputConfiguration::setArtNetEnabled(bool enabled) {
    return setAndNotify(settings_.artnetEnabled, enabled, this,
                        &OutputConfiguration::artnetEnabledChanged);
}

bool OutputConfiguration::setArtNetHost(std::string host) {
    return setAndNotify(settings_.artnetHost, std::move(host), this,
                        &OutputConfiguration::artnetHostChanged);
}

bool OutputConfiguration::setArtNetAutoFix(bool enabled) {
    return setAndNotify(settings_.artnetAutoFix, enabled, this,
                        &OutputConfiguration::artnetAutoFixChanged);
}

bool OutputConfiguration::setEnttecEnabled(bool enabled) {
    return setAndNotify(settings_.enttecEnabled, enabled, this,
                        &OutputConfiguration::enttecEnabledChanged);
}

void OutputConfiguration::persistArtNetConfig() {
    store_.saveArtNetEnabled(settings_.artnetEnabled);
    store_.saveArtNetHost(settings_.artnetHost);
    store_.saveArtNetAutoFix(settings_.artnetAutoFix);
    emit discoveryTargetSet(settings_.artnetEnabled ? std::optional(settings_.artnetHost)
                                                    : std::nullopt);
}

void OutputConfiguration::persistEnttecConfig() {
    store_.saveEnttecEnabled(settings_.enttecEnabled);
    if (!settings_.enttecEnabled)
        output_.disconnectEnttec();
}

} // namespace kelvo
