#include "ShowUpdatesHub.h"

#include <QTcpSocket>
#include <QUrlQuery>
#include <QWebSocket>

namespace kelvo::devcloud {

ShowUpdatesHub::ShowUpdatesHub(std::function<QByteArray()> greeting, QObject* parent)
    : QObject(parent), server_(QStringLiteral("kelvo-devcloud"), QWebSocketServer::NonSecureMode),
      greeting_(std::move(greeting)) {
    connect(&server_, &QWebSocketServer::newConnection, this, [this] {
        while (QWebSocket* socket = server_.nextPendingConnection())
            adopt(socket);
    });
}

void ShowUpdatesHub::accept(QTcpSocket* socket) {
    server_.handleConnection(socket);
}

void ShowUpdatesHub::adopt(QWebSocket* socket) {
    const QString token =
        QUrlQuery(socket->requestUrl()).queryItemValue(QStringLiteral("token"), QUrl::FullyDecoded);
    sockets_[socket] = token;
    connect(socket, &QWebSocket::disconnected, this, [this, socket] {
        sockets_.erase(socket);
        socket->deleteLater();
    });
    if (greeting_)
        if (const QByteArray text = greeting_(); !text.isEmpty())
            socket->sendTextMessage(QString::fromUtf8(text));
}

void ShowUpdatesHub::broadcast(const QByteArray& text) {
    const QString message = QString::fromUtf8(text);
    for (const auto& [socket, token] : sockets_)
        socket->sendTextMessage(message);
}

void ShowUpdatesHub::closeToken(const QString& token) {
    for (const auto& [socket, owner] : std::map(sockets_))
        if (owner == token)
            socket->close(QWebSocketProtocol::CloseCodePolicyViolated,
                          QStringLiteral("device token revoked"));
}

void ShowUpdatesHub::closeAll() {
    for (const auto& [socket, owner] : std::map(sockets_))
        socket->close(QWebSocketProtocol::CloseCodeGoingAway,
                      QStringLiteral("closed by the server"));
}

} // namespace kelvo::devcloud
