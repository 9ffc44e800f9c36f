#include "Cloud/TlsWarmUp.h"

#include <QSslConfiguration>

#include <atomic>

namespace kelvo {

namespace {
std::atomic<bool> loadedInProcess{false};
} // namespace

TlsWarmUp::TlsWarmUp(std::function<void()> loaded, QObject* parent)
    : QObject(parent), loaded_(std::move(loaded)), ready_(loadedInProcess.load()) {
    if (ready_)
        return;
    // The queue is joined before the QObject goes, which drops a call still queued for it.
    worker_.emplace("kelvo.cloud.tls");
    worker_->async([this] {
        // What QNetworkAccessManager and QWebSocket read first for a secure address.
        QSslConfiguration::defaultConfiguration();
        loadedInProcess = true;
        QMetaObject::invokeMethod(this, &TlsWarmUp::finish, Qt::QueuedConnection);
    });
}

QCoro::Task<> TlsWarmUp::ready() {
    if (ready_)
        co_return;
    auto loaded = std::make_shared<OneShotEvent>();
    waiting_.push_back(loaded);
    co_await *loaded;
}

void TlsWarmUp::finish() {
    ready_ = true;
    for (const std::shared_ptr<OneShotEvent>& waiting : std::exchange(waiting_, {}))
        waiting->fire();
    if (loaded_)
        loaded_();
}

} // namespace kelvo
