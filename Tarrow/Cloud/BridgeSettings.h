#pragma once

#include "Support/CoalescingWorker.h"

#include "Cloud/DeviceTokenStore.h"
#include <QByteArray>

#include <QSettings>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kelvo {

/// The small settings kept in the user settings file: device tokens per server, the universe
/// routes (as their JSON) and the output switches. The file is owner-only because it holds
/// tokens. Values are read once at construction and served from memory; changes are written on
/// a worker thread, so no caller ever waits on the disk, and whatever is pending is written
/// before the object goes.
class BridgeSettings : public DeviceTokenStore {
public:
    static constexpr const char* legacyTokenKey = "kelvo.bridge.device_token";
    static constexpr const char* tokenKeyPrefix = "kelvo.bridge.device_token.";
    static constexpr const char* routesKey = "kelvo.bridge.universe_routes";
    static constexpr const char* artnetEnabledKey = "kelvo.bridge.artnet_enabled";
    static constexpr const char* artnetHostKey = "kelvo.bridge.artnet_host";
    static constexpr const char* enttecEnabledKey = "kelvo.bridge.enttec_enabled";
    static constexpr const char* artnetAutoFixKey = "kelvo.bridge.artnet_auto_fix";

    /// `file` names the settings file (openUserSettings() in production); it is created or
    /// narrowed to owner-only at once. `productionServer` is the server the legacy single token
    /// belongs to.
    BridgeSettings(std::unique_ptr<QSettings> file, QUrl productionServer);
    BridgeSettings(const BridgeSettings&) = delete;
    BridgeSettings& operator=(const BridgeSettings&) = delete;

    /// The user settings: organisation "Kelvo", application "KelvoBridge".
    static std::unique_ptr<QSettings> openUserSettings();
    const QString& fileName() const { return fileName_; }
    /// Waits until every change so far is in the file.
    void flush() { writer_.flush(); }

    // --- outputs (the route JSON and the defaults are the DMX output's own) ----------------
    /// The stored route JSON, whether written as bytes or (by hand) as text.
    std::optional<QByteArray> loadRoutesJSON() const;
    void saveRoutesJSON(const QByteArray& json);
    /// Absent when never written; anything stored counts as set.
    std::optional<bool> loadArtNetEnabled() const { return storedBool(artnetEnabledKey); }
    std::optional<std::string> loadArtNetHost() const;
    std::optional<bool> loadEnttecEnabled() const { return storedBool(enttecEnabledKey); }
    std::optional<bool> loadArtNetAutoFix() const { return storedBool(artnetAutoFixKey); }
    void saveArtNetEnabled(bool enabled) { store(artnetEnabledKey, enabled); }
    void saveArtNetHost(const std::string& host) {
        store(artnetHostKey, QString::fromStdString(host));
    }
    void saveEnttecEnabled(bool enabled) { store(enttecEnabledKey, enabled); }
    void saveArtNetAutoFix(bool enabled) { store(artnetAutoFixKey, enabled); }

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
    using Change = std::pair<QString, std::optional<QVariant>>; // absent value: remove

    std::optional<bool> storedBool(const char* key) const;
    QVariant value(const QString& key) const;
    void store(const QString& key, const QVariant& value);
    void remove(const QString& key);
    void queue(Change change);
    void writePending();
    bool isProductionHost(const QUrl& server) const;

    QString fileName_;
    QSettings::Format format_;
    QUrl productionServer_;
    std::map<QString, QVariant> values_; // by normalised key; main thread only

    std::mutex pendingMutex_;
    std::vector<Change> pending_; // in order, for the worker
    CoalescingWorker writer_;     // last: finishes its writes before the rest goes
};

} // namespace kelvo
