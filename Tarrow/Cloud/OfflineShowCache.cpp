#include "Cloud/OfflineShowCache.h"

#include "Support/Logging.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace kelvo {

namespace {

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

OfflineShowCache::OfflineShowCache(std::optional<QString> baseDirectory, QObject* parent)
    : QObject(parent), baseDirectory_(std::move(baseDirectory)),
      writer_("kelvo.bridge.cache-writer") {}

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
    if (const QByteArray utf8 = name.toUtf8(); utf8.size() > maximumStemBytes) {
        const QByteArray digest =
            QCryptographicHash::hash(QByteArrayView(showId.data(), qsizetype(showId.size())),
                                     QCryptographicHash::Sha256)
                .toHex()
                .left(16);
        // Cut before a character's first byte, never inside it.
        qsizetype kept = maximumStemBytes - 1 - digest.size();
        while (kept > 0 && (static_cast<unsigned char>(utf8[kept]) & 0xC0) == 0x80)
            --kept;
        name = QString::fromUtf8(utf8.left(kept)) + u'-' + QString::fromLatin1(digest);
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
    // Asked on the main thread: opening says as much as reading the whole engine would.
    const auto readable = [this](const char* fileName) {
        return QFile(pathInCache(fileName)).open(QIODevice::ReadOnly);
    };
    return readable(harnessFileName) && readable(showSnapshotFileName);
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
    writer_.flush(); // an older state still queued must not land after this one
    writeAtomically(supportDir() + u'/' + QLatin1String(workspaceFileName), bytes);
}

void OfflineShowCache::saveWorkspaceUILater(const OfflineWorkspaceUIState& state) {
    writer_.submit([this, state] {
        try {
            const QByteArray bytes = encodeJson(state);
            writeAtomically(supportDir() + u'/' + QLatin1String(workspaceFileName), bytes);
        } catch (const OfflineCacheError& error) {
            emit workspaceSaveFailed(QString::fromUtf8(error.what()));
        }
    });
}

std::optional<OfflineWorkspaceUIState> OfflineShowCache::loadWorkspaceUI() const {
    writer_.flush(); // read what was last handed over, not what the disk had before
    const auto bytes = readCacheFile(workspaceFileName);
    if (!bytes)
        return std::nullopt;
    try {
        return nlohmann::json::parse(bytes->toStdString()).get<OfflineWorkspaceUIState>();
    } catch (const nlohmann::json::exception& error) {
        qCInfo(lcCloud) << "workspace file not restored:" << error.what();
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

} // namespace kelvo
