#pragma once

#include <QObject>
#include <QUrl>
#include <QWebSocketServer>

#include <functional>
#include <map>

class QTcpSocket;
class QWebSocket;

namespace kelvo::devcloud {

/// The bridges connected to "/ws/show-updates": every pushed message goes to all of them.
class ShowUpdatesHub : public QObject {
    Q_OBJECT
public:
    /// `greeting` is sent to each bridge as soon as its socket is open (may be empty).
    explicit ShowUpdatesHub(std::function<QByteArray()> greeting, QObject* parent = nullptr);

    /// Completes the web-socket handshake on a connection whose upgrade was already checked.
    void accept(QTcpSocket* socket);
    void broadcast(const QByteArray& text);
    /// Closes the sockets opened with `token` (when it is revoked).
    void closeToken(const QString& token);
    /// Closes every socket, as a server restart would.
    void closeAll();
    int connectedCount() const { return int(sockets_.size()); }

private:
    void adopt(QWebSocket* socket);

    QWebSocketServer server_;
    std::function<QByteArray()> greeting_;
    std::map<QWebSocket*, QString> sockets_;
};

} // namespace kelvo::devcloud
