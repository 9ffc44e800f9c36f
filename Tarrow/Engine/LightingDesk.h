#pragma once

#include "DMX/DmxFrame.h"

#include <cstdint>
#include <vector>

namespace kelvo {

/// The manual lighting desk: while live it owns the first 24 channels of one universe.
struct LightingDeskState {
    static constexpr std::size_t channelCount = 24;
    static constexpr std::size_t universeSize = 512;

    bool live = false;
    std::int64_t universe = 1;
    std::vector<double> levels = std::vector<double>(channelCount, 0.0); ///< 0...1 per channel
    double grandMaster = 1.0;
    bool blackout = false;

    friend bool operator==(const LightingDeskState&, const LightingDeskState&) = default;
};

/// Engine buffers with the desk laid over them. The desk's universe becomes a full 512-byte
/// buffer; blackout zeroes only the desk's 24 channels, by design.
DmxFrame mergeLightingDesk(const DmxFrame& engineBuffers, const LightingDeskState& desk);

} // namespace kelvo
