#pragma once

#include "Support/Timer.h"

#include <QObject>

#include <chrono>
#include <memory>

namespace kelvo {

/// Keeps the audio capture running for as long as the engine loop wants it: asks for an
/// attempt at once and again every 2 s, so a venue machine that boots before its audio server,
/// or loses its interface for a while, starts listening again by itself. The loop never waits
/// for it: without capture it ticks on silent hops.
class CaptureKeeper : public QObject {
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds retryInterval{2000};

    explicit CaptureKeeper(TimerFactory& timers, QObject* parent = nullptr);

    /// From now on capture is wanted: `attemptDue` now, then every `retryInterval`.
    void keep();
    /// Capture is no longer wanted; no more attempts.
    void release();
    bool isKept() const { return kept_; }

signals:
    /// Time to start capture, unless it runs or its start is under way.
    void attemptDue();

private:
    std::unique_ptr<Timer> retry_;
    bool kept_ = false;
};

} // namespace kelvo
