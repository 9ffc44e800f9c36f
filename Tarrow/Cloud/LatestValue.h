#pragma once

#include <mutex>
#include <optional>
#include <utility>

namespace kelvo {

/// The newest of a stream of values handed to a worker that only needs the last one (a show
/// snapshot pushed faster than the disk takes it): values put while a write is queued replace
/// each other, so the queue never grows with the stream. Shared between the threads.
template <typename T> class LatestValue {
public:
    /// Stores `value`; true when no write is queued for it, so the caller queues one.
    bool put(T value) {
        std::lock_guard lock(mutex_);
        value_ = std::move(value);
        return !std::exchange(queued_, true);
    }
    /// For the queued write: the newest value, or nothing when an earlier write took it.
    std::optional<T> take() {
        std::lock_guard lock(mutex_);
        queued_ = false;
        return std::exchange(value_, std::nullopt);
    }

private:
    std::mutex mutex_;
    std::optional<T> value_;
    bool queued_ = false;
};

} // namespace kelvo
