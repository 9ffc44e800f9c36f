#include "Cloud/SlottedWork.h"

#include "Cloud/TickSlots.h"

namespace kelvo {

// Every task is made in its own statement before it is awaited: GCC 12 destroys argument
// temporaries inside a co_await expression twice when the coroutine suspends.
QCoro::Task<> SlottedWork::slot(CancellationToken cancel) {
    if (slots_) {
        QCoro::Task<> next = slots_->next(cancel);
        co_await std::move(next);
    }
    cancel.throwIfCancelled();
}

} // namespace kelvo
