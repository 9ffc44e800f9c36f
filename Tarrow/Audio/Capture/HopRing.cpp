#include "Audio/Capture/HopRing.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

namespace {

MicHop slotPrototype(double sampleRate, std::size_t hopFrames) {
    MicHop hop;
    hop.dt = static_cast<double>(hopFrames) / sampleRate;
    hop.samples.assign(hopFrames, 0.0f);
    hop.sampleRate = sampleRate;
    return hop;
}

} // namespace

HopRing::HopRing(double sampleRate, std::size_t hopFrames)
    : ring_(static_cast<std::size_t>(std::ceil(heldSeconds * sampleRate / double(hopFrames))),
            slotPrototype(sampleRate, hopFrames)) {}

void HopRing::push(const BandDecibelLevels& levels, std::span<const float> samples) {
    MicHop* slot = ring_.slotToFill();
    if (!slot) {
        overflowed_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    slot->levels = levels;
    // The slot's samples were sized with the ring: a copy, never a reallocation.
    std::copy_n(samples.begin(), std::min(samples.size(), slot->samples.size()),
                slot->samples.begin());
    ring_.publish();
}

std::size_t HopRing::takeInto(std::vector<MicHop>& out) {
    const std::size_t before = out.size();
    while (MicHop* hop = ring_.oldest()) {
        out.push_back(*hop);
        ring_.release();
    }
    // An overflow means the ring was full at some point since the last take: most hops just
    // taken are older than the ones lost. All of them go rather than feed stale audio; after a
    // stall that long, the few fresh ones among them are no loss.
    const std::uint64_t overflowed = overflowed_.exchange(0, std::memory_order_relaxed);
    if (overflowed == 0)
        return 0;
    const std::size_t stale = out.size() - before;
    out.resize(before);
    return static_cast<std::size_t>(overflowed) + stale;
}

} // namespace kelvo
