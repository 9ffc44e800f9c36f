#pragma once

#include "Cloud/DeviceTokenStore.h"
#include "Cloud/OfflineWorkspaceUIState.h"
#include "DMX/OutputSettings.h"
#include "DMX/UniverseRoute.h"
#include "Show/ShowPatch.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QSettings>
#include <QString>
#include <QUrl>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// A cache file that could not be written or a record that could not be encoded. The
/// previous file is left as it was.
class OfflineCacheError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Everything needed to start the last show without the network (harness, show snapshot,
/// dashboard selections, show patches) in the cache folder, and the small settings (device
/// tokens, universe routes, output switches) in the user settings. No network work here.
class OfflineShowCache : public OutputSettingsStore, public DeviceTokenStore {
public:
    static constexpr const char* legacyTokenKey = "kelvo.bridge.device_token";
    static constexpr const char* tokenKeyPrefix = "kelvo.bridge.device_token.";
    static constexpr const char* routesKey = "kelvo.bridge.universe_routes";
    static constexpr const char* artnetEnabledKey = "kelvo.bridge.artnet_enabled";
    static constexpr const char* artnetHostKey = "kelvo.bridge.artnet_host";
    static constexpr const char* enttecEnabledKey = "kelvo.bridge.enttec_enabled";
    static constexpr const char* artnetAutoFixKey = "kelvo.bridge.artnet_auto_fix";
    static constexpr const char* defaultArtNetHost = OutputSettings::defaultArtNetHost;

    static constexpr const char* cacheFolderName = "KelvoBridge";
    static constexpr const char* harnessFileName = "engine.js";
    static constexpr const char* manifestFileName = "manifest.json";
    static constexpr const char* showSnapshotFileName = "show_snapshot.json";
    static constexpr const char* workspaceFileName = "workspace_ui.json";
    static constexpr const char* patchesFolderName = "show_patches";

    /// `defaults` is the settings store (openUserSettings() in production); its file is made
    /// owner-only at once because it holds device tokens. `productionServer` is the server the
    /// legacy single token belongs to. `baseDirectory` overrides the cache folder.
    OfflineShowCache(std::unique_ptr<QSettings> defaults, QUrl productionServer,
                     std::optional<QString> baseDirectory = std::nullopt);

    /// The user settings: organisation "Kelvo", application "KelvoBridge".
    static std::unique_ptr<QSettings> openUserSettings();

    QSettings& defaults() { return *defaults_; }

    // --- cache folder -------------------------------------------------------------------
    /// The cache folder, created with its parents; throws OfflineCacheError when it cannot be.
    QString supportDir() const;
    QString patchesDir() const;
    QString patchURL(std::string_view showId) const;
    /// Letters, digits (any script) and "-" kept, every other character "_", plus ".json".
    static QString patchFileName(std::string_view showId);

    /// Both the harness script and the show snapshot can be read.
    bool hasOfflineRuntime() const;

    void saveHarnessJS(QByteArrayView script, QByteArrayView manifest);
    std::optional<QByteArray> loadHarnessJS() const;
    std::optional<QByteArray> loadManifest() const;

    void saveShowSnapshot(QByteArrayView snapshot);
    std::optional<QByteArray> loadShowSnapshot() const;

    void saveWorkspaceUI(const OfflineWorkspaceUIState& state);
    /// Absent when the file is missing, unreadable or does not decode.
    std::optional<OfflineWorkspaceUIState> loadWorkspaceUI() const;

    void savePatch(const ShowPatch& patch);
    std::optional<ShowPatch> loadPatch(std::string_view showId) const;

    // --- settings -----------------------------------------------------------------------
    void saveRoutes(const std::vector<UniverseRoute>& routes) override;
    /// Absent when never stored or when the stored bytes do not decode.
    std::optional<std::vector<UniverseRoute>> loadRoutes() const override;

    /// Absent until the enabled switch has been written; the host defaults to 127.0.0.1.
    std::optional<ArtNetConfig> loadArtNetConfig() const override;
    void saveArtNetConfig(const ArtNetConfig& config);
    void saveArtNetEnabled(bool enabled) override;
    void saveArtNetHost(const std::string& host) override;

    /// Absent when never written, so the caller can apply its own default.
    std::optional<bool> loadEnttecEnabled() const override;
    void saveEnttecEnabled(bool enabled) override;
    std::optional<bool> loadArtNetAutoFix() const override;
    void saveArtNetAutoFix(bool enabled) override;

    // --- device tokens ------------------------------------------------------------------
    /// "kelvo.bridge.device_token." + the server address, lower case, trailing "/" removed.
    static QString tokenKey(const QUrl& server);
    /// The text under `key`; empty counts as none.
    std::optional<std::string> nonEmptyToken(const QString& key) const;
    /// The server's token. The first read for the production server adopts a token stored
    /// under the legacy key and moves it to the per-server key.
    std::optional<std::string> authToken(const QUrl& server) override;
    void saveAuthToken(const std::string& token, const QUrl& server) override;
    /// Forgets the server's token (and the legacy one when it belongs to this server).
    void clearAuthToken(const QUrl& server) override;

private:
    QString cacheFolderPath() const;
    QString pathInCache(const char* fileName) const;
    std::optional<QByteArray> readCacheFile(const char* fileName) const;
    std::optional<bool> storedBool(const char* key) const;
    void storeValue(const QString& key, const QVariant& value);
    void removeValue(const QString& key);
    void commitSettings();
    bool isProductionHost(const QUrl& server) const;

    std::unique_ptr<QSettings> defaults_;
    QUrl productionServer_;
    std::optional<QString> baseDirectory_;
};

} // namespace kelvo
