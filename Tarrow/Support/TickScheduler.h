#pragma once

#include <QObject>

#include <chrono>
#include <functional>
#include <memory>

class QSocketNotifier;

namespace kelvo {

/// Fires a handler at a fixed rate on the main thread. Deadlines are kept on an absolute grid
/// of the monotonic clock and armed to the nanosecond (a Linux timerfd watched by the event
/// loop), so each tick wakes on time rather than on a whole millisecond, and 60 Hz stays
/// 60.0 Hz. After a stall longer than a few periods the grid restarts instead of firing a burst.
/// The thread that starts it asks for short scheduler slices, so that on a busy machine a tick
/// wakes when due rather than after another program's slice.
class TickScheduler : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::microseconds tickThreadSlice{100};

    explicit TickScheduler(std::chrono::nanoseconds period, QObject* parent = nullptr);
    ~TickScheduler() override;

    /// Fires now, then every period.
    void start(std::function<void()> handler);
    void stop();
    bool isActive() const { return active_; }

private:
    static void askForPromptWakeUps();
    void fire();
    void arm(std::chrono::steady_clock::time_point deadline);

    std::chrono::nanoseconds period_;
    std::function<void()> handler_;
    int timerFd_ = -1;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::chrono::steady_clock::time_point nextDeadline_;
    bool active_ = false;
};

} // namespace kelvo
