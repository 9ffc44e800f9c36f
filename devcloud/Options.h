#pragma once

#include <QHostAddress>
#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

namespace kelvo::devcloud {

/// How `kelvo-devcloud` was asked to run.
struct Options {
    QHostAddress listenAddress{QHostAddress::LocalHost};
    quint16 port = 4041;
    bool allowRemote = false;
    QString dataDirectory;
    QString harnessDirectory;
    QString statePath;
    bool autoApprove = false;
    int pairingTtlSeconds = 600;
    QString apiVersion;
    std::optional<QString> publishedApiVersion;
    QString appDownloadUrl;
    QString adminSecret;
    /// "PATH:SPEC" each, see FaultInjector.
    QStringList faults;
    /// Devices that exist from the start, so tests need not pair first.
    QStringList deviceTokens;
    QStringList revokedTokens;
};

/// The command line (program name first) as Options, or the text that explains what is wrong.
/// `--help` yields the usage text as the error with `helpRequested` set.
struct OptionsError {
    QString text;
    bool helpRequested = false;
};
std::variant<Options, OptionsError> parseOptions(const QStringList& arguments);

/// "HOST:PORT" (IPv6 as "[::1]:PORT"); the host must be an IP address or "localhost".
std::variant<std::pair<QHostAddress, quint16>, QString> parseListenAddress(const QString& text);

/// The address as a URL authority, e.g. "127.0.0.1:4041" or "[::1]:4041".
QString authority(const QHostAddress& address, quint16 port);

} // namespace kelvo::devcloud
