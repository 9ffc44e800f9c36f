#pragma once

#include "Audio/BandDecibelLevels.h"
#include "Audio/MicHop.h"
#include "Audio/SingleProducerRing.h"

#include <atomic>
#include <cstdint>
#include <span>
#include <vector>

namespace kelvo {

/// Hands the hops of one capture run from its audio thread to the main thread. Preallocated
/// for `heldSeconds` of hops, so the audio thread neither allocates nor locks; the engine
/// loop takes them each tick. A run that is stopped or replaced drops its ring, and with it
/// every hop it still held.
class HopRing {
public:
    static constexpr double heldSeconds = 2.0;

    HopRing(double sampleRate, std::size_t hopFrames);

    /// Audio thread: queues a copy of one hop. When the main thread has not taken hops for
    /// longer than the ring holds, the hop is dropped and counted.
    void push(const BandDecibelLevels& levels, std::span<const float> samples);
    /// Main thread: appends every queued hop to `out`, oldest first, and returns how many
    /// hops were dropped since the last call. After an overflow the queued hops are older than
    /// the ones dropped, so they are dropped too: nothing stale is handed on.
    std::size_t takeInto(std::vector<MicHop>& out);

    std::size_t capacity() const { return ring_.capacity(); }

private:
    SingleProducerRing<MicHop> ring_;
    // Hops the audio thread could not queue; read and reset by the main thread.
    std::atomic<std::uint64_t> overflowed_{0};
};

} // namespace kelvo
