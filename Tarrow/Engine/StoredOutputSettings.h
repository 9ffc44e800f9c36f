#pragma once

#include "Cloud/BridgeSettings.h"
#include "DMX/OutputSettings.h"

namespace kelvo {

/// The output settings as the bridge settings keep them: routes in the DMX output's own JSON,
/// the Art-Net host defaulting as the DMX output says.
class StoredOutputSettings final : public OutputSettingsStore {
public:
    explicit StoredOutputSettings(BridgeSettings& settings) : settings_(settings) {}

    void saveRoutes(const std::vector<UniverseRoute>& routes) override;
    void saveArtNetEnabled(bool enabled) override { settings_.saveArtNetEnabled(enabled); }
    void saveArtNetHost(const std::string& host) override { settings_.saveArtNetHost(host); }
    void saveArtNetAutoFix(bool enabled) override { settings_.saveArtNetAutoFix(enabled); }
    void saveEnttecEnabled(bool enabled) override { settings_.saveEnttecEnabled(enabled); }

    /// Absent when never stored or when the stored bytes do not decode.
    std::optional<std::vector<UniverseRoute>> loadRoutes() const override;
    /// Absent until the Art-Net switch has been written; the host alone does not count.
    std::optional<ArtNetConfig> loadArtNetConfig() const override;
    std::optional<bool> loadEnttecEnabled() const override { return settings_.loadEnttecEnabled(); }
    std::optional<bool> loadArtNetAutoFix() const override { return settings_.loadArtNetAutoFix(); }

private:
    BridgeSettings& settings_;
};

} // namespace kelvo
