#include "Engine/TickScheduler.h"

namespace kelvo {

namespace {
constexpr int maximumLatePeriods = 3;
}

TickScheduler::TickScheduler(std::chrono::nanoseconds period, QObject* parent)
    : QObject(parent), period_(period) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, &TickScheduler::fire);
}

void TickScheduler::start(std::function<void()> handler) {
    handler_ = std::move(handler);
    active_ = true;
    nextDeadline_ = std::chrono::steady_clock::now();
    timer_.start(0);
}

void TickScheduler::stop() {
    active_ = false;
    timer_.stop();
}

void TickScheduler::fire() {
    if (!active_)
        return;
    nextDeadline_ += period_;
    const auto now = std::chrono::steady_clock::now();
    if (now - nextDeadline_ > maximumLatePeriods * period_)
        nextDeadline_ = now + period_;
    if (handler_)
        handler_();
    if (active_)
        scheduleNext();
}

void TickScheduler::scheduleNext() {
    const auto remaining = nextDeadline_ - std::chrono::steady_clock::now();
    // Round down: a timer never fires early, so waking up to a millisecond sooner keeps the
    // average on the grid.
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(remaining);
    timer_.start(std::max<std::chrono::milliseconds>(wait, std::chrono::milliseconds(0)));
}

} // namespace kelvo
