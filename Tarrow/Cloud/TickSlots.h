#pragma once

#include "Cloud/Cancellation.h"

#include <QObject>
#include <QTimer>

#include <QCoro/QCoroTask>

#include <chrono>
#include <deque>
#include <functional>
#include <memory>

namespace kelvo {

/// Hands out the main thread to the cloud link's pieces of work one at a time, each right after
/// a tick of the lights: a piece then spends the time until the next tick instead of delaying
/// it. While the lights do not tick, pieces run from the event loop at once, in order; so they
/// do when the ticks stop for `stalledTicksWait` while pieces wait.
class TickSlots : public QObject {
public:
    static constexpr std::chrono::milliseconds stalledTicksWait{100};

    /// `ticking` says whether ticks will come to release the pieces.
    explicit TickSlots(std::function<bool()> ticking, QObject* parent = nullptr);

    /// Resumes the caller in its slot; throws FlowCancelled when `cancel` fires first.
    QCoro::Task<> next(CancellationToken cancel);
    /// Runs `piece` in its slot, unless `cancel` fires first.
    void post(std::function<void()> piece, CancellationToken cancel);
    /// Called by the owner right after each tick: the oldest waiting piece runs now.
    void tickFinished();
    std::size_t waiting() const;
    /// The longest piece run in a slot so far, for the benchmarks: as the clock on the wall saw
    /// it, and as the main thread's own processor time (what it costs without other load).
    std::chrono::nanoseconds longestPiece() const { return longestPiece_; }
    std::chrono::nanoseconds longestPieceProcessorTime() const { return longestPieceCpu_; }

private:
    QCoro::Task<> runPosted(std::function<void()> piece, CancellationToken cancel);
    void releaseOne();
    void scheduleIdleRelease();

    std::function<bool()> ticking_;
    std::deque<std::shared_ptr<OneShotEvent>> waiting_;
    QTimer idle_;
    std::chrono::nanoseconds longestPiece_{0};
    std::chrono::nanoseconds longestPieceCpu_{0};
};

} // namespace kelvo
