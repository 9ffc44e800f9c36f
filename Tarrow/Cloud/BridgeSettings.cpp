#include "Cloud/BridgeSettings.h"

#include "Support/Logging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvo {

namespace {

constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;

/// Creates the settings file owner-only before anything is written to it, and narrows an
/// existing one. Later saves replace the file through a temporary that keeps this mode.
void restrictSettingsFile(const QString& path) {
    if (path.isEmpty())
        return;
    QDir().mkpath(QFileInfo(path).absolutePath());
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, ownerOnly);
    if (fd < 0) {
        qCWarning(lcCloud) << "cannot create settings file" << path << ::strerror(errno);
        return;
    }
    if (::fchmod(fd, ownerOnly) != 0)
        qCWarning(lcCloud) << "cannot restrict settings file" << path << ::strerror(errno);
    ::close(fd);
}

/// The settings' own spelling of a key: no leading, trailing or repeated "/" (a token key for
/// "https://host" is stored as "…https:/host").
QString normalisedKey(const QString& key) {
    QString result;
    result.reserve(key.size());
    for (const QChar c : key) {
        if (c == u'/' && (result.isEmpty() || result.back() == u'/'))
            continue;
        result += c;
    }
    if (result.endsWith(u'/'))
        result.chop(1);
    return result;
}

} // namespace

BridgeSettings::BridgeSettings(std::unique_ptr<QSettings> file, QUrl productionServer)
    : fileName_(file->fileName()), format_(file->format()),
      productionServer_(std::move(productionServer)), writer_("kelvo.bridge.settings-writer") {
    restrictSettingsFile(fileName_);
    file->sync(); // reads what the narrowing may have created
    for (const QString& key : file->allKeys())
        values_[key] = file->value(key);
}

std::unique_ptr<QSettings> BridgeSettings::openUserSettings() {
    return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                       QStringLiteral("Kelvo"), QStringLiteral("KelvoBridge"));
}

QVariant BridgeSettings::value(const QString& key) const {
    const auto found = values_.find(normalisedKey(key));
    return found == values_.end() ? QVariant() : found->second;
}

void BridgeSettings::store(const QString& key, const QVariant& value) {
    values_[normalisedKey(key)] = value;
    queue({key, value});
}

void BridgeSettings::remove(const QString& key) {
    values_.erase(normalisedKey(key));
    queue({key, std::nullopt});
}

void BridgeSettings::queue(Change change) {
    {
        std::lock_guard lock(pendingMutex_);
        pending_.push_back(std::move(change));
    }
    writer_.submit([this] { writePending(); });
}

// On the worker.
void BridgeSettings::writePending() {
    std::vector<Change> changes;
    {
        std::lock_guard lock(pendingMutex_);
        changes.swap(pending_);
    }
    if (changes.empty())
        return;
    // Made here, so the settings object belongs to this thread and syncs nowhere else.
    QSettings file(fileName_, format_);
    for (const auto& [key, value] : changes) {
        if (value) {
            file.setValue(key, *value);
            continue;
        }
        // A key holding "/" is also a settings group: removing it would take every key below
        // it (the token of "https://a" would take that of "https://a/x"), so those are put back.
        std::vector<std::pair<QString, QVariant>> below;
        file.beginGroup(key);
        for (const QString& child : file.allKeys())
            below.emplace_back(key + u'/' + child, file.value(child));
        file.endGroup();
        file.remove(key);
        for (const auto& [child, kept] : below)
            file.setValue(child, kept);
    }
    file.sync();
    if (file.status() != QSettings::NoError)
        qCWarning(lcCloud) << "settings not saved to" << fileName_;
    // Belt and braces: whatever replaced the file, it stays owner-only.
    if (QFileInfo::exists(fileName_))
        ::chmod(QFile::encodeName(fileName_).constData(), ownerOnly);
}

std::optional<bool> BridgeSettings::storedBool(const char* key) const {
    const QVariant value = this->value(QLatin1String(key));
    if (!value.isValid())
        return std::nullopt;
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    // Anything stored counts as set. Text (all the settings file holds) reads as true when it
    // starts with y or t, or with a non-zero digit after a sign and leading zeros: "true",
    // "Yes" and "1" as written by hand; "false", "no", "0" and anything else read as false.
    const QString text = value.toString().trimmed();
    qsizetype i = 0;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-'))
        ++i;
    while (i < text.size() && text[i] == u'0')
        ++i;
    if (i == text.size())
        return false;
    const QChar first = text[i].toLower();
    return first == u'y' || first == u't' || (first >= u'1' && first <= u'9');
}

std::optional<QByteArray> BridgeSettings::loadRoutesJSON() const {
    const QVariant stored = value(QLatin1String(routesKey));
    if (!stored.isValid())
        return std::nullopt;
    return stored.typeId() == QMetaType::QByteArray ? stored.toByteArray()
                                                    : stored.toString().toUtf8();
}

void BridgeSettings::saveRoutesJSON(const QByteArray& json) {
    store(QLatin1String(routesKey), json);
}

std::optional<std::string> BridgeSettings::loadArtNetHost() const {
    const QVariant host = value(QLatin1String(artnetHostKey));
    if (!host.isValid())
        return std::nullopt;
    return host.toString().toStdString();
}

// --- device tokens --------------------------------------------------------------------------

QString BridgeSettings::tokenKey(const QUrl& server) {
    QString address = QString::fromUtf8(server.toEncoded()).toLower();
    while (address.endsWith(u'/'))
        address.chop(1);
    return QLatin1String(tokenKeyPrefix) + address;
}

std::optional<std::string> BridgeSettings::nonEmptyToken(const QString& key) const {
    const QString token = value(key).toString();
    if (token.isEmpty())
        return std::nullopt;
    return token.toStdString();
}

bool BridgeSettings::isProductionHost(const QUrl& server) const {
    return server.host().toLower() == productionServer_.host().toLower();
}

std::optional<std::string> BridgeSettings::authToken(const QUrl& server) {
    const QString key = tokenKey(server);
    if (auto token = nonEmptyToken(key))
        return token;
    if (!isProductionHost(server))
        return std::nullopt;
    // A token from before tokens were kept per server belongs to production; adopt it once.
    auto legacy = nonEmptyToken(QLatin1String(legacyTokenKey));
    if (!legacy)
        return std::nullopt;
    store(key, QString::fromStdString(*legacy));
    remove(QLatin1String(legacyTokenKey));
    return legacy;
}

void BridgeSettings::saveAuthToken(const std::string& token, const QUrl& server) {
    store(tokenKey(server), QString::fromStdString(token));
}

void BridgeSettings::clearAuthToken(const QUrl& server) {
    const bool bothHostless = server.host().isEmpty() && productionServer_.host().isEmpty();
    if (isProductionHost(server) || bothHostless)
        remove(QLatin1String(legacyTokenKey));
    remove(tokenKey(server));
}

} // namespace kelvo
