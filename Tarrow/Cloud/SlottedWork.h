#pragma once

#include "Cloud/BackgroundWork.h"
#include "Cloud/Cancellation.h"

#include <QCoro/QCoroTask>

#include <functional>

namespace kelvo {

class TickSlots;

/// Keeps the cloud link's work out of the lights' way: decoding and cache reads run on a worker,
/// each piece that must use the engine waits for its own slot right after a tick. Without a
/// `context` to come back to the worker's part runs at once; without `tickSlots` the pieces do.
class SlottedWork {
public:
    SlottedWork(TickSlots* tickSlots, QObject* context) : slots_(tickSlots), context_(context) {}
    SlottedWork(const SlottedWork&) = delete;
    SlottedWork& operator=(const SlottedWork&) = delete;

    template <typename T> QCoro::Task<T> offMainThread(std::function<T()> work) {
        if (!context_)
            co_return work();
        QCoro::Task<T> running = work_.run<T>(std::move(work), context_);
        co_return co_await std::move(running);
    }
    /// Resumes the caller in its slot; throws FlowCancelled when `cancel` fires first.
    QCoro::Task<> slot(CancellationToken cancel);

private:
    TickSlots* slots_;
    QObject* context_;
    BackgroundWork work_;
};

} // namespace kelvo
