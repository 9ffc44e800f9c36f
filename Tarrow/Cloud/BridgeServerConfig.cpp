#include "Cloud/BridgeServerConfig.h"

#include <QString>

#include <algorithm>

namespace kelvo::BridgeServerConfig {

QUrl productionURL() {
    return QUrl(QString::fromLatin1(productionURLText));
}

QUrl localURL() {
    return QUrl(QString::fromLatin1(localURLText));
}

QUrl resolve(const std::vector<std::string>& arguments) {
    const auto options = arguments.empty() ? arguments.end() : arguments.begin() + 1;
    const auto server = std::find(options, arguments.end(), "--server");
    if (server != arguments.end() && server + 1 != arguments.end()) {
        const QUrl url(QString::fromStdString(*(server + 1)).trimmed(), QUrl::StrictMode);
        if (url.isValid() && !url.scheme().isEmpty() && !url.host().isEmpty())
            return url;
    }
    if (std::find(options, arguments.end(), "--local") != arguments.end())
        return localURL();
    return productionURL();
}

std::optional<QUrl> showEditorURL(const QUrl& server, const QString& showId) {
    const QString id = showId.trimmed();
    if (id.isEmpty())
        return std::nullopt;
    QUrl url = server;
    QString path = url.path(QUrl::FullyEncoded);
    if (!path.endsWith(u'/'))
        path += u'/';
    url.setPath(path + QStringLiteral("shows/") + QString::fromUtf8(QUrl::toPercentEncoding(id)),
                QUrl::TolerantMode);
    return url;
}

} // namespace kelvo::BridgeServerConfig
