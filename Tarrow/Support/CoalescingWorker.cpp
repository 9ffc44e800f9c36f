#include "Support/CoalescingWorker.h"

namespace kelvo {

void CoalescingWorker::submit(std::function<void()> job) {
    std::lock_guard lock(mutex_);
    pending_ = std::move(job);
    if (scheduled_)
        return;
    scheduled_ = true;
    queue_.async([this] { runPending(); });
}

void CoalescingWorker::runPending() {
    std::function<void()> job;
    {
        std::lock_guard lock(mutex_);
        job = std::move(pending_);
        pending_ = nullptr;
        scheduled_ = false;
    }
    if (job)
        job();
}

void CoalescingWorker::flush() {
    // The queue runs in order, so a run scheduled before this has finished when it returns.
    queue_.sync([] {});
}

} // namespace kelvo
