#pragma once

#include "DMX/DmxFrame.h"
#include "DMX/LiveDmxOutput.h"
#include "DMX/OutputSettings.h"

#include <QObject>

#include <optional>
#include <string>

namespace kelvo {

/// The operator's output settings with the operations that change them: the universe
/// editor, the Art-Net and Enttec switches, and the fan-out of each frame (whose merged
/// buffers are kept so an edit shows on the lights at once). Each setting announces its own
/// change and a repeat announces nothing. Main thread only.
class OutputConfiguration : public QObject {
    Q_OBJECT
public:
    OutputConfiguration(LiveDmxOutput& output, OutputSettingsStore& store,
                        QObject* parent = nullptr);

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

    /// Replaces the whole table and saves it, also when unchanged, so the settings hold it
    /// (the health monitor's universe remap, the command line).
    void replaceRoutes(std::vector<UniverseRoute> routes);

    // Each is true when it changed the setting; saving is the persist calls' job.
    bool setArtNetEnabled(bool enabled);
    bool setArtNetHost(std::string host);
    bool setArtNetAutoFix(bool enabled);
    bool setEnttecEnabled(bool enabled);

    /// Saves the Art-Net switch, host and auto-fix switch, then re-targets discovery.
    void persistArtNetConfig();
    /// Saves the Enttec switch; turning it off closes the widget at once.
    void persistEnttecConfig();

signals:
    void routesChanged();
    void artnetEnabledChanged();
    void artnetHostChanged();
    void artnetAutoFixChanged();
    void enttecEnabledChanged();
    /// After each save of the Art-Net settings: discovery's unicast target, the host while
    /// Art-Net is on, nothing when it is off.
    void discoveryTargetSet(const std::optional<std::string>& host);

private:
    LiveDmxOutput& output_;
    OutputSettingsStore& store_;
    OutputSettings settings_;
    DmxFrame lastFrame_;
};

} // namespace kelvo
