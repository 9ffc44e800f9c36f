#pragma once

#include <QUrl>

#include <chrono>
#include <memory>
#include <string>

class QThread;
class QObject;

namespace kelvo {

/// Tells the cloud a bridge is leaving and waits for the answer, at most a given time.
class DisconnectNotifying {
public:
    virtual ~DisconnectNotifying() = default;
    /// Blocks the caller until the cloud answered (or failed) or `timeout` passed; the request
    /// may still complete afterwards.
    virtual void notifyAndWait(const QUrl& server, const std::string& deviceToken,
                               std::chrono::milliseconds timeout) = 0;
};

/// Sends the request from a thread of its own ("kelvo.cloud.leave"), so the caller's blocked
/// event loop is not needed for it to progress.
class ThreadedDisconnectNotifier final : public DisconnectNotifying {
public:
    ThreadedDisconnectNotifier();
    ~ThreadedDisconnectNotifier() override;

    void notifyAndWait(const QUrl& server, const std::string& deviceToken,
                       std::chrono::milliseconds timeout) override;

private:
    std::unique_ptr<QThread> thread_;
    QObject* context_; // lives in the thread, deleted when it finishes
};

} // namespace kelvo
