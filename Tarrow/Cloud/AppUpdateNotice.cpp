#include "Cloud/AppUpdateNotice.h"

namespace kelvo::AppUpdateNotice {

namespace {
QString normalised(const QString& text) {
    return text.trimmed().toLower();
}
} // namespace

bool sparkleFeedIsConfigured(const std::optional<QString>& feedURL) {
    return feedURL && !feedURL->trimmed().isEmpty();
}

std::optional<QUrl> resolveDownloadURL(const QString& raw, const QUrl& server) {
    const QString text = raw.trimmed();
    if (text.isEmpty())
        return std::nullopt;
    const QUrl direct(text, QUrl::StrictMode);
    if (direct.isValid() &&
        (direct.scheme() == QLatin1String("https") || direct.scheme() == QLatin1String("http")))
        return direct;
    QString path = text;
    if (path.startsWith(u'/'))
        path.remove(0, 1);
    QString base = QString::fromUtf8(server.toEncoded());
    while (base.endsWith(u'/'))
        base.chop(1);
    const QUrl joined(base + u'/' + path, QUrl::StrictMode);
    if (!joined.isValid())
        return std::nullopt;
    return joined;
}

std::optional<QUrl> downloadURL(const BridgeAPIVersionResponse& versions, const QString& localBuild,
                                const QUrl& server) {
    const QString local = normalised(localBuild);
    const QString deployed = normalised(QString::fromStdString(versions.apiVersion));
    const QString published =
        normalised(QString::fromStdString(versions.publishedAPIVersion.value_or("")));
    if (local.isEmpty() || deployed.isEmpty() || published.isEmpty())
        return std::nullopt;
    if (deployed != published || local == published)
        return std::nullopt;
    return resolveDownloadURL(QString::fromStdString(versions.appDownloadURL), server);
}

} // namespace kelvo::AppUpdateNotice
