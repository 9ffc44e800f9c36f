#pragma once

#include "Cloud/Cancellation.h"

#include <QCoro/QCoroTask>

#include <chrono>

namespace kelvo {

/// Time as the cloud flows see it: a monotonic clock and a sleep that ends early on
/// cancellation. Injected so retry schedules and deadlines are testable without waiting.
class CloudScheduler {
public:
    using Clock = std::chrono::steady_clock;
    virtual ~CloudScheduler() = default;
    virtual Clock::time_point now() const = 0;
    /// Returns after `duration` or as soon as `cancel` fires (the caller checks which).
    virtual QCoro::Task<> sleep(std::chrono::milliseconds duration, CancellationToken cancel) = 0;
};

/// Real time on the calling thread's event loop.
class QtCloudScheduler final : public CloudScheduler {
public:
    Clock::time_point now() const override { return Clock::now(); }
    QCoro::Task<> sleep(std::chrono::milliseconds duration, CancellationToken cancel) override;
};

} // namespace kelvo
