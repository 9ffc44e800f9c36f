#pragma once

#include <QUrl>

#include <optional>
#include <string>
#include <vector>

namespace kelvo::BridgeServerConfig {

#ifndef KELVO_PRODUCTION_URL
#define KELVO_PRODUCTION_URL "https://cloud.kelvo.app"
#endif

/// The production cloud's root, fixed at build time (CMake option KELVO_PRODUCTION_URL).
inline constexpr const char* productionURLText = KELVO_PRODUCTION_URL;
/// The development cloud on this machine (kelvo-devcloud).
inline constexpr const char* localURLText = "http://127.0.0.1:4041";

QUrl productionURL();
QUrl localURL();

/// The server the whole application talks to, chosen once from the command line (the first
/// argument is the program path): the value after the first "--server" when, trimmed, it is a
/// URL with a scheme and a host; else the local server when any argument is "--local"; else
/// production. An unusable "--server" value falls back without a word.
QUrl resolve(const std::vector<std::string>& arguments);

/// The show's page in the cloud editor: the server plus the path segments "shows" and the
/// trimmed id; absent for an id that is blank.
std::optional<QUrl> showEditorURL(const QUrl& server, const QString& showId);

} // namespace kelvo::BridgeServerConfig
