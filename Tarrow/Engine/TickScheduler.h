#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>

namespace kelvo {

/// Fires a handler at a fixed rate on the main thread. Deadlines are kept on an absolute grid,
/// so millisecond timer rounding never accumulates into drift: 60 Hz stays 60.0 Hz on average.
/// After a stall longer than a few periods the grid restarts instead of firing a burst.
class TickScheduler : public QObject {
    Q_OBJECT
public:
    explicit TickScheduler(std::chrono::nanoseconds period, QObject* parent = nullptr);

    /// Fires now, then every period.
    void start(std::function<void()> handler);
    void stop();
    bool isActive() const { return active_; }

private:
    void fire();
    void scheduleNext();

    std::chrono::nanoseconds period_;
    std::function<void()> handler_;
    QTimer timer_;
    std::chrono::steady_clock::time_point nextDeadline_;
    bool active_ = false;
};

} // namespace kelvo
