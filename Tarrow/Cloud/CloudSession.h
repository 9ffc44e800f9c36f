#pragma once

#include "Cloud/BridgeAPIClient.h"
#include "Cloud/CloudScheduler.h"
#include "Cloud/ConnectionStatus.h"
#include "Cloud/DeviceTokenStore.h"
#include "Cloud/DisconnectNotifier.h"

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kelvo {

/// What the session is built on.
struct CloudSessionEnvironment {
    QUrl serverURL;
    std::shared_ptr<URLRequestPerforming> http;
    /// The owner's token storage; outlives the session.
    DeviceTokenStore* tokens = nullptr;
    std::shared_ptr<CloudScheduler> scheduler = std::make_shared<QtCloudScheduler>();
    std::shared_ptr<DisconnectNotifying> leaving;
    /// True when the cache can light the last show without the cloud; it chooses the wording.
    std::function<bool()> hasOfflineWorkspace;
    /// The full download every connect performs (the model's `fetchShowAndHarness`); its
    /// failure fails the connect.
    std::function<QCoro::Task<>(std::string token, CancellationToken cancel)> fetchShowAndHarness;
    /// An updater's feed; Linux builds have none, so the update banner path runs.
    std::optional<QString> updaterFeedURL;
    /// This build's identifier, compared with the published one.
    QString buildRevision;
};

/// The bridge's standing with the cloud: pairing in the browser, connecting with the stored
/// token (retrying on a growing schedule), the heartbeat, sign-out, and the update notice.
/// Every flow is a coroutine on the main thread that re-checks its cancellation after each wait;
/// outcomes are told through signals and the operator's texts below.
class CloudSession : public QObject {
    Q_OBJECT
public:
    static constexpr const char* approveToSyncText = "Approve this bridge in your browser to sync…";
    static constexpr const char* approveText = "Approve this bridge in your browser…";
    static constexpr const char* pairedFetchingText = "Paired — fetching show…";
    static constexpr const char* loginCancelledText = "Login cancelled — still running from cache.";
    static constexpr const char* loginFailedPrefix = "Login failed: ";
    static constexpr const char* loginFailedSuffix = ". Still running from cache.";
    static constexpr const char* linkFailedPrefix = "Link failed: ";
    static constexpr const char* offlineText =
        "You’re offline — log in from Connections when you can.";
    static constexpr const char* updatingText = "Updating from cloud…";
    static constexpr const char* sessionExpiredOfflineText =
        "Session expired — log in from Connections to sync again.";
    static constexpr const char* sessionExpiredText = "Session expired — link to cloud again.";
    static constexpr const char* unreachableRetryPrefix =
        "Couldn’t reach cloud — running from cache. Retrying in ";
    static constexpr const char* connectFailedPrefix = "Couldn’t connect: ";
    static constexpr const char* retryInfix = ". Retrying in ";
    static constexpr const char* retrySuffix = "s…";
    static constexpr const char* signedOutText =
        "Signed out of cloud — log in from Connections to sync again.";

    static constexpr std::chrono::seconds pairingTimeToLive{600};
    static constexpr std::chrono::seconds pairingPollInterval{2};
    static constexpr std::chrono::seconds heartbeatInterval{30};
    static constexpr std::chrono::seconds quitDisconnectTimeout{2};

    explicit CloudSession(CloudSessionEnvironment environment, QObject* parent = nullptr);
    ~CloudSession() override;

    /// The log-in command: cancels a running pairing (telling so) and pairs anew.
    void startPairing();
    /// Stops a running pairing; the bridge stays on its cache.
    void cancelPairing();
    /// Connects with the stored token, retrying until it works, the token is refused or gone.
    void autoConnect();
    /// The shared tail of pairing and auto-connect: download, connected, session info, heartbeat.
    QCoro::Task<> connect(std::string token, CancellationToken cancel = {});
    /// The device token once the code is approved; BridgeAPIError when it expires, is unknown or
    /// comes without a token, the transport's error when a poll fails.
    QCoro::Task<std::string> pollForDeviceToken(BridgeAPIClient client, std::string code,
                                                std::chrono::seconds timeToLive,
                                                CancellationToken cancel = {});
    /// Updates the session info; failures keep the previous value, silently.
    QCoro::Task<> refreshSessionInfo(std::string token, CancellationToken cancel = {});
    /// (Re)starts the heartbeat: a session refresh every 30 s while a token exists.
    void startHeartbeat();
    /// Tells the cloud this bridge leaves, blocking at most `timeout` (at quit).
    void notifyDisconnectSync(std::chrono::milliseconds timeout);
    /// Sign-out: the cloud is told without waiting (the lights keep their tick), the flows stop,
    /// the token is forgotten and the cloud-derived state reset; `signedOut` follows.
    void reauthenticate();
    /// Asks the server which version is published and shows or clears the update banner.
    QCoro::Task<> refreshAppUpdateNotice();

    ConnectionStatus connectionStatus() const { return connectionStatus_; }
    const std::optional<BridgeSessionInfo>& sessionInfo() const { return sessionInfo_; }
    const std::optional<QUrl>& appUpdateDownloadURL() const { return appUpdateDownloadURL_; }
    const QUrl& serverURL() const { return environment_.serverURL; }
    BridgeAPIClient client() const { return {environment_.serverURL, environment_.http}; }
    /// Cancelled when the session goes away: for work the owner starts on the session's behalf.
    CancellationToken lifetimeToken() const { return lifetime(); }
    bool isPairing() const { return pairing_ != nullptr; }
    bool isAutoConnecting() const { return autoConnect_ != nullptr; }
    bool isHeartbeatRunning() const { return heartbeat_ != nullptr; }

signals:
    void connectionStatusChanged();
    void sessionInfoChanged();
    void appUpdateDownloadURLChanged();
    /// A user-facing outcome for the status line (empty: nothing to say).
    void statusReported(const QString& message);
    /// The approval page to open in a browser (or print, without one).
    void pairingPageReady(const QUrl& url);
    /// A connect completed: the owner makes sure the engine loop and live updates run.
    void connected();
    /// Signed out: the owner resets its cloud-derived selections and restarts the outputs.
    void signedOut();

private:
    using Flow = std::shared_ptr<CancellationSource>;

    QCoro::Task<> runPairing(Flow flow);
    QCoro::Task<> runAutoConnect(Flow flow);
    QCoro::Task<> runHeartbeat(Flow flow);
    QCoro::Task<> sendDisconnect(std::string token);
    static void cancel(Flow& flow);
    /// Forgets `flow` if it is still the running one.
    static void finished(Flow& slot, const Flow& flow);
    CancellationToken lifetime() const { return CancellationToken(lifetime_); }
    bool offline() const;
    std::optional<std::string> storedToken() const;
    void setConnectionStatus(ConnectionStatus status);
    void setSessionInfo(std::optional<BridgeSessionInfo> info);
    void report(const QString& message) { emit statusReported(message); }
    void reportFailure(const std::string& description);
    void reportRetry(const std::string& description, int delaySeconds);

    CloudSessionEnvironment environment_;
    ConnectionStatus connectionStatus_ = ConnectionStatus::disconnected;
    std::optional<BridgeSessionInfo> sessionInfo_;
    std::optional<QUrl> appUpdateDownloadURL_;
    Flow pairing_;
    Flow autoConnect_;
    Flow heartbeat_;
    Flow lifetime_ = std::make_shared<CancellationSource>();
};

} // namespace kelvo
