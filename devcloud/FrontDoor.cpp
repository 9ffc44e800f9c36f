#include "FrontDoor.h"

#include "FaultInjector.h"
#include "RequestHead.h"

#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

#include <nlohmann/json.hpp>

#include <cstdio>

namespace kelvo::devcloud {

namespace {

constexpr qint64 maximumHeadBytes = 64 * 1024;
constexpr int headTimeoutMs = 15'000;

QByteArray reason(int status) {
    switch (status) {
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 431:
        return "Request Header Fields Too Large";
    case 500:
        return "Internal Server Error";
    case 503:
        return "Service Unavailable";
    default:
        return "Status";
    }
}

} // namespace

void answerAndClose(QTcpSocket* socket, int status, const std::string& message) {
    const QByteArray body = QByteArray::fromStdString(nlohmann::json{{"error", message}}.dump());
    socket->write("HTTP/1.1 " + QByteArray::number(status) + " " + reason(status) +
                  "\r\nContent-Type: application/json\r\nContent-Length: " +
                  QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
    socket->disconnectFromHost();
}

FrontDoor::FrontDoor(FaultInjector& faults, UpgradeCheck check, UpgradeAccept accept,
                     QObject* parent)
    : QTcpServer(parent), faults_(faults), check_(std::move(check)), accept_(std::move(accept)) {}

void FrontDoor::incomingConnection(qintptr descriptor) {
    auto* socket = new QTcpSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        delete socket;
        return;
    }
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    connect(socket, &QTcpSocket::readyRead, this, [this, socket] { examine(socket); });
    // A client that never finishes its request head does not keep a socket forever.
    QTimer::singleShot(headTimeoutMs, socket, [socket] {
        if (socket->property("kelvoExamined").isNull())
            socket->abort();
    });
}

void FrontDoor::examine(QTcpSocket* socket) {
    const std::optional<RequestHead> head = parseRequestHead(socket->peek(maximumHeadBytes));
    if (!head) {
        if (socket->bytesAvailable() >= maximumHeadBytes) {
            socket->disconnect(this);
            answerAndClose(socket, 431, "request head too large");
        }
        return;
    }
    socket->setProperty("kelvoExamined", true);
    socket->disconnect(this);
    if (head->websocketUpgrade)
        upgrade(socket, QUrl(QString::fromLatin1(head->target)));
    else
        handOver(socket);
}

void FrontDoor::upgrade(QTcpSocket* socket, const QUrl& target) {
    const std::optional<Fault> fault = faults_.take(target.path());
    auto finish = [this, target, fault](QTcpSocket* socket) {
        std::printf("WEBSOCKET %s -> ", qPrintable(target.path()));
        if (fault && fault->drop) {
            std::printf("dropped\n");
            std::fflush(stdout);
            socket->abort();
            return;
        }
        const Verdict verdict =
            fault && fault->status ? Verdict{fault->status, "injected fault"} : check_(target);
        std::printf("%d\n", verdict.status ? verdict.status : 101);
        std::fflush(stdout);
        if (verdict.status) {
            answerAndClose(socket, verdict.status, verdict.message);
            return;
        }
        disconnect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        accept_(socket, target);
        replayBufferedHead(socket);
    };
    if (!fault || fault->delayMs == 0) {
        finish(socket);
        return;
    }
    QTimer::singleShot(fault->delayMs, socket, [socket, finish] { finish(socket); });
}

void FrontDoor::handOver(QTcpSocket* socket) {
    disconnect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    addPendingConnection(socket);
    emit newConnection();
    replayBufferedHead(socket);
}

void FrontDoor::replayBufferedHead(QTcpSocket* socket) {
    // The head is already buffered; the new owner only reads on the next readyRead.
    QMetaObject::invokeMethod(
        socket,
        [socket = QPointer<QTcpSocket>(socket)] {
            if (socket)
                emit socket->readyRead();
        },
        Qt::QueuedConnection);
}

} // namespace kelvo::devcloud
