#include "Engine/LightingDesk.h"

#include "Support/ChangeNotification.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

namespace {
double unit(double value) {
    return std::isnan(value) ? 0.0 : std::clamp(value, 0.0, 1.0);
}
} // namespace

DmxFrame mergeLightingDesk(const DmxFrame& engineBuffers, const LightingDeskState& desk) {
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

namespace kelvo {

void LightingDesk::setState(const LightingDeskState& state) {
    setLive(state.live);
    setUniverse(state.universe);
    setLevels(state.levels);
    setGrandMaster(state.grandMaster);
    setBlackout(state.blackout);
}

void LightingDesk::setLive(bool live) {
    setAndNotify(state_.live, live, this, &LightingDesk::liveChanged);
}

void LightingDesk::setUniverse(std::int64_t universe) {
    setAndNotify(state_.universe, universe, this, &LightingDesk::universeChanged);
}

void LightingDesk::setLevels(std::vector<double> levels) {
    setAndNotify(state_.levels, std::move(levels), this, &LightingDesk::levelsChanged);
}

void LightingDesk::setLevel(int channel, double level) {
    if (channel < 0 || std::size_t(channel) >= LightingDeskState::channelCount)
        return;
    std::vector<double> levels = state_.levels;
    if (levels.size() <= std::size_t(channel))
        levels.resize(std::size_t(channel) + 1, 0.0);
    levels[std::size_t(channel)] = level;
    setLevels(std::move(levels));
}

void LightingDesk::setGrandMaster(double level) {
    setAndNotify(state_.grandMaster, level, this, &LightingDesk::grandMasterChanged);
}

void LightingDesk::setBlackout(bool blackout) {
    setAndNotify(state_.blackout, blackout, this, &LightingDesk::blackoutChanged);
}

} // namespace kelvo
