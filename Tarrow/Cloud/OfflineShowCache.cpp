#include "Cloud/OfflineShowCache.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSaveFile>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvo {

Q_LOGGING_CATEGORY(lcOfflineCache, "kelvo.cloud.cache")

namespace {

constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;

/// Creates the settings file owner-only before anything is written to it, and narrows an
/// existing one. Later saves replace the file through a temporary that keeps this mode.
void restrictSettingsFile(const QSettings& settings) {
    const QString path = settings.fileName();
    if (path.isEmpty())
        return;
    QDir().mkpath(QFileInfo(path).absolutePath());
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, ownerOnly);
    if (fd < 0) {
        qCWarning(lcOfflineCache) << "cannot create settings file" << path << ::strerror(errno);
        return;
    }
    if (::fchmod(fd, ownerOnly) != 0)
        qCWarning(lcOfflineCache) << "cannot restrict settings file" << path << ::strerror(errno);
    ::close(fd);
}

void writeAtomically(const QString& path, QByteArrayView bytes) {
    // Unbuffered, because a short write hidden in QSaveFile's own flush at commit() would
    // otherwise replace the old file with a truncated one (seen on a full disk). The data is
    // synced before the rename so a power cut leaves the old file or the whole new one.
    QSaveFile file(path);
    const auto failure = [&](const QString& reason) {
        file.cancelWriting();
        return OfflineCacheError("Couldn’t write " + path.toStdString() + ": " +
                                 reason.toStdString());
    };
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        throw failure(file.errorString());
    if (file.write(bytes.data(), bytes.size()) != bytes.size() ||
        file.error() != QFileDevice::NoError)
        throw failure(file.error() != QFileDevice::NoError ? file.errorString()
                                                           : QStringLiteral("short write"));
    if (::fsync(file.handle()) != 0)
        throw failure(QString::fromLocal8Bit(::strerror(errno)));
    if (!file.commit())
        throw OfflineCacheError("Couldn’t write " + path.toStdString() + ": " +
                                file.errorString().toStdString());
}

QByteArray encodeJson(const nlohmann::json& value) {
    try {
        return QByteArray::fromStdString(value.dump());
    } catch (const nlohmann::json::exception& error) {
        throw OfflineCacheError(std::string("Couldn’t encode cache file: ") + error.what());
    }
}

bool isLetterDigitOrMark(char32_t scalar) {
    switch (QChar::category(scalar)) {
    case QChar::Letter_Uppercase:
    case QChar::Letter_Lowercase:
    case QChar::Letter_Titlecase:
    case QChar::Letter_Modifier:
    case QChar::Letter_Other:
    case QChar::Number_DecimalDigit:
    case QChar::Number_Letter:
    case QChar::Number_Other:
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
        return true;
    default:
        return false;
    }
}

} // namespace

OfflineShowCache::OfflineShowCache(std::unique_ptr<QSettings> defaults, QUrl productionServer,
                                   std::optional<QString> baseDirectory)
    : defaults_(std::move(defaults)), productionServer_(std::move(productionServer)),
      baseDirectory_(std::move(baseDirectory)) {
    restrictSettingsFile(*defaults_);
}

std::unique_ptr<QSettings> OfflineShowCache::openUserSettings() {
    return std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                       QStringLiteral("Kelvo"), QStringLiteral("KelvoBridge"));
}

// --- cache folder ---------------------------------------------------------------------------

QString OfflineShowCache::cacheFolderPath() const {
    if (baseDirectory_)
        return *baseDirectory_;
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u'/' +
           QLatin1String(cacheFolderName);
}

QString OfflineShowCache::pathInCache(const char* fileName) const {
    return cacheFolderPath() + u'/' + QLatin1String(fileName);
}

QString OfflineShowCache::supportDir() const {
    const QString path = cacheFolderPath();
    if (!QDir().mkpath(path))
        throw OfflineCacheError("Couldn’t create the cache folder " + path.toStdString());
    return path;
}

QString OfflineShowCache::patchesDir() const {
    const QString path = supportDir() + u'/' + QLatin1String(patchesFolderName);
    if (!QDir().mkpath(path))
        throw OfflineCacheError("Couldn’t create the cache folder " + path.toStdString());
    return path;
}

