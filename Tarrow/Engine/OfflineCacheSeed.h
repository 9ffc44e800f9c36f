#pragma once

#include <QByteArray>

#include <string>

namespace kelvo {

class EngineHost;
class OfflineShowCache;

/// What a cloud hands a bridge before it can light offline: the harness with its manifest, the
/// runtime bootstrap (show list, modes, control state, the active show) and the configuration
/// (themes).
struct OfflineCacheSource {
    QByteArray harnessJS;
    QByteArray manifest;
    QByteArray bootstrap;
    QByteArray config;
};

/// Loads the active show through the engine host and writes every cache file the bridge starts
/// from: "engine.js", "manifest.json", "show_snapshot.json", "workspace_ui.json" and the show's
/// patch. Throws std::runtime_error with an operator-readable reason when the source is unusable.
void seedOfflineCache(const OfflineCacheSource& source, EngineHost& engine,
                      OfflineShowCache& cache);

} // namespace kelvo
