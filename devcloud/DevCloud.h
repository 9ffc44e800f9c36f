#pragma once

#include "PairingRegistry.h"
#include "ShowCatalog.h"
#include "StateFile.h"

#include <QDateTime>
#include <QObject>
#include <QString>

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace kelvo::devcloud {

/// The cloud's account, shows and live state, shared by the REST API, the web socket and the
/// pages. Every change is saved at once and announced through `message`, which the show-updates
/// hub sends to every connected bridge.
class DevCloud : public QObject {
    Q_OBJECT
public:
    using json = nlohmann::ordered_json;

    struct Settings {
        QString statePath;
        bool autoApprove = false;
        int pairingTtlSeconds = 600;
    };
    DevCloud(ShowCatalog catalog, PersistedState state, Settings settings,
             PairingRegistry::Clock clock = PairingRegistry::defaultClock,
             QObject* parent = nullptr);

    // Devices and their tokens.
    enum class Access { granted, unknown, revoked };
    Access access(const std::string& token) const;
    const Device* device(const std::string& token) const;
    /// A device with this token exists from now on (command-line seeding).
    void addDevice(const std::string& token, bool revoked);
    bool revoke(const std::string& token);
    /// Heard from the device (any authorised request); `leaving` on its disconnect.
    void noteSeen(const std::string& token, bool leaving = false);

    // Pairing.
    PairingRegistry::Started startPairing();
    PairingRegistry::Answer pairingStatus(const QString& code);
    bool approvePairing(const QString& code);
    bool denyPairing(const QString& code);

    // What bridges download.
    json bootstrap() const;
    json activeShowDocument() const;
    const json& config() const { return catalog_.config; }
    const json* show(const std::string& id) const;
    json sessionInfo(const Device& device) const;
    std::string activeShowId() const;
    const json& controlState() const { return controlState_; }

    // Changes, each pushed to every bridge. The error text is for the person or test that asked.
    std::optional<std::string> patchControlState(const json& fields);
    enum class ShowChange { done, unknownShow, archivedShow, badName };
    ShowChange activateShow(const std::string& id);
    ShowChange renameShow(const std::string& id, const std::string& name);
    void setForcedDrop(bool active);
    bool forcedDrop() const { return forcedDrop_; }
    void shiftLighting();
    void shiftColorScheme();
    void pushShowSnapshot();
    void pushSharedCatalogChanged();
    /// Any message, as tests need for every type (and for malformed ones: `raw` is sent as is).
    void pushRaw(const QByteArray& raw);

    void recordInterpretation(const Device& device, json payload);

    /// Everything the control page shows.
    json overview(int connectedBridges) const;

signals:
    /// One text frame for every connected bridge.
    void message(const QByteArray& text);
    void deviceRevoked(const QString& token);

private:
    void push(const std::string& type, const json& data);
    void save();
    json showListEntry(const json& base) const;
    json& editableShow(const std::string& id);

    ShowCatalog catalog_;
    PersistedState state_;
    Settings settings_;
    PairingRegistry::Clock clock_;
    PairingRegistry pairing_;
    json controlState_;
    bool forcedDrop_ = false;
    struct Seen {
        QDateTime at;
        bool left = false;
    };
    std::map<std::string, Seen> seen_;
    struct Interpretation {
        json payload;
        std::string deviceName;
        QDateTime receivedAt;
    };
    std::optional<Interpretation> interpretation_;
};

} // namespace kelvo::devcloud
