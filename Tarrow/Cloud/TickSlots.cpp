#include "Cloud/TickSlots.h"

#include <algorithm>

#include <time.h>

namespace kelvo {

namespace {
std::chrono::nanoseconds threadProcessorTime() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}
} // namespace

TickSlots::TickSlots(std::function<bool()> ticking, QObject* parent)
    : QObject(parent), ticking_(std::move(ticking)) {
    // Also the way out when the ticks stop while pieces wait (the loop stopped, signed out).
    idle_.setSingleShot(true);
    connect(&idle_, &QTimer::timeout, this, [this] {
        releaseOne();
        scheduleIdleRelease();
    });
}

QCoro::Task<> TickSlots::next(CancellationToken cancel) {
    cancel.throwIfCancelled();
    auto slot = std::make_shared<OneShotEvent>();
    waiting_.push_back(slot);
    const auto subscription = cancel.onCancel([slot] { slot->fire(); });
    scheduleIdleRelease();
    co_await *slot;
    cancel.throwIfCancelled();
}

void TickSlots::post(std::function<void()> piece, CancellationToken cancel) {
    runPosted(std::move(piece), std::move(cancel));
}

QCoro::Task<> TickSlots::runPosted(std::function<void()> piece, CancellationToken cancel) {
    try {
        QCoro::Task<> slot = next(cancel);
        co_await std::move(slot);
    } catch (const FlowCancelled&) {
        co_return;
    }
    piece();
}

void TickSlots::tickFinished() {
    releaseOne();
    scheduleIdleRelease();
}

std::size_t TickSlots::waiting() const {
    return std::size_t(std::count_if(waiting_.begin(), waiting_.end(),
                                     [](const auto& slot) { return !slot->hasFired(); }));
}

void TickSlots::releaseOne() {
    while (!waiting_.empty()) {
        const std::shared_ptr<OneShotEvent> slot = std::move(waiting_.front());
        waiting_.pop_front();
        if (!slot->hasFired()) {
            const auto start = std::chrono::steady_clock::now();
            const auto startCpu = threadProcessorTime();
            slot->fire(); // the piece runs until its next wait
            longestPieceCpu_ = std::max(longestPieceCpu_, threadProcessorTime() - startCpu);
            longestPiece_ = std::max<std::chrono::nanoseconds>(
                longestPiece_, std::chrono::steady_clock::now() - start);
            return;
        }
    }
}

void TickSlots::scheduleIdleRelease() {
    if (waiting() == 0) {
        idle_.stop();
        return;
    }
    // While ticks come each one restarts the wait, so it only ends when they have stopped.
    idle_.start(ticking_() ? stalledTicksWait : std::chrono::milliseconds(0));
}

} // namespace kelvo
