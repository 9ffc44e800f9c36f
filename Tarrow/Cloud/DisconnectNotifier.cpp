#include "Cloud/DisconnectNotifier.h"

#include "Cloud/BridgeAPIClient.h"
#include "Cloud/QtURLSession.h"

#include <QSemaphore>
#include <QThread>

namespace kelvo {

namespace {

QCoro::Task<> sendDisconnect(QUrl server, std::string deviceToken,
                             std::shared_ptr<QSemaphore> done) {
    try {
        QCoro::Task<> leaving =
            BridgeAPIClient(server, std::make_shared<QtURLSession>()).disconnect(deviceToken);
        co_await std::move(leaving);
    } catch (const std::exception&) {
        // Leaving is best effort: the cloud also sees the heartbeat stop.
    }
    done->release();
}

} // namespace

ThreadedDisconnectNotifier::ThreadedDisconnectNotifier()
    : thread_(std::make_unique<QThread>()), context_(new QObject) {
    thread_->setObjectName(QStringLiteral("kelvo.cloud.leave"));
    context_->moveToThread(thread_.get());
    QObject::connect(thread_.get(), &QThread::finished, context_, &QObject::deleteLater);
    thread_->start();
}

ThreadedDisconnectNotifier::~ThreadedDisconnectNotifier() {
    thread_->quit();
    thread_->wait();
}

void ThreadedDisconnectNotifier::notifyAndWait(const QUrl& server, const std::string& deviceToken,
                                               std::chrono::milliseconds timeout) {
    auto done = std::make_shared<QSemaphore>(0);
    QMetaObject::invokeMethod(
        context_, [server, deviceToken, done] { sendDisconnect(server, deviceToken, done); });
    done->tryAcquire(1, static_cast<int>(timeout.count()));
}

} // namespace kelvo
