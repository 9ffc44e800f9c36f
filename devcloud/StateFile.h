#pragma once

#include <QString>

#include <nlohmann/json.hpp>

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kelvo::devcloud {

/// A bridge that was paired with this cloud.
struct Device {
    std::string token;
    std::string name;
    bool revoked = false;
    std::string pairedAt;

    bool operator==(const Device&) const = default;
};

/// Everything the cloud keeps across restarts, in one JSON file. Absent values fall back to the
/// demo data.
struct PersistedState {
    std::vector<Device> devices;
    std::optional<nlohmann::ordered_json> controlState;
    std::optional<std::string> activeShowId;
    /// Shows changed through the control page, whole, by id.
    std::map<std::string, nlohmann::ordered_json> editedShows;

    bool operator==(const PersistedState&) const = default;
};

/// The state in `path`; a missing file is a fresh state. The error text names the file.
std::variant<PersistedState, QString> loadState(const QString& path);
/// Writes the whole file atomically (a crash leaves the old or the new file, never half).
std::optional<QString> saveState(const QString& path, const PersistedState& state);

} // namespace kelvo::devcloud
