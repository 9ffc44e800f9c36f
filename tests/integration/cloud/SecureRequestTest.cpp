#include "Cloud/FakeURLSession.h"
#include "Cloud/QtURLSession.h"
#include "support/QtEventLoop.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

namespace kelvo {
namespace {

// A fresh process: nothing has loaded the TLS backend yet, so the request waits for the worker
// that loads it, then goes out.
TEST(SecureRequest, OneMadeBeforeTheTlsBackendIsLoadedStillGoesOut) {
    test::qtApplication();
    quint16 port = 0;
    {
        QTcpServer closed;
        ASSERT_TRUE(closed.listen(QHostAddress::LocalHost, 0));
        port = closed.serverPort();
    }
    QtURLSession session;
    HTTPRequest request;
    request.url = QUrl(QStringLiteral("https://127.0.0.1:%1/api/health").arg(port));
    request.timeout = std::chrono::seconds(5);
    try {
        test::finish(session.data(request, {}));
        ADD_FAILURE() << "nothing listens there";
    } catch (const TransportError& error) {
        EXPECT_STREQ(error.what(), "Connection refused");
    }
}

/// A loopback server that answers every request with `head` and `body`, then hangs up.
class CannedServer {
public:
    CannedServer(QByteArray head, QByteArray body) {
        EXPECT_TRUE(server_.listen(QHostAddress::LocalHost, 0));
        QObject::connect(&server_, &QTcpServer::newConnection, [this, head, body] {
            QTcpSocket* client = server_.nextPendingConnection();
            QObject::connect(client, &QTcpSocket::readyRead, client, [client, head, body] {
                client->readAll();
                client->write(head + "\r\n\r\n" + body);
                client->disconnectFromHost();
            });
        });
    }
    QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/engine.js").arg(port())); }
    quint16 port() const { return server_.serverPort(); }

private:
    QTcpServer server_;
};

std::string failureOf(const HTTPRequest& request) {
    QtURLSession session;
    try {
        const HTTPResponse answer = test::finish(session.data(request, {}));
        return "answered " + std::to_string(answer.statusCode.value_or(0)) + " with " +
               std::to_string(answer.body.size()) + " bytes";
    } catch (const TransportError& error) {
        return error.what();
    }
}

// A body cut short must never reach the cache as a complete script; one larger than asked for
// must not fill memory.
TEST(HTTPTransfer, ACutOffOrOversizedBodyFailsTheRequest) {
    test::qtApplication();
    CannedServer cut("HTTP/1.1 200 OK\r\nContent-Length: 100000", QByteArray(22, 'x'));
    HTTPRequest request;
    request.url = cut.url();
    request.timeout = std::chrono::seconds(5);
    EXPECT_EQ(failureOf(request), "The server closed the connection");

    CannedServer whole("HTTP/1.1 200 OK\r\nContent-Length: 5000", QByteArray(5000, 'x'));
    request.url = whole.url();
    EXPECT_EQ(failureOf(request), "answered 200 with 5000 bytes");
    request.maximumResponseBytes = 4999;
    EXPECT_EQ(failureOf(request), "The server's answer is too large");

    CannedServer missing("HTTP/1.1 404 Not Found\r\nContent-Length: 9", "not here!");
    request.url = missing.url();
    EXPECT_EQ(failureOf(request), "answered 404 with 9 bytes");
}

} // namespace
} // namespace kelvo
