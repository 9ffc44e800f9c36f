#include "Cloud/ShowUpdatesChannel.h"

#include "support/QtEventLoop.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QWebSocket>
#include <QWebSocketServer>

#include <gtest/gtest.h>

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
        QObject::connect(&server, &QWebSocketServer::newConnection,
                         [this] { sockets.push_back(server.nextPendingConnection()); });
    }
    QUrl url() const {
        return QUrl(QStringLiteral("ws://127.0.0.1:%1/ws/show-updates").arg(server.serverPort()));
    }
    QWebSocket& latest() { return *sockets.back(); }

    QWebSocketServer server{QStringLiteral("test"), QWebSocketServer::NonSecureMode};
    std::vector<QWebSocket*> sockets;
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
    test::qtApplication();
    ShowUpdatesChannel channel([] { return true; });
    Received received(channel);
    // Undecodable frames are dropped (the decoding rules are the message's own test).
    for (const char* frame :
         {R"({"type":"show_changed","data":{"revision":1}})", "\xff\x00garbage",
          R"({"type":"shared_catalog_changed"})", R"({"type":"shift_color_scheme"})"})
        channel.handleFrame(frame);
    EXPECT_EQ(received.messages, std::vector<ShowUpdateMessage>{show_update::ShiftColorScheme{}});
    ASSERT_TRUE(pumpUntil([&] { return !received.reloads.empty(); }));
    pumpFor(300ms);
    EXPECT_EQ(received.reloads, (std::vector<std::optional<std::int64_t>>{std::nullopt}));
}

TEST(ShowUpdatesChannel, SocketFramesAreDecodedOffThisThreadInOrderAndNotAfterStop) {
    test::qtApplication();
    ShowUpdatesChannel channel([] { return true; });
    Received received(channel);
    channel.receiveFrame(QString(R"({"type":"shift_color_scheme"})"));
    channel.receiveFrame(QByteArray(R"({"type":"shift_lighting_only"})"));
    EXPECT_TRUE(received.messages.empty()) << "acted on only once back on this thread";
    ASSERT_TRUE(pumpUntil([&] { return received.messages.size() == 2; }));
    EXPECT_EQ(received.messages,
              (std::vector<ShowUpdateMessage>{show_update::ShiftColorScheme{},
                                              show_update::ShiftLightingOnly{}}));

    channel.receiveFrame(QByteArray(R"({"type":"shift_color_scheme"})"));
    channel.stop();
    pumpFor(200ms);
    EXPECT_EQ(received.messages.size(), 2u) << "a frame of a stopped socket is dropped";
}

TEST(ShowUpdatesChannel, ReopensOneSecondAfterADropOnlyWhileConnectedAndNotAfterStop) {
    PushServer server;
    bool connected = true;
    ShowUpdatesChannel channel([&] { return connected; });
    Received received(channel);
    channel.start(server.url());
    ASSERT_TRUE(pumpUntil([&] { return server.sockets.size() == 1; }));

    QElapsedTimer closed;
    closed.start();
    server.latest().close();
    ASSERT_TRUE(pumpUntil([&] { return server.sockets.size() == 2; }, 5s));
    EXPECT_GE(closed.elapsed(), 950);

    // Binary frames count as text; one over the cap ends that socket, and it comes back.
    server.latest().sendBinaryMessage(R"({"type":"shift_color_scheme"})");
    ASSERT_TRUE(pumpUntil([&] { return received.messages.size() == 1; }));
    server.latest().sendBinaryMessage(QByteArray(qsizetype(kMaxShowUpdateFrameBytes) + 1, 'x'));
    ASSERT_TRUE(pumpUntil([&] { return server.sockets.size() == 3; }, 5s));

    // Stopping cancels both the reconnect and a pending reload.
    channel.scheduleActiveShowReload(7);
    channel.stop();
    pumpFor(1300ms);
    EXPECT_EQ(server.sockets.size(), 3u);
    EXPECT_TRUE(received.reloads.empty());

    channel.start(server.url());
    ASSERT_TRUE(pumpUntil([&] { return server.sockets.size() == 4; }));
    connected = false;
    server.latest().close();
    pumpFor(1500ms);
    EXPECT_EQ(server.sockets.size(), 4u);
}

TEST(ShowUpdatesChannel, AnOpenWaitingForTheTlsBackendCountsAsOpenAndStopCancelsIt) {
    PushServer server;
    ShowUpdatesChannel channel([] { return true; });
    channel.start(server.url()); // before the worker has loaded the TLS backend
    EXPECT_TRUE(channel.isOpen());
    channel.stop();
    EXPECT_FALSE(channel.isOpen());
    pumpFor(300ms);
    EXPECT_TRUE(server.sockets.empty());
}

} // namespace
} // namespace kelvo
