#include "Cloud/CloudSession.h"

#include "Cloud/AppUpdateNotice.h"
#include "Cloud/BridgeAPIError.h"

#include <QLoggingCategory>

namespace kelvo {

namespace {
Q_LOGGING_CATEGORY(lcCloud, "kelvo.cloud")

/// 1, 2, 4, 8, 16, then 30 seconds for every later failure.
int retryDelaySeconds(int failures) {
    return failures < 6 ? 1 << (failures - 1) : 30;
}
} // namespace

CloudSession::CloudSession(CloudSessionEnvironment environment, QObject* parent)
    : QObject(parent), environment_(std::move(environment)) {}

CloudSession::~CloudSession() {
    // Suspended flows wake up cancelled and unwind without touching this object.
    cancel(pairing_);
    cancel(autoConnect_);
    cancel(heartbeat_);
    lifetime_->cancel();
}

void CloudSession::cancel(Flow& flow) {
    if (Flow running = std::exchange(flow, nullptr))
        running->cancel();
}

void CloudSession::finished(Flow& slot, const Flow& flow) {
    if (slot == flow)
        slot.reset();
}

bool CloudSession::offline() const {
    return environment_.hasOfflineWorkspace && environment_.hasOfflineWorkspace();
}

std::optional<std::string> CloudSession::storedToken() const {
    return environment_.tokens->authToken(environment_.serverURL);
}

void CloudSession::setConnectionStatus(ConnectionStatus status) {
    if (status == connectionStatus_)
        return;
    connectionStatus_ = status;
    emit connectionStatusChanged();
}

void CloudSession::setSessionInfo(std::optional<BridgeSessionInfo> info) {
    if (info == sessionInfo_)
        return;
    sessionInfo_ = std::move(info);
    emit sessionInfoChanged();
}

// Pairing

void CloudSession::startPairing() {
    cancelPairing();
    // Pairing takes over the link: a retry loop would talk over the approval prompt.
    cancel(autoConnect_);
    pairing_ = std::make_shared<CancellationSource>();
    runPairing(pairing_);
}

void CloudSession::cancelPairing() {
    if (!pairing_)
        return;
    cancel(pairing_);
    setConnectionStatus(ConnectionStatus::disconnected);
    report(offline() ? QString(loginCancelledText) : QString());
}

void CloudSession::reportFailure(const std::string& description) {
    const QString reason = QString::fromStdString(description);
    report(offline() ? loginFailedPrefix + reason + loginFailedSuffix : linkFailedPrefix + reason);
}

QCoro::Task<> CloudSession::runPairing(Flow flow) {
    const CancellationToken cancel(flow);
    setConnectionStatus(ConnectionStatus::pairing);
    report(offline() ? QString(approveToSyncText) : QString());
    std::optional<std::string> failure;
    try {
        const BridgeAPIClient api = client();
        QCoro::Task<PairingStartResponse> starting = api.startPairing(cancel);
        const PairingStartResponse start = co_await std::move(starting);
        cancel.throwIfCancelled();
        const QUrl page(QString::fromStdString(start.browserUrl), QUrl::StrictMode);
        if (page.isValid() && !page.scheme().isEmpty())
            emit pairingPageReady(page);
        report(approveText);
        QCoro::Task<std::string> polling =
            pollForDeviceToken(api, start.code, pairingTimeToLive, cancel);
        const std::string token = co_await std::move(polling);
        cancel.throwIfCancelled();
        environment_.tokens->saveAuthToken(token, environment_.serverURL);
        report(pairedFetchingText);
        QCoro::Task<> connecting = connect(token, cancel);
        co_await std::move(connecting);
        cancel.throwIfCancelled();
        startHeartbeat();
    } catch (const FlowCancelled&) {
        co_return; // whoever cancelled it has said so
    } catch (const std::exception& error) {
        failure = error.what();
    }
    if (cancel.isCancelled())
        co_return;
    finished(pairing_, flow);
    if (failure) {
        setConnectionStatus(ConnectionStatus::disconnected);
        reportFailure(*failure);
    }
}

QCoro::Task<std::string> CloudSession::pollForDeviceToken(BridgeAPIClient api, std::string code,
                                                          std::chrono::seconds timeToLive,
                                                          CancellationToken cancel) {
    if (!cancel.canBeCancelled())
        cancel = lifetime();
    const std::shared_ptr<CloudScheduler> scheduler = environment_.scheduler;
    const auto deadline = scheduler->now() + timeToLive;
    for (;;) {
        if (scheduler->now() >= deadline)
            throw BridgeAPIError::pairingExpired();
        QCoro::Task<PairingStatusResponse> poll = api.pollPairingStatus(code, cancel);
        const PairingStatusResponse answer = co_await std::move(poll);
        cancel.throwIfCancelled();
        if (answer.status == "complete") {
            if (!answer.deviceToken)
                throw BridgeAPIError::missingDeviceToken();
            co_return *answer.deviceToken;
        }
        if (answer.status == "expired")
            throw BridgeAPIError::pairingExpired();
        if (answer.status == "unknown")
            throw BridgeAPIError::pairingUnknown();
        QCoro::Task<> pause = scheduler->sleep(pairingPollInterval, cancel);
        co_await std::move(pause);
        cancel.throwIfCancelled();
    }
}

// Connecting

void CloudSession::autoConnect() {
    cancel(autoConnect_);
    autoConnect_ = std::make_shared<CancellationSource>();
    runAutoConnect(autoConnect_);
}

void CloudSession::reportRetry(const std::string& description, int delaySeconds) {
    const QString delay = QString::number(delaySeconds) + retrySuffix;
    report(offline()
               ? unreachableRetryPrefix + delay
               : connectFailedPrefix + QString::fromStdString(description) + retryInfix + delay);
}

QCoro::Task<> CloudSession::runAutoConnect(Flow flow) {
    const CancellationToken cancel(flow);
    if (!storedToken()) {
        finished(autoConnect_, flow);
        setConnectionStatus(ConnectionStatus::disconnected);
        report(offline() ? QString(offlineText) : QString());
        co_return;
    }
    setConnectionStatus(ConnectionStatus::reconnecting);
    report(offline() ? QString(updatingText) : QString());
    int failures = 0;
    for (;;) {
        if (cancel.isCancelled())
            co_return;
        const std::optional<std::string> token = storedToken();
        if (!token) {
            finished(autoConnect_, flow);
            setConnectionStatus(ConnectionStatus::disconnected);
            report(offline() ? QString(offlineText) : QString());
            co_return;
        }
        std::optional<std::string> failure;
        bool refused = false;
        try {
            QCoro::Task<> connecting = connect(*token, cancel);
            co_await std::move(connecting);
        } catch (const FlowCancelled&) {
            co_return;
        } catch (const BridgeAPIError& error) {
            refused = error.isUnauthorized();
            failure = error.what();
        } catch (const std::exception& error) {
            failure = error.what();
        }
        if (cancel.isCancelled())
            co_return;
        if (!failure) {
            finished(autoConnect_, flow);
            co_return;
        }
        if (refused) {
            finished(autoConnect_, flow);
            environment_.tokens->clearAuthToken(environment_.serverURL);
            setConnectionStatus(ConnectionStatus::disconnected);
            report(offline() ? sessionExpiredOfflineText : sessionExpiredText);
            co_return;
        }
        const int delay = retryDelaySeconds(++failures);
        setConnectionStatus(ConnectionStatus::reconnecting);
        reportRetry(*failure, delay);
        QCoro::Task<> pause = environment_.scheduler->sleep(std::chrono::seconds(delay), cancel);
        co_await std::move(pause);
    }
}

QCoro::Task<> CloudSession::connect(std::string token, CancellationToken cancel) {
    if (!cancel.canBeCancelled())
        cancel = lifetime();
    QCoro::Task<> download = environment_.fetchShowAndHarness(token, cancel);
    co_await std::move(download);
    cancel.throwIfCancelled();
    setConnectionStatus(ConnectionStatus::connected);
    report({});
    emit connected();
    QCoro::Task<> refresh = refreshSessionInfo(token, cancel);
    co_await std::move(refresh);
    cancel.throwIfCancelled();
    startHeartbeat();
}

QCoro::Task<> CloudSession::refreshSessionInfo(std::string token, CancellationToken cancel) {
    if (!cancel.canBeCancelled())
        cancel = lifetime();
    std::optional<BridgeSessionInfo> info;
    try {
        QCoro::Task<BridgeSessionInfo> fetch = client().fetchSessionInfo(token, cancel);
        info = co_await std::move(fetch);
    } catch (const std::exception& error) {
        if (!cancel.isCancelled())
            qCDebug(lcCloud) << "session info not refreshed:" << error.what();
    }
    cancel.throwIfCancelled();
    if (info)
        setSessionInfo(std::move(info));
}

// Heartbeat and leaving

void CloudSession::startHeartbeat() {
    cancel(heartbeat_);
    heartbeat_ = std::make_shared<CancellationSource>();
    runHeartbeat(heartbeat_);
}

QCoro::Task<> CloudSession::runHeartbeat(Flow flow) {
    const CancellationToken cancel(flow);
    const std::shared_ptr<CloudScheduler> scheduler = environment_.scheduler;
    for (;;) {
        QCoro::Task<> beat = scheduler->sleep(heartbeatInterval, cancel);
        co_await std::move(beat);
        if (cancel.isCancelled())
            co_return;
        // Each beat is its own task, so a slow answer never delays the next one.
        if (const std::optional<std::string> token = storedToken())
            refreshSessionInfo(*token, lifetime());
    }
}

void CloudSession::notifyDisconnectSync(std::chrono::milliseconds timeout) {
    const std::optional<std::string> token = storedToken();
    if (!token || !environment_.leaving)
        return;
    environment_.leaving->notifyAndWait(environment_.serverURL, *token, timeout);
}

QCoro::Task<> CloudSession::sendDisconnect(std::string token) {
    try {
        QCoro::Task<> leaving = client().disconnect(token, lifetime());
        co_await std::move(leaving);
    } catch (const std::exception&) {
        // Best effort: the cloud also sees the heartbeat stop.
    }
}

void CloudSession::reauthenticate() {
    const std::optional<std::string> token = storedToken();
    cancel(pairing_);
    cancel(autoConnect_);
    cancel(heartbeat_);
    if (token)
        sendDisconnect(*token);
    environment_.tokens->clearAuthToken(environment_.serverURL);
    setConnectionStatus(ConnectionStatus::disconnected);
    setSessionInfo(std::nullopt);
    emit signedOut();
}

// Update notice

QCoro::Task<> CloudSession::refreshAppUpdateNotice() {
    if (AppUpdateNotice::sparkleFeedIsConfigured(environment_.updaterFeedURL))
        co_return;
    const CancellationToken cancel = lifetime();
    std::optional<BridgeAPIVersionResponse> versions;
    try {
        QCoro::Task<BridgeAPIVersionResponse> fetch = client().fetchAPIVersion(cancel);
        versions = co_await std::move(fetch);
    } catch (const std::exception&) {
        // A failed check changes nothing on screen.
    }
    if (cancel.isCancelled() || !versions)
        co_return;
    std::optional<QUrl> download =
        AppUpdateNotice::downloadURL(*versions, environment_.buildRevision, serverURL());
    if (download != appUpdateDownloadURL_) {
        appUpdateDownloadURL_ = std::move(download);
        emit appUpdateDownloadURLChanged();
    }
}

} // namespace kelvo
