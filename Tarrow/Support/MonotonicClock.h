#pragma once

#include <atomic>
#include <chrono>
#include <memory>

namespace kelvo {

/// Monotonic time source, injectable so that timing rules are testable.
class MonotonicClock {
public:
    using Duration = std::chrono::nanoseconds;
    virtual ~MonotonicClock() = default;
    virtual Duration now() const = 0;
};

class SteadyMonotonicClock final : public MonotonicClock {
public:
    Duration now() const override {
        return std::chrono::duration_cast<Duration>(
            std::chrono::steady_clock::now().time_since_epoch());
    }
};

/// The running system's clock, shared by whoever is not given another.
inline std::shared_ptr<const MonotonicClock> steadyClock() {
    static const auto clock = std::make_shared<const SteadyMonotonicClock>();
    return clock;
}

/// A clock that moves only when told to, by one thread; any thread may read it.
class ManualMonotonicClock final : public MonotonicClock {
public:
    Duration now() const override { return now_.load(); }
    void advance(Duration by) { now_ = now_.load() + by; }
    void set(Duration to) { now_ = to; }

private:
    std::atomic<Duration> now_{std::chrono::seconds(1000)};
};

} // namespace kelvo
