#include "Cloud/ShowUpdatesChannel.h"

#include "support/QtEventLoop.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QWebSocket>
#include <QWebSocketServer>

#include <gtest/gtest.h>

#include <vector>

namespace kelvo {
namespace {

using namespace std::chrono_literals;
using test::pumpFor;
using test::pumpUntil;

// A loopback server standing in for the cloud's push socket.
struct PushServer {
    PushServer() {
        test::qtApplication();
        EXPECT_TRUE(server.listen(QHostAddress::LocalHost, 0));
        QObject::connect(&server, &QWebSocketServer::newConnection, [this] {
            QWebSocket* socket = server.nextPendingConnection();
            QObject::connect(socket, &QWebSocket::disconnected,
                             [this, socket] { closeCodes.push_back(socket->closeCode()); });
            sockets.push_back(socket);
            connectedAt.push_back(clock.elapsed());
        });
        clock.start();
    }
    QUrl url() const {
        return QUrl(QStringLiteral("ws://127.0.0.1:%1/ws/show-updates").arg(server.serverPort()));
    }
    QWebSocket& latest() { return *sockets.back(); }

    QWebSocketServer server{QStringLiteral("test"), QWebSocketServer::NonSecureMode};
    std::vector<QWebSocket*> sockets;
    std::vector<qint64> connectedAt;
    std::vector<QWebSocketProtocol::CloseCode> closeCodes;
    QElapsedTimer clock;
};

struct Received {
    explicit Received(ShowUpdatesChannel& channel) {
        QObject::connect(&channel, &ShowUpdatesChannel::messageReceived,
                         [this](const ShowUpdateMessage& m) { messages.push_back(m); });
        QObject::connect(&channel, &ShowUpdatesChannel::activeShowReloadDue,
                         [this](std::optional<std::int64_t> r) { reloads.push_back(r); });
    }
    std::vector<ShowUpdateMessage> messages;
    std::vector<std::optional<std::int64_t>> reloads;
};

TEST(ShowUpdatesChannel, FramesAreDecodedAndShowChangesDebounced) {
    PushServer server;
    ShowUpdatesChannel channel([] { return true; });
    Received received(channel);
    channel.start(server.url());
    ASSERT_TRUE(pumpUntil([&] { return !server.sockets.empty(); }));

    auto& socket = server.latest();
    socket.sendTextMessage(R"({"type":"show_changed","data":{"revision":1}})");
    socket.sendTextMessage("[]");
    socket.sendBinaryMessage(QByteArray("\xff\x00garbage", 9));
    socket.sendTextMessage(R"({"type":"show_changed","data":{"revision":2}})");
    socket.sendBinaryMessage(R"({"type":"force_drop","data":{"active":true}})");
    socket.sendTextMessage(R"({"type":"unknown"})");
    socket.sendTextMessage(R"({"type":"shared_catalog_changed"})");
    socket.sendTextMessage(R"({"type":"shift_color_scheme"})");
    ASSERT_TRUE(pumpUntil([&] { return received.messages.size() == 2; }));
    EXPECT_EQ(received.messages[0], ShowUpdateMessage(show_update::ForceDrop{true}));
    EXPECT_EQ(received.messages[1], ShowUpdateMessage(show_update::ShiftColorScheme{}));

    ASSERT_TRUE(pumpUntil([&] { return !received.reloads.empty(); }));
    pumpFor(300ms);
    EXPECT_EQ(received.reloads, (std::vector<std::optional<std::int64_t>>{std::nullopt}));
}

TEST(ShowUpdatesChannel, ReopensOneSecondAfterADropOnlyWhileConnected) {
    PushServer server;
    bool connected = true;
    ShowUpdatesChannel channel([&] { return connected; });
    channel.start(server.url());
    ASSERT_TRUE(pumpUntil([&] { return server.sockets.size() == 1; }));

    const qint64 closedAt = server.clock.elapsed();
    server.latest().close();
    ASSERT_TRUE(pumpUntil([&] { return server.sockets.size() == 2; }, 5s));
    EXPECT_GE(server.connectedAt[1] - closedAt, 950);

    // A frame over the cap ends that socket too; the channel comes back the same way.
    server.latest().sendBinaryMessage(QByteArray(qsizetype(kMaxShowUpdateFrameBytes) + 1, 'x'));
    ASSERT_TRUE(pumpUntil([&] { return server.sockets.size() == 3; }, 5s));

    connected = false;
    server.latest().close();
    pumpFor(1500ms);
    EXPECT_EQ(server.sockets.size(), 3u);
    EXPECT_FALSE(channel.isOpen());
}

TEST(ShowUpdatesChannel, StopClosesAsGoingAwayAndCancelsTheReconnect) {
    PushServer server;
    ShowUpdatesChannel channel([] { return true; });
    Received received(channel);
    channel.start(server.url());
    ASSERT_TRUE(pumpUntil([&] { return server.sockets.size() == 1; }));
    channel.scheduleActiveShowReload(7);
    channel.stop();
    ASSERT_TRUE(pumpUntil([&] { return !server.closeCodes.empty(); }));
    EXPECT_EQ(server.closeCodes[0], QWebSocketProtocol::CloseCodeGoingAway);
    pumpFor(1300ms);
    EXPECT_EQ(server.sockets.size(), 1u);
    EXPECT_TRUE(received.reloads.empty());
}

} // namespace
} // namespace kelvo
