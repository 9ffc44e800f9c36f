#include "Engine/LightingDesk.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

namespace {
double unit(double value) {
    return std::isnan(value) ? 0.0 : std::clamp(value, 0.0, 1.0);
}
} // namespace

DmxFrame mergeLightingDesk(const DmxFrame& engineBuffers,
                                     const LightingDeskState& desk) {
    if (!desk.live)
        return engineBuffers;
    std::vector<std::uint8_t> channels(LightingDeskState::universeSize, 0);
    if (const auto engine = engineBuffers.find(desk.universe); engine != engineBuffers.end()) {
        const std::size_t count = std::min(engine->second.size(), channels.size());
        std::copy_n(engine->second.begin(), count, channels.begin());
    }
    const double master = unit(desk.grandMaster);
    for (std::size_t i = 0; i < LightingDeskState::channelCount; ++i) {
        const double level = i < desk.levels.size() ? unit(desk.levels[i]) : 0.0;
        channels[i] = desk.blackout ? 0 : static_cast<std::uint8_t>(master * level * 255.0);
    }
    DmxFrame merged = engineBuffers;
    merged[desk.universe] = std::move(channels);
    return merged;
}

} // namespace kelvo
