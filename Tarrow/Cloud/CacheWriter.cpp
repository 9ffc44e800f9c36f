#include "Cloud/CacheWriter.h"

#include <QLoggingCategory>

namespace kelvo {

namespace {
Q_LOGGING_CATEGORY(lcCacheWriter, "kelvo.cloud.cache")
} // namespace

void CacheWriter::write(std::function<void()> write, QObject* context, std::function<void()> done) {
    QPointer<QObject> target = context;
    queue_.async([write = std::move(write), target, done = std::move(done)] {
        try {
            write();
        } catch (const std::exception& error) {
            qCWarning(lcCacheWriter) << "cache file not written:" << error.what();
        }
        if (target && done)
            QMetaObject::invokeMethod(target, done, Qt::QueuedConnection);
    });
}

QCoro::Task<> CacheWriter::written(std::function<void()> write, QObject* context) {
    auto finished = std::make_shared<OneShotEvent>();
    auto failure = std::make_shared<std::exception_ptr>();
    QPointer<QObject> target = context;
    queue_.async([write = std::move(write), target, finished, failure] {
        try {
            write();
        } catch (...) {
            *failure = std::current_exception();
        }
        if (target)
            QMetaObject::invokeMethod(
                target, [finished] { finished->fire(); }, Qt::QueuedConnection);
    });
    co_await *finished;
    if (*failure)
        std::rethrow_exception(*failure);
}

} // namespace kelvo
