#include "DevCloud.h"

#include <QRandomGenerator>

#include <cstdio>

namespace kelvo::devcloud {

namespace {

using json = nlohmann::ordered_json;

const json defaultControlState{{"mode", "blackout"},
                               {"mode_to", nullptr},
                               {"mode_lerp", 0},
                               {"theme_name", "Rave"},
                               {"manual_dimmer", 1}};

std::string newDeviceToken() {
    quint32 words[4];
    QRandomGenerator::system()->fillRange(words);
    return "kdt_" +
           QByteArray(reinterpret_cast<const char*>(words), sizeof words).toHex().toStdString();
}

std::string isoTime(const QDateTime& time) {
    return time.toUTC().toString(Qt::ISODate).toStdString();
}

bool isNumber(const json& value) {
    return value.is_number();
}

/// The error for one control-state field, or nothing when it is acceptable.
std::optional<std::string> fieldError(const std::string& key, const json& value) {
    if (key == "mode" || key == "theme_name")
        return value.is_string() ? std::nullopt
                                 : std::optional<std::string>(key + " must be a string");
    if (key == "mode_to")
        return value.is_string() || value.is_null()
                   ? std::nullopt
                   : std::optional<std::string>("mode_to must be a string or null");
    if (key == "mode_lerp" || key == "manual_dimmer")
        return isNumber(value) ? std::nullopt
                               : std::optional<std::string>(key + " must be a number");
    if (key == "manual_fixture_dimmers") {
        if (!value.is_object())
            return "manual_fixture_dimmers must be an object of numbers";
        for (const auto& [fixture, level] : value.items())
            if (!isNumber(level))
                return "manual_fixture_dimmers." + fixture + " must be a number";
        return std::nullopt;
    }
    return "unknown control-state key " + key;
}

} // namespace

DevCloud::DevCloud(ShowCatalog catalog, PersistedState state, Settings settings,
                   PairingRegistry::Clock clock, QObject* parent)
    : QObject(parent), catalog_(std::move(catalog)), state_(std::move(state)),
      settings_(std::move(settings)), clock_(std::move(clock)),
      pairing_(settings_.pairingTtlSeconds, clock_) {
    if (state_.controlState)
        controlState_ = *state_.controlState;
    else if (catalog_.bootstrap.contains("control_state") &&
             catalog_.bootstrap["control_state"].is_object())
        controlState_ = catalog_.bootstrap["control_state"];
    else
        controlState_ = defaultControlState;
}

void DevCloud::save() {
    state_.controlState = controlState_;
    if (settings_.statePath.isEmpty())
        return;
    if (const auto error = saveState(settings_.statePath, state_))
        std::fprintf(stderr, "kelvo-devcloud: %s\n", qPrintable(*error));
}

void DevCloud::push(const std::string& type, const json& data) {
    pushRaw(QByteArray::fromStdString(json{{"type", type}, {"data", data}}.dump()));
}

void DevCloud::pushRaw(const QByteArray& raw) {
    emit message(raw);
}

// Devices -------------------------------------------------------------------------------------

DevCloud::Access DevCloud::access(const std::string& token) const {
    const Device* known = device(token);
    if (!known)
        return Access::unknown;
    return known->revoked ? Access::revoked : Access::granted;
}

const Device* DevCloud::device(const std::string& token) const {
    if (token.empty())
        return nullptr;
    for (const Device& device : state_.devices)
        if (device.token == token)
            return &device;
    return nullptr;
}

void DevCloud::addDevice(const std::string& token, bool revoked) {
    for (Device& device : state_.devices)
        if (device.token == token) {
            device.revoked = revoked;
            save();
            return;
        }
    state_.devices.push_back(
        {token, "Bridge " + std::to_string(state_.devices.size() + 1), revoked, isoTime(clock_())});
    save();
}

bool DevCloud::revoke(const std::string& token) {
    for (Device& device : state_.devices)
        if (device.token == token && !device.revoked) {
            device.revoked = true;
            save();
            emit deviceRevoked(QString::fromStdString(token));
            return true;
        }
    return false;
}

void DevCloud::noteSeen(const std::string& token, bool leaving) {
    seen_[token] = Seen{clock_(), leaving};
}

// Pairing -------------------------------------------------------------------------------------

PairingRegistry::Started DevCloud::startPairing() {
    const PairingRegistry::Started started = pairing_.start();
    if (settings_.autoApprove)
        approvePairing(started.code);
    return started;
}

PairingRegistry::Answer DevCloud::pairingStatus(const QString& code) {
    return pairing_.status(code);
}

bool DevCloud::approvePairing(const QString& code) {
    if (pairing_.status(code).status != PairingStatus::pending)
        return false;
    const std::string token = newDeviceToken();
    pairing_.approve(code, QString::fromStdString(token));
    addDevice(token, false);
    return true;
}

bool DevCloud::denyPairing(const QString& code) {
    return pairing_.deny(code);
}

// Downloads -----------------------------------------------------------------------------------

const DevCloud::json* DevCloud::show(const std::string& id) const {
    if (const auto edited = state_.editedShows.find(id); edited != state_.editedShows.end())
        return &edited->second;
    if (const auto base = catalog_.shows.find(id); base != catalog_.shows.end())
        return &base->second;
    return nullptr;
}

std::string DevCloud::activeShowId() const {
    if (state_.activeShowId && show(*state_.activeShowId))
        return *state_.activeShowId;
    const json& base = catalog_.bootstrap;
    if (base.contains("active_show") && base["active_show"].is_object()) {
        const json& summary = base["active_show"].value("summary", json::object());
        if (summary.contains("id") && summary["id"].is_string() &&
            show(summary["id"].get<std::string>()))
            return summary["id"].get<std::string>();
    }
    return catalog_.shows.empty() ? std::string() : catalog_.shows.begin()->first;
}

DevCloud::json DevCloud::showListEntry(const json& base) const {
    json entry = base;
    if (!base.is_object() || !base.contains("id") || !base["id"].is_string())
        return entry;
    const std::string id = base["id"].get<std::string>();
    entry["active"] = id == activeShowId();
    if (const json* snapshot = show(id)) {
        const json summary = snapshot->value("summary", json::object());
        if (summary.contains("name") && summary["name"].is_string())
            entry["name"] = summary["name"];
        if (snapshot->contains("revision"))
            entry["revision"] = (*snapshot)["revision"];
    }
    return entry;
}

DevCloud::json DevCloud::bootstrap() const {
    json payload = catalog_.bootstrap;
    json shows = json::array();
    for (const json& base : catalog_.bootstrap["shows"])
        shows.push_back(showListEntry(base));
    payload["shows"] = std::move(shows);
    const json* active = show(activeShowId());
    payload["active_show"] = active ? *active : json(nullptr);
    payload["control_state"] = controlState_;
    return payload;
}

DevCloud::json DevCloud::activeShowDocument() const {
    const json* active = show(activeShowId());
    return json{{"active_show", active ? *active : json(nullptr)}};
}

DevCloud::json DevCloud::sessionInfo(const Device& device) const {
    return json{{"display_name", "Dev Operator"}, {"org_id", "org-devcloud"},
                {"org_name", "Kelvo Dev Cloud"},  {"account_name", "operator@devcloud.local"},
                {"device_name", device.name},     {"is_bridge", true}};
}

// Changes -------------------------------------------------------------------------------------

std::optional<std::string> DevCloud::patchControlState(const json& fields) {
    if (!fields.is_object())
        return "the control state must be a JSON object";
    for (const auto& [key, value] : fields.items())
        if (auto error = fieldError(key, value))
            return error;
    for (const auto& [key, value] : fields.items())
        controlState_[key] = value;
    save();
    push("control_state", controlState_);
    return std::nullopt;
}

json& DevCloud::editableShow(const std::string& id) {
    auto edited = state_.editedShows.find(id);
    if (edited == state_.editedShows.end())
        edited = state_.editedShows.emplace(id, *show(id)).first;
    return edited->second;
}

DevCloud::ShowChange DevCloud::activateShow(const std::string& id) {
    if (!show(id))
        return ShowChange::unknownShow;
    for (const json& base : catalog_.bootstrap["shows"])
        if (base.is_object() && base.value("id", json()) == id && base.value("archived", false))
            return ShowChange::archivedShow;
    state_.activeShowId = id;
    save();
    // The whole payload: it is the one message that carries the show list with the new
    // active flag, besides the show itself.
    push("bootstrap", bootstrap());
    return ShowChange::done;
}

DevCloud::ShowChange DevCloud::renameShow(const std::string& id, const std::string& name) {
    if (!show(id))
        return ShowChange::unknownShow;
    const QString trimmed = QString::fromStdString(name).trimmed();
    if (trimmed.isEmpty())
        return ShowChange::badName;
    json& snapshot = editableShow(id);
    if (!snapshot.contains("summary") || !snapshot["summary"].is_object())
        snapshot["summary"] = json{{"id", id}};
    snapshot["summary"]["name"] = trimmed.toStdString();
    const json revision = snapshot.value("revision", json(0));
    snapshot["revision"] = (revision.is_number_integer() ? revision.get<long long>() : 0) + 1;
    save();
    if (id == activeShowId())
        push("show_changed", json{{"revision", snapshot["revision"]}});
    return ShowChange::done;
}

void DevCloud::setForcedDrop(bool active) {
    forcedDrop_ = active;
    push("force_drop", json{{"active", active}});
}

void DevCloud::shiftLighting() {
    push("shift_lighting_only", json::object());
}

void DevCloud::shiftColorScheme() {
    push("shift_color_scheme", json::object());
}

void DevCloud::pushShowSnapshot() {
    const json* active = show(activeShowId());
    push("show_snapshot", active ? *active : json::object());
}

void DevCloud::pushSharedCatalogChanged() {
    push("shared_catalog_changed", json::object());
}

void DevCloud::recordInterpretation(const Device& device, json payload) {
    interpretation_ = Interpretation{std::move(payload), device.name, clock_()};
}

DevCloud::json DevCloud::overview(int connectedBridges) const {
    const QDateTime now = clock_();
    json devices = json::array();
    for (const Device& device : state_.devices) {
        json entry{{"name", device.name},
                   {"token", device.token},
                   {"revoked", device.revoked},
                   {"paired_at", device.pairedAt},
                   {"online", false}};
        if (const auto seen = seen_.find(device.token); seen != seen_.end()) {
            entry["last_seen"] = isoTime(seen->second.at);
            // The bridge's heartbeat comes every 30 s.
            entry["online"] = !seen->second.left && seen->second.at.secsTo(now) < 90;
        }
        devices.push_back(std::move(entry));
    }
    json modes = json::array();
    const json* active = show(activeShowId());
    if (active && active->contains("lighting_modes") && (*active)["lighting_modes"].is_array())
        for (const json& mode : (*active)["lighting_modes"])
            if (mode.is_object() && mode.contains("key") && mode["key"].is_string() &&
                !mode.value("archived", false))
                modes.push_back(
                    {{"key", mode["key"]}, {"label", mode.value("label", mode["key"])}});
    json themes = json::array();
    for (const json& theme : catalog_.config.value("theme_color_examples", json::array()))
        if (theme.is_object() && theme.contains("name") && theme["name"].is_string())
            themes.push_back(theme["name"]);
    json interpretation = nullptr;
    if (interpretation_)
        interpretation = {{"payload", interpretation_->payload},
                          {"device_name", interpretation_->deviceName},
                          {"received_at", isoTime(interpretation_->receivedAt)}};
    return json{
        {"active_show_id", activeShowId()},
        {"active_show_name",
         active ? active->value("summary", json::object()).value("name", json("")) : json("")},
        {"active_show_revision", active ? active->value("revision", json(0)) : json(0)},
        {"shows", bootstrap()["shows"]},
        {"lighting_modes", modes},
        {"themes", themes},
        {"control_state", controlState_},
        {"forced_drop", forcedDrop_},
        {"devices", devices},
        {"connected_bridges", connectedBridges},
        {"interpretation", interpretation}};
}

} // namespace kelvo::devcloud
