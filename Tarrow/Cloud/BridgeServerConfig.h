#pragma once

#include <QUrl>

#include <string>
#include <vector>

namespace kelvo::BridgeServerConfig {

/// The production cloud's root.
inline constexpr const char* productionURLText = "https://cloud.kelvo.app";
/// The development cloud on this machine (kelvo-devcloud).
inline constexpr const char* localURLText = "http://127.0.0.1:4041";

QUrl productionURL();
QUrl localURL();

/// The server the whole application talks to, chosen once from the command line (the first
/// argument is the program path): the value after the first "--server" when, trimmed, it is a
/// URL with a scheme and a host; else the local server when any argument is "--local"; else
/// production. An unusable "--server" value falls back without a word.
QUrl resolve(const std::vector<std::string>& arguments);

} // namespace kelvo::BridgeServerConfig