QString OfflineShowCache::patchFileName(std::string_view showId) {
    // Scalar by scalar: anything that is not a letter, digit or mark of any script becomes
    // "_", so an id can never leave the folder ("..", "/") or hide a separator.
    QString name;
    for (const char32_t scalar :
         QString::fromUtf8(showId.data(), qsizetype(showId.size())).toUcs4()) {
        if (scalar == U'-' || isLetterDigitOrMark(scalar))
            name += QString::fromUcs4(&scalar, 1);
        else
            name += u'_';
    }
    // A file name holds at most 255 bytes. A longer id keeps its start and gains a digest of
    // the whole id, so it still has one file of its own.
    constexpr qsizetype maximumStemBytes = 255 - 5; // ".json"
    if (name.toUtf8().size() > maximumStemBytes) {
        const QByteArray digest =
            QCryptographicHash::hash(QByteArrayView(showId.data(), qsizetype(showId.size())),
                                     QCryptographicHash::Sha256)
                .toHex()
                .left(16);
        while (name.toUtf8().size() > maximumStemBytes - 1 - digest.size())
            name.chop(name.back().isLowSurrogate() ? 2 : 1);
        name += u'-' + QString::fromLatin1(digest);
    }
    return name + QStringLiteral(".json");
}

QString OfflineShowCache::patchURL(std::string_view showId) const {
    return patchesDir() + u'/' + patchFileName(showId);
}

std::optional<QByteArray> OfflineShowCache::readCacheFile(const char* fileName) const {
    QFile file(pathInCache(fileName));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll();
}

bool OfflineShowCache::hasOfflineRuntime() const {
    return readCacheFile(harnessFileName).has_value() &&
           readCacheFile(showSnapshotFileName).has_value();
}

void OfflineShowCache::saveHarnessJS(QByteArrayView script, QByteArrayView manifest) {
    const QString folder = supportDir();
    writeAtomically(folder + u'/' + QLatin1String(harnessFileName), script);
    writeAtomically(folder + u'/' + QLatin1String(manifestFileName), manifest);
}

std::optional<QByteArray> OfflineShowCache::loadHarnessJS() const {
    return readCacheFile(harnessFileName);
}

std::optional<QByteArray> OfflineShowCache::loadManifest() const {
    return readCacheFile(manifestFileName);
}

void OfflineShowCache::saveShowSnapshot(QByteArrayView snapshot) {
    writeAtomically(supportDir() + u'/' + QLatin1String(showSnapshotFileName), snapshot);
}

std::optional<QByteArray> OfflineShowCache::loadShowSnapshot() const {
    return readCacheFile(showSnapshotFileName);
}

void OfflineShowCache::saveWorkspaceUI(const OfflineWorkspaceUIState& state) {
    const QByteArray bytes = encodeJson(state);
    writeAtomically(supportDir() + u'/' + QLatin1String(workspaceFileName), bytes);
}

std::optional<OfflineWorkspaceUIState> OfflineShowCache::loadWorkspaceUI() const {
    const auto bytes = readCacheFile(workspaceFileName);
    if (!bytes)
        return std::nullopt;
    try {
        return nlohmann::json::parse(bytes->toStdString()).get<OfflineWorkspaceUIState>();
    } catch (const nlohmann::json::exception& error) {
        qCInfo(lcOfflineCache) << "workspace file not restored:" << error.what();
        return std::nullopt;
    }
}

void OfflineShowCache::savePatch(const ShowPatch& patch) {
    const QByteArray bytes = encodeJson(patch);
    writeAtomically(patchURL(patch.showId), bytes);
}

