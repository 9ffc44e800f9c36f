#include "Support/TickScheduler.h"

#include "Support/Logging.h"
#include "Support/ShortSchedulerSlice.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

namespace kelvo {

namespace {
constexpr int maximumLatePeriods = 3;
}

void TickScheduler::askForPromptWakeUps() {
    static thread_local bool asked = false;
    if (std::exchange(asked, true))
        return;
    switch (requestShortSchedulerSlice(tickThreadSlice)) {
    case SchedulerSliceResult::granted:
        break;
    case SchedulerSliceResult::notTimeShared:
        qCInfo(lcEngine) << "Tick thread: left under its own scheduling policy";
        break;
    case SchedulerSliceResult::refused:
        qCInfo(lcEngine) << "Tick thread: short scheduler slices refused; ticks may wake late "
                            "on a busy machine";
        break;
    }
}

TickScheduler::TickScheduler(std::chrono::nanoseconds period, QObject* parent)
    : QObject(parent), period_(period) {
    // steady_clock is CLOCK_MONOTONIC, so its time points arm the timer directly.
    timerFd_ = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (timerFd_ < 0)
        throw std::runtime_error(std::string("tick timer: ") + std::strerror(errno));
    notifier_ = std::make_unique<QSocketNotifier>(timerFd_, QSocketNotifier::Read);
    notifier_->setEnabled(false);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &TickScheduler::fire);
}

TickScheduler::~TickScheduler() {
    notifier_.reset();
    ::close(timerFd_);
}

void TickScheduler::start(std::function<void()> handler) {
    askForPromptWakeUps();
    handler_ = std::move(handler);
    active_ = true;
    nextDeadline_ = std::chrono::steady_clock::now();
    notifier_->setEnabled(true);
    arm(nextDeadline_); // already due: fires at once
}

void TickScheduler::stop() {
    active_ = false;
    notifier_->setEnabled(false);
    const itimerspec disarmed{};
    ::timerfd_settime(timerFd_, 0, &disarmed, nullptr);
}

void TickScheduler::arm(std::chrono::steady_clock::time_point deadline) {
    const auto since = deadline.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
    itimerspec when{};
    when.it_value.tv_sec = seconds.count();
    when.it_value.tv_nsec = std::chrono::nanoseconds(since - seconds).count();
    if (when.it_value.tv_sec == 0 && when.it_value.tv_nsec == 0)
        when.it_value.tv_nsec = 1; // zero would disarm
    ::timerfd_settime(timerFd_, TFD_TIMER_ABSTIME, &when, nullptr);
}

void TickScheduler::fire() {
    std::uint64_t expirations = 0;
    if (::read(timerFd_, &expirations, sizeof expirations) < 0 || !active_)
        return;
    nextDeadline_ += period_;
    const auto now = std::chrono::steady_clock::now();
    if (now - nextDeadline_ > maximumLatePeriods * period_)
        nextDeadline_ = now + period_;
    // A copy: the handler may restart the scheduler with another one.
    if (const std::function<void()> handler = handler_)
        handler();
    if (active_)
        arm(nextDeadline_);
}

} // namespace kelvo
