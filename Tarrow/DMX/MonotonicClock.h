#pragma once

#include <chrono>

namespace kelvo {

/// Source of monotonic time, so deadline rules can be tested with a clock the test moves.
class MonotonicClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    virtual ~MonotonicClock() = default;
    virtual TimePoint now() const = 0;
};

class SteadyMonotonicClock final : public MonotonicClock {
public:
    TimePoint now() const override { return std::chrono::steady_clock::now(); }
};

} // namespace kelvo
