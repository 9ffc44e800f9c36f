#include "DMX/OutputSettings.h"

namespace kelvo {

OutputSettings loadOutputSettings(const OutputSettingsStore& store) {
    OutputSettings settings;
    if (auto routes = store.loadRoutes())
        settings.routes = std::move(*routes);
    if (auto artnet = store.loadArtNetConfig()) {
        settings.artnetEnabled = artnet->enabled;
        settings.artnetHost = std::move(artnet->host);
    }
    if (const auto enttec = store.loadEnttecEnabled())
        settings.enttecEnabled = *enttec;
    if (const auto autoFix = store.loadArtNetAutoFix())
        settings.artnetAutoFix = *autoFix;
    return settings;
}

} // namespace kelvo