std::optional<ShowPatch> OfflineShowCache::loadPatch(std::string_view showId) const {
    QFile file(cacheFolderPath() + u'/' + QLatin1String(patchesFolderName) + u'/' +
               patchFileName(showId));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    try {
        return nlohmann::json::parse(file.readAll().toStdString()).get<ShowPatch>();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

// --- settings -------------------------------------------------------------------------------

void OfflineShowCache::commitSettings() {
    defaults_->sync();
    if (defaults_->status() != QSettings::NoError)
        qCWarning(lcOfflineCache) << "settings not saved to" << defaults_->fileName();
    // Belt and braces: whatever replaced the file, it stays owner-only.
    const QString path = defaults_->fileName();
    if (!path.isEmpty() && QFileInfo::exists(path))
        ::chmod(QFile::encodeName(path).constData(), ownerOnly);
}

void OfflineShowCache::storeValue(const QString& key, const QVariant& value) {
    defaults_->setValue(key, value);
    commitSettings();
}

void OfflineShowCache::removeValue(const QString& key) {
    // A key holding "/" is also a settings group: removing it would take every key below it
    // (the token of "https://a" would take that of "https://a/x"), so those are put back.
    std::vector<std::pair<QString, QVariant>> below;
    defaults_->beginGroup(key);
    for (const QString& child : defaults_->allKeys())
        below.emplace_back(key + u'/' + child, defaults_->value(child));
    defaults_->endGroup();
    defaults_->remove(key);
    for (const auto& [child, value] : below)
        defaults_->setValue(child, value);
    commitSettings();
}

std::optional<bool> OfflineShowCache::storedBool(const char* key) const {
    const QVariant value = defaults_->value(QLatin1String(key));
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

void OfflineShowCache::saveRoutes(const std::vector<UniverseRoute>& routes) {
    storeValue(QLatin1String(routesKey), QByteArray::fromStdString(encodeUniverseRoutes(routes)));
}

std::optional<std::vector<UniverseRoute>> OfflineShowCache::loadRoutes() const {
    const QVariant value = defaults_->value(QLatin1String(routesKey));
    if (!value.isValid())
        return std::nullopt;
    const QByteArray bytes =
        value.typeId() == QMetaType::QByteArray ? value.toByteArray() : value.toString().toUtf8();
    std::string reason;
    auto routes = decodeUniverseRoutes(std::string_view(bytes.constData(), bytes.size()), &reason);
    if (!routes)
        qCInfo(lcOfflineCache) << "stored routes ignored:" << reason.c_str();
    return routes;
}

std::optional<ArtNetConfig> OfflineShowCache::loadArtNetConfig() const {
    const auto enabled = storedBool(artnetEnabledKey);
    if (!enabled)
        return std::nullopt;
    const QVariant host = defaults_->value(QLatin1String(artnetHostKey));
    return ArtNetConfig{*enabled, host.isValid() ? host.toString().toStdString()
                                                 : std::string(defaultArtNetHost)};
}

void OfflineShowCache::saveArtNetConfig(const ArtNetConfig& config) {
    defaults_->setValue(QLatin1String(artnetEnabledKey), config.enabled);
    defaults_->setValue(QLatin1String(artnetHostKey), QString::fromStdString(config.host));
    commitSettings();
}

void OfflineShowCache::saveArtNetEnabled(bool enabled) {
    storeValue(QLatin1String(artnetEnabledKey), enabled);
}

void OfflineShowCache::saveArtNetHost(const std::string& host) {
    storeValue(QLatin1String(artnetHostKey), QString::fromStdString(host));
}

std::optional<bool> OfflineShowCache::loadEnttecEnabled() const {
    return storedBool(enttecEnabledKey);
}

void OfflineShowCache::saveEnttecEnabled(bool enabled) {
    storeValue(QLatin1String(enttecEnabledKey), enabled);
}

std::optional<bool> OfflineShowCache::loadArtNetAutoFix() const {
    return storedBool(artnetAutoFixKey);
}

void OfflineShowCache::saveArtNetAutoFix(bool enabled) {
    storeValue(QLatin1String(artnetAutoFixKey), enabled);
}

// --- device tokens --------------------------------------------------------------------------

QString OfflineShowCache::tokenKey(const QUrl& server) {
    QString address = QString::fromUtf8(server.toEncoded()).toLower();
    while (address.endsWith(u'/'))
        address.chop(1);
    return QLatin1String(tokenKeyPrefix) + address;
}

std::optional<std::string> OfflineShowCache::nonEmptyToken(const QString& key) const {
    const QString token = defaults_->value(key).toString();
    if (token.isEmpty())
        return std::nullopt;
    return token.toStdString();
}

bool OfflineShowCache::isProductionHost(const QUrl& server) const {
    return server.host().toLower() == productionServer_.host().toLower();
}

std::optional<std::string> OfflineShowCache::authToken(const QUrl& server) {
    const QString key = tokenKey(server);
    if (auto token = nonEmptyToken(key))
        return token;
    if (!isProductionHost(server))
        return std::nullopt;
    // A token from before tokens were kept per server belongs to production; adopt it once.
    auto legacy = nonEmptyToken(QLatin1String(legacyTokenKey));
    if (!legacy)
        return std::nullopt;
    defaults_->setValue(key, QString::fromStdString(*legacy));
    removeValue(QLatin1String(legacyTokenKey));
    return legacy;
}

void OfflineShowCache::saveAuthToken(const std::string& token, const QUrl& server) {
    storeValue(tokenKey(server), QString::fromStdString(token));
}

void OfflineShowCache::clearAuthToken(const QUrl& server) {
    const bool bothHostless = server.host().isEmpty() && productionServer_.host().isEmpty();
    if (isProductionHost(server) || bothHostless)
        defaults_->remove(QLatin1String(legacyTokenKey));
    removeValue(tokenKey(server));
}

} // namespace kelvo
