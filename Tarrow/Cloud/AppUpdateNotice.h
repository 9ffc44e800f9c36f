#pragma once

#include "Cloud/BridgeAPIRecords.h"

#include <QString>
#include <QUrl>

#include <optional>

namespace kelvo::AppUpdateNotice {

inline constexpr const char* outOfDateText = "This Kelvo app is out of date.";
inline constexpr const char* downloadButtonText = "Download newer version";

/// True when an updater feed is configured (non-blank); that updater then owns updates and the
/// banner never shows. Linux builds have no updater, so callers pass nothing.
bool sparkleFeedIsConfigured(const std::optional<QString>& feedURL);

/// An http(s) address as it stands; anything else is a path on `server`. Absent when blank.
std::optional<QUrl> resolveDownloadURL(const QString& raw, const QUrl& server);

/// Where the banner's button leads, or absent when no banner shows: this build is current, the
/// server is between releases, or a version is unknown (case and blanks are ignored).
std::optional<QUrl> downloadURL(const BridgeAPIVersionResponse& versions, const QString& localBuild,
                                const QUrl& server);

} // namespace kelvo::AppUpdateNotice
