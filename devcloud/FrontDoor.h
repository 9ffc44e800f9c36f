#pragma once

#include <QTcpServer>
#include <QUrl>

#include <functional>
#include <string>

namespace kelvo::devcloud {

class FaultInjector;

/// The listening socket. It reads the head of each new connection first: a web-socket upgrade is
/// checked here (so a bad token gets a plain HTTP 401 instead of an accepted socket) and handed to
/// `acceptUpgrade`; every other connection goes on to the HTTP server bound to this one.
class FrontDoor : public QTcpServer {
    Q_OBJECT
public:
    /// Status 0 accepts the upgrade; anything else is answered with that status and `message`.
    struct Verdict {
        int status = 0;
        std::string message;
    };
    using UpgradeCheck = std::function<Verdict(const QUrl& target)>;
    using UpgradeAccept = std::function<void(QTcpSocket* socket, const QUrl& target)>;

    FrontDoor(FaultInjector& faults, UpgradeCheck check, UpgradeAccept accept,
              QObject* parent = nullptr);

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    void examine(QTcpSocket* socket);
    void upgrade(QTcpSocket* socket, const QUrl& target);
    void handOver(QTcpSocket* socket);
    static void replayBufferedHead(QTcpSocket* socket);

    FaultInjector& faults_;
    UpgradeCheck check_;
    UpgradeAccept accept_;
};

/// Writes a complete JSON error answer and closes the connection once it is sent.
void answerAndClose(QTcpSocket* socket, int status, const std::string& message);

} // namespace kelvo::devcloud
