#pragma once

#include "Cloud/Cancellation.h"
#include "Support/SerialQueue.h"

#include <QObject>
#include <QPointer>

#include <QCoro/QCoroTask>

#include <exception>
#include <functional>
#include <memory>
#include <optional>

namespace kelvo {

/// The cloud link's decoding and cache reads, one at a time on a worker thread, so the main
/// thread only receives finished values. Separate from the cache writer: a read must not wait
/// behind a synced write.
class BackgroundWork {
public:
    BackgroundWork() : queue_("kelvo.cloud.decode") {}

    /// Runs `work` on the worker and resumes the caller on `context`'s thread with its value,
    /// or its exception.
    template <typename T> QCoro::Task<T> run(std::function<T()> work, QObject* context) {
        struct Outcome {
            OneShotEvent done;
            std::optional<T> value;
            std::exception_ptr failure;
        };
        auto outcome = std::make_shared<Outcome>();
        QPointer<QObject> target = context;
        queue_.async([work = std::move(work), target, outcome] {
            try {
                outcome->value.emplace(work());
            } catch (...) {
                outcome->failure = std::current_exception();
            }
            if (target)
                QMetaObject::invokeMethod(
                    target, [outcome] { outcome->done.fire(); }, Qt::QueuedConnection);
        });
        co_await outcome->done;
        if (outcome->failure)
            std::rethrow_exception(outcome->failure);
        co_return std::move(*outcome->value);
    }

private:
    SerialQueue queue_;
};

} // namespace kelvo
