#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <new>
#include <vector>

namespace kelvo {

/// A fixed ring of slots handed from one producer thread to one consumer thread without locks
/// or allocation. Slots are built once and reused in place, so what a slot owns (a hop's
/// samples) is allocated with the ring, never on the way.
///
/// Memory orders. Each index is stored by one side only, which reads it back relaxed.
/// - `head_`: the producer fills a slot, then stores `head_` with release; the consumer loads
///   `head_` with acquire, so every write to the slots below it is visible before it reads them.
/// - `tail_`: the consumer reads a slot, then stores `tail_` with release; the producer loads
///   `tail_` with acquire before it reuses a slot, so it never writes one still being read.
template <typename T> class SingleProducerRing {
public:
    /// `capacity` (at least 1) is rounded up to a power of two; every slot starts as `prototype`.
    explicit SingleProducerRing(std::size_t capacity, const T& prototype = T{})
        : slots_(std::bit_ceil(capacity < 1 ? std::size_t{1} : capacity), prototype),
          mask_(slots_.size() - 1) {}

    std::size_t capacity() const { return slots_.size(); }

    /// Producer: the slot to fill next, or null when the consumer has not made room.
    T* slotToFill() {
        const std::size_t head = head_.load(std::memory_order_relaxed);
        if (head - tail_.load(std::memory_order_acquire) == slots_.size())
            return nullptr;
        return &slots_[head & mask_];
    }
    /// Producer: hands the slot from `slotToFill` to the consumer.
    void publish() {
        head_.store(head_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }

    /// Consumer: the oldest published slot, or null when there is none.
    T* oldest() {
        const std::size_t tail = tail_.load(std::memory_order_relaxed);
        if (tail == head_.load(std::memory_order_acquire))
            return nullptr;
        return &slots_[tail & mask_];
    }
    /// Consumer: gives the slot from `oldest` back to the producer.
    void release() {
        tail_.store(tail_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }

private:
    std::vector<T> slots_;
    const std::size_t mask_;
    // Apart, so the two threads do not share a cache line for their indices.
    alignas(64) std::atomic<std::size_t> head_{0};
    alignas(64) std::atomic<std::size_t> tail_{0};
};

} // namespace kelvo
