#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace kelvo {

/// A main-thread timer, behind an interface so that timing rules can be driven by hand in tests.
class Timer {
public:
    virtual ~Timer() = default;
    /// Starts (or restarts) firing `handler` after `interval`, repeatedly or once.
    virtual void start(std::chrono::milliseconds interval, bool repeating,
                       std::function<void()> handler) = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;
};

class TimerFactory {
public:
    virtual ~TimerFactory() = default;
    virtual std::unique_ptr<Timer> makeTimer() = 0;
};

/// QTimer-backed timers (Qt::PreciseTimer) on the calling thread's event loop.
class QtTimerFactory final : public TimerFactory {
public:
    std::unique_ptr<Timer> makeTimer() override;
};

} // namespace kelvo
