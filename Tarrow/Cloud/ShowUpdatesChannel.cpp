#include "Cloud/ShowUpdatesChannel.h"

#include <QWebSocket>

namespace kelvo {

ShowUpdatesChannel::ShowUpdatesChannel(std::function<bool()> stillConnected, QObject* parent)
    : QObject(parent), stillConnected_(std::move(stillConnected)) {
    reconnectTimer_.setSingleShot(true);
    reconnectTimer_.setInterval(reconnectDelay);
    QObject::connect(&reconnectTimer_, &QTimer::timeout, this, [this] {
        if (stillConnected_ && stillConnected_())
            start(url_);
    });
    reloadTimer_.setSingleShot(true);
    reloadTimer_.setInterval(reloadDebounce);
    QObject::connect(&reloadTimer_, &QTimer::timeout, this,
                     [this] { emit activeShowReloadDue(pendingRevision_); });
}

ShowUpdatesChannel::~ShowUpdatesChannel() {
    closeSocket();
}

void ShowUpdatesChannel::start(const QUrl& url) {
    stop();
    if (!url.isValid())
        return;
    url_ = url;
    openPending_ = !tls_.isReady(); // a QWebSocket's constructor would load the backend
    if (!openPending_)
        openSocket();
}

void ShowUpdatesChannel::tlsBackendReady() {
    if (std::exchange(openPending_, false))
        openSocket();
}

void ShowUpdatesChannel::openSocket() {
    socket_ = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    // Refuse oversized frames in the socket itself, before they are buffered whole.
    socket_->setMaxAllowedIncomingFrameSize(kMaxShowUpdateFrameBytes);
    socket_->setMaxAllowedIncomingMessageSize(kMaxShowUpdateFrameBytes);
    QWebSocket* socket = socket_;
    QObject::connect(socket, &QWebSocket::textMessageReceived, this,
                     [this](const QString& text) { receiveFrame(text); });
    QObject::connect(socket, &QWebSocket::binaryMessageReceived, this,
                     [this](const QByteArray& bytes) { receiveFrame(bytes); });
    QObject::connect(socket, &QWebSocket::disconnected, this,
                     [this, socket] { socketDropped(socket); });
    socket->open(url_);
}

void ShowUpdatesChannel::stop() {
    ++framesGeneration_;
    openPending_ = false;
    reconnectTimer_.stop();
    reloadTimer_.stop();
    closeSocket();
}

void ShowUpdatesChannel::closeSocket() {
    if (!socket_)
        return;
    QWebSocket* socket = std::exchange(socket_, nullptr);
    socket->disconnect(this);
    socket->close(QWebSocketProtocol::CloseCodeGoingAway);
    socket->deleteLater();
}

void ShowUpdatesChannel::socketDropped(QWebSocket* socket) {
    if (socket != socket_)
        return;
    socket_ = nullptr;
    socket->disconnect(this);
    socket->deleteLater();
    reconnectTimer_.start(); // replaces a pending reconnect, never stacks
}

void ShowUpdatesChannel::handleFrame(const QByteArray& bytes) {
    handleMessage(
        decodeShowUpdateMessage(std::string_view(bytes.constData(), std::size_t(bytes.size()))));
}

void ShowUpdatesChannel::receiveFrame(QByteArray bytes) {
    decoding_.async([this, bytes = std::move(bytes), generation = framesGeneration_] {
        deliverDecoded(generation, bytes);
    });
}

void ShowUpdatesChannel::receiveFrame(QString text) {
    // Encoded on the worker too: a frame of megabytes takes milliseconds.
    decoding_.async([this, text = std::move(text), generation = framesGeneration_] {
        deliverDecoded(generation, text.toUtf8());
    });
}

void ShowUpdatesChannel::deliverDecoded(std::uint64_t generation, const QByteArray& bytes) {
    auto message =
        decodeShowUpdateMessage(std::string_view(bytes.constData(), std::size_t(bytes.size())));
    // Posted to this object: the queue is joined before it goes, and posted calls die with it.
    QMetaObject::invokeMethod(
        this,
        [this, generation, message = std::move(message)] {
            if (generation == framesGeneration_)
                handleMessage(message);
        },
        Qt::QueuedConnection);
}

void ShowUpdatesChannel::handleMessage(const std::optional<ShowUpdateMessage>& message) {
    if (!message)
        return;
    if (const auto* changed = std::get_if<show_update::ShowChanged>(&*message)) {
        scheduleActiveShowReload(changed->revision);
        return;
    }
    if (!std::holds_alternative<show_update::Ignored>(*message))
        emit messageReceived(*message);
}

void ShowUpdatesChannel::scheduleActiveShowReload(std::optional<std::int64_t> revision) {
    pendingRevision_ = revision;
    reloadTimer_.start();
}

} // namespace kelvo
