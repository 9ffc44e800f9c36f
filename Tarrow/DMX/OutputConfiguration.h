#pragma once

#include "DMX/LiveDmxOutput.h"
#include "DMX/OutputSettings.h"

#include <functional>
#include <optional>
#include <string>

namespace kelvo {

/// The operator's output settings with the operations that change them: the universe
/// editor, the Art-Net and Enttec switches, and the fan-out of each frame (whose merged
/// buffers are kept so an edit shows on the lights at once). Main thread only.
class OutputConfiguration {
public:
    /// Art-Net discovery's unicast target: the host while Art-Net is on, nothing when off.
    using DiscoveryTargetHook = std::function<void(const std::optional<std::string>&)>;

    OutputConfiguration(LiveDmxOutput& output, OutputSettingsStore& store);

    const OutputSettings& settings() const { return settings_; }
    const std::vector<UniverseRoute>& routes() const { return settings_.routes; }
    std::vector<std::int64_t> mappedArtNetUniverses() const;

    /// Start-up: the stored values over the defaults.
    void load();

    /// Fans one merged frame out and keeps it for re-sending.
    void outputFrame(const DmxFrame& merged);
    const DmxFrame& lastFrame() const { return lastFrame_; }

    /// The universe editor: the first route of `virtualUniverse` takes `destination`, the
    /// table is saved and the last frame goes out again. False when no route names it.
    bool changeDestination(std::int64_t virtualUniverse, UniverseRoute::Destination destination);

    /// Replaces the whole table and saves it (the health monitor's universe remap).
    void replaceRoutes(std::vector<UniverseRoute> routes);

    void setArtNetEnabled(bool enabled) { settings_.artnetEnabled = enabled; }
    void setArtNetHost(std::string host) { settings_.artnetHost = std::move(host); }
    void setArtNetAutoFix(bool enabled) { settings_.artnetAutoFix = enabled; }
    void setEnttecEnabled(bool enabled) { settings_.enttecEnabled = enabled; }

    /// Saves the Art-Net switch, host and auto-fix switch, then re-targets discovery.
    void persistArtNetConfig();
    /// Saves the Enttec switch; turning it off closes the widget at once.
    void persistEnttecConfig();

    /// Discovery arrives later; until it is attached the re-target goes nowhere.
    void setDiscoveryTargetHook(DiscoveryTargetHook hook) { discoveryTarget_ = std::move(hook); }

private:
    LiveDmxOutput& output_;
    OutputSettingsStore& store_;
    OutputSettings settings_;
    DmxFrame lastFrame_;
    DiscoveryTargetHook discoveryTarget_;
};

} // namespace kelvo
