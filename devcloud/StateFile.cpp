#include "StateFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace kelvo::devcloud {

using json = nlohmann::ordered_json;

namespace {

constexpr int formatVersion = 1;

Device deviceFrom(const json& entry) {
    Device device;
    device.token = entry.at("token").get<std::string>();
    device.name = entry.value("name", std::string());
    device.revoked = entry.value("revoked", false);
    device.pairedAt = entry.value("paired_at", std::string());
    if (device.token.empty())
        throw std::runtime_error("a device without a token");
    return device;
}

} // namespace

std::variant<PersistedState, QString> loadState(const QString& path) {
    QFile file(path);
    if (!file.exists())
        return PersistedState{};
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("cannot read state file %1: %2").arg(path, file.errorString());
    try {
        const json document = json::parse(file.readAll().toStdString());
        if (!document.is_object())
            throw std::runtime_error("not a JSON object");
        PersistedState state;
        if (document.contains("devices"))
            for (const json& entry : document.at("devices"))
                state.devices.push_back(deviceFrom(entry));
        if (document.contains("control_state")) {
            if (!document["control_state"].is_object())
                throw std::runtime_error("control_state is not an object");
            state.controlState = document["control_state"];
        }
        if (document.contains("active_show_id"))
            state.activeShowId = document["active_show_id"].get<std::string>();
        if (document.contains("edited_shows"))
            for (const auto& [id, show] : document.at("edited_shows").items())
                state.editedShows[id] = show;
        return state;
    } catch (const std::exception& error) {
        return QStringLiteral("state file %1 is damaged (%2); move it away to start afresh")
            .arg(path, QString::fromUtf8(error.what()));
    }
}

std::optional<QString> saveState(const QString& path, const PersistedState& state) {
    json document{{"version", formatVersion}, {"devices", json::array()}};
    for (const Device& device : state.devices)
        document["devices"].push_back({{"token", device.token},
                                       {"name", device.name},
                                       {"revoked", device.revoked},
                                       {"paired_at", device.pairedAt}});
    if (state.controlState)
        document["control_state"] = *state.controlState;
    if (state.activeShowId)
        document["active_show_id"] = *state.activeShowId;
    document["edited_shows"] = json::object();
    for (const auto& [id, show] : state.editedShows)
        document["edited_shows"][id] = show;

    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    // Device tokens are credentials.
    if (!file.open(QIODevice::WriteOnly) ||
        !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner))
        return QStringLiteral("cannot write state file %1: %2").arg(path, file.errorString());
    const std::string text = document.dump(1) + "\n";
    file.write(text.data(), qint64(text.size()));
    if (!file.commit())
        return QStringLiteral("cannot write state file %1: %2").arg(path, file.errorString());
    return std::nullopt;
}

} // namespace kelvo::devcloud
