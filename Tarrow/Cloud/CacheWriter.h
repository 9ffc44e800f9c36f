#pragma once

#include "Cloud/Cancellation.h"
#include "Support/SerialQueue.h"

#include <QObject>
#include <QPointer>

#include <QCoro/QCoroTask>

#include <functional>
#include <memory>

namespace kelvo {

/// Cache files written away from the main thread: each write is synced to disk, which takes
/// tens of milliseconds the lights cannot spare. Writes run one at a time in submission order;
/// those still queued when the writer goes away are finished first, so nothing is lost at quit.
class CacheWriter {
public:
    CacheWriter() : queue_("kelvo.cloud.cache-writes") {}

    /// Runs `write` on the writer's thread, then `done` on `context`'s thread (not at all when
    /// `context` is gone by then). A failure is logged.
    void write(std::function<void()> write, QObject* context = nullptr,
               std::function<void()> done = {});
    /// Awaits `write`, rethrowing its failure; call from the main thread.
    QCoro::Task<> written(std::function<void()> write, QObject* context);
    /// Waits until every write submitted so far has finished.
    void flush() {
        queue_.sync([] {});
    }

private:
    SerialQueue queue_;
};

} // namespace kelvo
