#include "DMX/OutputConfiguration.h"

namespace kelvo {

OutputConfiguration::OutputConfiguration(LiveDmxOutput& output, OutputSettingsStore& store)
    : output_(output), store_(store) {}

std::vector<std::int64_t> OutputConfiguration::mappedArtNetUniverses() const {
    return kelvo::mappedArtNetUniverses(settings_.routes);
}

void OutputConfiguration::load() {
    settings_ = loadOutputSettings(store_);
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
        route.destination = destination;
        store_.saveRoutes(settings_.routes);
        output_.send(lastFrame_, settings_);
        return true;
    }
    return false;
}

void OutputConfiguration::replaceRoutes(std::vector<UniverseRoute> routes) {
    settings_.routes = std::move(routes);
    store_.saveRoutes(settings_.routes);
}

void OutputConfiguration::persistArtNetConfig() {
    store_.saveArtNetEnabled(settings_.artnetEnabled);
    store_.saveArtNetHost(settings_.artnetHost);
    store_.saveArtNetAutoFix(settings_.artnetAutoFix);
    if (discoveryTarget_)
        discoveryTarget_(settings_.artnetEnabled ? std::optional(settings_.artnetHost)
                                                 : std::nullopt);
}

void OutputConfiguration::persistEnttecConfig() {
    store_.saveEnttecEnabled(settings_.enttecEnabled);
    if (!settings_.enttecEnabled)
        output_.disconnectEnttec();
}

} // namespace kelvo
