#pragma once

#include "Cloud/ShowUpdateMessage.h"
#include "Cloud/TlsWarmUp.h"
#include "Support/SerialQueue.h"

#include <QObject>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QWebSocket;

namespace kelvo {

/// The cloud's push socket for live edits: decodes each frame and tells the owner, reopens the
/// socket one second after it drops for as long as the bridge counts as connected, and folds
/// bursts of "show changed" notices into one reload. The process's first socket loads the TLS
/// backend (about 6 ms of processor time), so that is done on a worker as the channel is made and
/// an open waits for it instead of stalling the main thread.
class ShowUpdatesChannel : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds reconnectDelay{1000};
    static constexpr std::chrono::milliseconds reloadDebounce{120};

    /// `stillConnected` is asked when a reconnect is due; false ends the retries.
    explicit ShowUpdatesChannel(std::function<bool()> stillConnected, QObject* parent = nullptr);
    ~ShowUpdatesChannel() override;

    /// (Re)opens the socket at `url` (already carrying the runtime role and token), once the TLS
    /// backend is ready.
    void start(const QUrl& url);
    /// Closes the socket as "going away" and cancels a pending reconnect and reload.
    void stop();
    /// True from `start` until `stop` or a drop, also while the open waits for the TLS backend.
    bool isOpen() const { return socket_ != nullptr || openPending_; }

    /// Decodes one frame and acts on it; frames that decode to nothing are dropped silently.
    void handleFrame(const QByteArray& bytes);
    /// What the socket does with a frame: decodes it on a worker, so a large one costs the
    /// lights' thread nothing, and acts on it back on this thread, in arrival order. A frame
    /// still decoding when `stop` or `start` runs is dropped.
    void receiveFrame(QByteArray bytes);
    void receiveFrame(QString text);
    void scheduleActiveShowReload(std::optional<std::int64_t> revision);
    const std::optional<std::int64_t>& pendingShowChangedRevision() const {
        return pendingRevision_;
    }

signals:
    /// Every decoded message except show changes, which arrive debounced as `activeShowReloadDue`.
    void messageReceived(const kelvo::ShowUpdateMessage& message);
    void activeShowReloadDue(std::optional<std::int64_t> revision);

private:
    void openSocket();
    void tlsBackendReady();
    void socketDropped(QWebSocket* socket);
    void closeSocket();
    void handleMessage(const std::optional<ShowUpdateMessage>& message);
    /// On the decoding worker.
    void deliverDecoded(std::uint64_t generation, const QByteArray& bytes);

    std::function<bool()> stillConnected_;
    QUrl url_;
    QWebSocket* socket_ = nullptr;
    QTimer reconnectTimer_;
    QTimer reloadTimer_;
    std::optional<std::int64_t> pendingRevision_;
    bool openPending_ = false;
    std::uint64_t framesGeneration_ = 0; // frames decoded for an earlier one are dropped
    SerialQueue decoding_{"kelvo.cloud.show-updates"}; // joined before the object goes
    TlsWarmUp tls_{[this] { tlsBackendReady(); }};     // last: its worker is joined first
};

} // namespace kelvo
