#pragma once

#include <QString>

#include <optional>

namespace kelvo::devcloud {

class DevCloud;
class HttpRouter;

/// What api/health reports and where the harness files are.
struct ApiSettings {
    QString apiVersion;
    std::optional<QString> publishedApiVersion;
    QString appDownloadUrl;
    QString harnessDirectory;
};

/// The bridge's REST endpoints and the harness download.
void addApiRoutes(HttpRouter& router, DevCloud& cloud, const ApiSettings& settings);

} // namespace kelvo::devcloud
