// Fills the bridge's offline cache from a development cloud's data folder, through the same
// engine host and cache code the bridge uses, so the bridge can light that show with no network.
//   kelvo-seed-cache DEVCLOUD_DIR [SHOW_ID]
// The cache follows XDG_DATA_HOME.
#include "App/ApplicationInfo.h"
#include "Cloud/OfflineShowCache.h"
#include "Engine/EngineHost.h"
#include "Engine/OfflineCacheSeed.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>
#include <nlohmann/json.hpp>

namespace {

QByteArray readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("Cannot read " + path.toStdString() + ": " +
                                 file.errorString().toStdString());
    return file.readAll();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(kelvo::organisationName);
    QCoreApplication::setApplicationName(kelvo::settingsApplicationName);
    if (argc < 2 || argc > 3 || QByteArray(argv[1]).startsWith("-")) {
        std::fprintf(stderr, "Usage: kelvo-seed-cache DEVCLOUD_DIR [SHOW_ID]\n");
        return 2;
    }
    const QString root = QString::fromLocal8Bit(argv[1]);
    try {
        kelvo::OfflineCacheSource source;
        source.harnessJS = readFile(root + "/harness/engine.js");
        source.manifest = readFile(root + "/harness/manifest.json");
        source.bootstrap = readFile(root + "/data/bootstrap.json");
        source.config = readFile(root + "/data/config.json");
        if (argc == 3) {
            // Another show of the list becomes the active one.
            nlohmann::json bootstrap = nlohmann::json::parse(source.bootstrap.toStdString());
            const QString showPath =
                root + "/data/shows/" + QString::fromLocal8Bit(argv[2]) + ".json";
            bootstrap["active_show"] = nlohmann::json::parse(readFile(showPath).toStdString());
            source.bootstrap = QByteArray::fromStdString(bootstrap.dump());
        }
        kelvo::OfflineShowCache cache;
        kelvo::EngineHost engine;
        kelvo::seedOfflineCache(source, engine, cache);
        std::printf("Offline cache ready in %s\n", cache.supportDir().toLocal8Bit().constData());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kelvo-seed-cache: %s\n", error.what());
        return 1;
    }
}
