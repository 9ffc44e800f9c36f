#include "ShowCatalog.h"

#include <QDir>
#include <QFile>

namespace kelvo::devcloud {

using json = nlohmann::ordered_json;

namespace {

struct CatalogError {
    QString text;
};

json readObject(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw CatalogError{QStringLiteral("cannot read %1: %2").arg(path, file.errorString())};
    try {
        json document = json::parse(file.readAll().toStdString());
        if (!document.is_object())
            throw CatalogError{QStringLiteral("%1 is not a JSON object").arg(path)};
        return document;
    } catch (const json::exception& error) {
        throw CatalogError{QStringLiteral("%1: %2").arg(path, QString::fromUtf8(error.what()))};
    }
}

} // namespace

std::variant<ShowCatalog, QString> loadCatalog(const QString& directory) {
    try {
        const QDir folder(directory);
        ShowCatalog catalog;
        catalog.bootstrap = readObject(folder.filePath(QStringLiteral("bootstrap.json")));
        if (!catalog.bootstrap.contains("shows") || !catalog.bootstrap["shows"].is_array())
            throw CatalogError{QStringLiteral("%1 has no \"shows\" list")
                                   .arg(folder.filePath(QStringLiteral("bootstrap.json")))};
        catalog.config = readObject(folder.filePath(QStringLiteral("config.json")));
        const QDir showFolder(folder.filePath(QStringLiteral("shows")));
        for (const QString& name :
             showFolder.entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Name)) {
            const QString path = showFolder.filePath(name);
            json show = readObject(path);
            const json* id = show.contains("summary") && show["summary"].is_object() &&
                                     show["summary"].contains("id")
                                 ? &show["summary"]["id"]
                                 : nullptr;
            if (!id || !id->is_string())
                throw CatalogError{QStringLiteral("%1 has no summary.id").arg(path)};
            catalog.shows[id->get<std::string>()] = std::move(show);
        }
        return catalog;
    } catch (const CatalogError& error) {
        return error.text;
    }
}

} // namespace kelvo::devcloud
