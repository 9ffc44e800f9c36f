#include "Options.h"

#include <QCommandLineParser>
#include <QDir>
#include <QStandardPaths>

namespace kelvo::devcloud {

namespace {

const QString defaultApiVersion = QStringLiteral("devcloud");
const QString defaultDownloadPath = QStringLiteral("/downloads/kelvo-bridge");

QString defaultStatePath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/kelvo-devcloud/state.json");
}

} // namespace

std::variant<std::pair<QHostAddress, quint16>, QString> parseListenAddress(const QString& text) {
    const QString usage =
        QStringLiteral("--listen needs HOST:PORT with an IP address, for example 127.0.0.1:4041");
    const qsizetype colon = text.lastIndexOf(QLatin1Char(':'));
    if (colon <= 0)
        return usage;
    QString host = text.left(colon);
    bool numeric = false;
    const uint port = text.mid(colon + 1).toUInt(&numeric);
    if (!numeric || port > 65535)
        return usage;
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
        host = host.mid(1, host.size() - 2);
    if (host.compare(QStringLiteral("localhost"), Qt::CaseInsensitive) == 0)
        return std::pair{QHostAddress(QHostAddress::LocalHost), quint16(port)};
    QHostAddress address;
    if (!address.setAddress(host))
        return usage;
    return std::pair{address, quint16(port)};
}

QString authority(const QHostAddress& address, quint16 port) {
    const QString host = address.protocol() == QAbstractSocket::IPv6Protocol
                             ? QStringLiteral("[%1]").arg(address.toString())
                             : address.toString();
    return QStringLiteral("%1:%2").arg(host).arg(port);
}

std::variant<Options, OptionsError> parseOptions(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("The Kelvo development cloud: REST API, show-updates socket, pairing and "
                       "control pages for bridges on this machine."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help."));
    const QCommandLineOption listen(QStringLiteral("listen"),
                                    QStringLiteral("Address to listen on (default 127.0.0.1:4041; "
                                                   "port 0 picks a free one)."),
                                    QStringLiteral("HOST:PORT"));
    const QCommandLineOption allowRemote(
        QStringLiteral("allow-remote"),
        QStringLiteral("Allow --listen on an address other machines can reach."));
    const QCommandLineOption data(
        QStringLiteral("data"), QStringLiteral("Folder with bootstrap.json, config.json, shows/."),
        QStringLiteral("DIR"));
    const QCommandLineOption harness(QStringLiteral("harness"),
                                     QStringLiteral("Folder with the harness manifest.json and "
                                                    "script, served as read."),
                                     QStringLiteral("DIR"));
    const QCommandLineOption state(QStringLiteral("state"),
                                   QStringLiteral("State file (devices, control state, active "
                                                  "show); default %1.")
                                       .arg(defaultStatePath()),
                                   QStringLiteral("FILE"));
    const QCommandLineOption autoApprove(QStringLiteral("auto-approve"),
                                         QStringLiteral("Approve every pairing at once."));
    const QCommandLineOption pairingTtl(QStringLiteral("pairing-ttl"),
                                        QStringLiteral("Seconds a pairing code lives (600)."),
                                        QStringLiteral("SECONDS"));
    const QCommandLineOption apiVersion(
        QStringLiteral("api-version"),
        QStringLiteral("api_version of api/health (default %1).").arg(defaultApiVersion),
        QStringLiteral("TEXT"));
    const QCommandLineOption publishedApiVersion(
        QStringLiteral("published-api-version"),
        QStringLiteral("published_api_version of api/health (absent by default)."),
        QStringLiteral("TEXT"));
    const QCommandLineOption downloadUrl(
        QStringLiteral("app-download-url"),
        QStringLiteral("app_download_url of api/health (default %1).").arg(defaultDownloadPath),
        QStringLiteral("URL"));
    const QCommandLineOption adminSecret(
        QStringLiteral("admin-secret"),
        QStringLiteral("Enables api/admin/* for requests carrying X-Kelvo-Admin: SECRET."),
        QStringLiteral("SECRET"));
    const QCommandLineOption fault(
        QStringLiteral("fault"),
        QStringLiteral("Fault for a path, e.g. api/config:status=503,times=2 or "
                       "api/*:delay=800 or ws/show-updates:drop (repeatable)."),
        QStringLiteral("PATH:SPEC"));
    const QCommandLineOption deviceToken(
        QStringLiteral("device-token"),
        QStringLiteral("A paired device with this token exists (repeatable)."),
        QStringLiteral("TOKEN"));
    const QCommandLineOption revokedToken(
        QStringLiteral("revoked-token"),
        QStringLiteral("A revoked device with this token exists (repeatable)."),
        QStringLiteral("TOKEN"));
    parser.addOptions({help, listen, allowRemote, data, harness, state, autoApprove, pairingTtl,
                       apiVersion, publishedApiVersion, downloadUrl, adminSecret, fault,
                       deviceToken, revokedToken});

    if (!parser.parse(arguments))
        return OptionsError{parser.errorText()};
    if (parser.isSet(help))
        return OptionsError{parser.helpText(), true};
    if (!parser.positionalArguments().isEmpty())
        return OptionsError{QStringLiteral("unexpected argument: %1")
                                .arg(parser.positionalArguments().constFirst())};

    Options options;
    options.allowRemote = parser.isSet(allowRemote);
    if (parser.isSet(listen)) {
        const auto parsed = parseListenAddress(parser.value(listen));
        if (const auto* error = std::get_if<QString>(&parsed))
            return OptionsError{*error};
        std::tie(options.listenAddress, options.port) =
            std::get<std::pair<QHostAddress, quint16>>(parsed);
    }
    if (!options.listenAddress.isLoopback() && !options.allowRemote)
        return OptionsError{
            QStringLiteral("refusing to listen on %1: not a loopback address, so other machines "
                           "could pair and change shows (add --allow-remote if that is meant)")
                .arg(options.listenAddress.toString())};

    options.dataDirectory =
        parser.isSet(data) ? parser.value(data) : QStringLiteral(KELVO_DEVCLOUD_DATA_DIR);
    options.harnessDirectory =
        parser.isSet(harness) ? parser.value(harness) : QStringLiteral(KELVO_DEVCLOUD_HARNESS_DIR);
    options.statePath = parser.isSet(state) ? parser.value(state) : defaultStatePath();
    options.autoApprove = parser.isSet(autoApprove);
    if (parser.isSet(pairingTtl)) {
        bool numeric = false;
        options.pairingTtlSeconds = parser.value(pairingTtl).toInt(&numeric);
        if (!numeric || options.pairingTtlSeconds < 1)
            return OptionsError{QStringLiteral("--pairing-ttl needs a whole number of seconds, "
                                               "at least 1")};
    }
    options.apiVersion = parser.isSet(apiVersion) ? parser.value(apiVersion) : defaultApiVersion;
    if (parser.isSet(publishedApiVersion))
        options.publishedApiVersion = parser.value(publishedApiVersion);
    options.appDownloadUrl =
        parser.isSet(downloadUrl) ? parser.value(downloadUrl) : defaultDownloadPath;
    options.adminSecret = parser.value(adminSecret);
    options.faults = parser.values(fault);
    options.deviceTokens = parser.values(deviceToken);
    options.revokedTokens = parser.values(revokedToken);
    return options;
}

} // namespace kelvo::devcloud
