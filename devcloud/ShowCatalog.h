#pragma once

#include <QString>

#include <nlohmann/json.hpp>

#include <map>
#include <string>
#include <variant>

namespace kelvo::devcloud {

/// The demo data read from the data folder at start: bootstrap.json (show list, default active
/// show and control state), config.json and one snapshot per show in shows/.
struct ShowCatalog {
    nlohmann::ordered_json bootstrap;
    nlohmann::ordered_json config;
    /// Show snapshots by their summary id.
    std::map<std::string, nlohmann::ordered_json> shows;
};

/// The catalog in `directory`, or a text naming the file that is missing or malformed.
std::variant<ShowCatalog, QString> loadCatalog(const QString& directory);

} // namespace kelvo::devcloud
