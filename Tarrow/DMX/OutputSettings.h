#pragma once

#include "DMX/UniverseRoute.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// The routes and output switches the operator sets, with their defaults.
struct OutputSettings {
    static constexpr const char* defaultArtNetHost = "127.0.0.1";

    std::vector<UniverseRoute> routes = defaultUniverseRoutes();
    bool artnetEnabled = false;
    std::string artnetHost = defaultArtNetHost;
    bool artnetAutoFix = true;
    bool enttecEnabled = true;

    friend bool operator==(const OutputSettings&, const OutputSettings&) = default;
};

/// The stored Art-Net switch and host.
struct ArtNetConfig {
    bool enabled = false;
    std::string host = OutputSettings::defaultArtNetHost;
    friend bool operator==(const ArtNetConfig&, const ArtNetConfig&) = default;
};

/// Where the output settings persist (the user settings). Loads give nothing when the key
/// was never written, so the caller keeps its default.
class OutputSettingsStore {
public:
    virtual ~OutputSettingsStore() = default;

    virtual void saveRoutes(const std::vector<UniverseRoute>& routes) = 0;
    virtual void saveArtNetEnabled(bool enabled) = 0;
    virtual void saveArtNetHost(const std::string& host) = 0;
    virtual void saveArtNetAutoFix(bool enabled) = 0;
    virtual void saveEnttecEnabled(bool enabled) = 0;

    virtual std::optional<std::vector<UniverseRoute>> loadRoutes() const = 0;
    virtual std::optional<ArtNetConfig> loadArtNetConfig() const = 0;
    virtual std::optional<bool> loadEnttecEnabled() const = 0;
    virtual std::optional<bool> loadArtNetAutoFix() const = 0;
};

/// The defaults with whatever the store holds laid over them, loaded in the start-up order:
/// routes, Art-Net switch and host, Enttec switch, auto-fix switch.
OutputSettings loadOutputSettings(const OutputSettingsStore& store);

} // namespace kelvo
