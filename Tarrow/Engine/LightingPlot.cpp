#include "Engine/LightingPlot.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

namespace {

double unit(double value) {
    return std::isnan(value) ? 0.0 : std::clamp(value, 0.0, 1.0);
}

// Below half a unit of spread the fixtures are treated as one spot: centre them.
constexpr double minimumSpan = 0.5;

double fit(double value, double low, double high) {
    return high - low > minimumSpan ? (value - low) / (high - low) : 0.5;
}

} // namespace

LightingPlot fitLightingPlot(const std::vector<FixtureSample>& samples) {
    LightingPlot plot;
    if (samples.empty())
        return plot;
    const auto [minX, maxX] = std::minmax_element(samples.begin(), samples.end(),
                                                  [](auto& a, auto& b) { return a.x < b.x; });
    const auto [minY, maxY] = std::minmax_element(samples.begin(), samples.end(),
                                                  [](auto& a, auto& b) { return a.y < b.y; });
    plot.lamps.reserve(samples.size());
    for (const FixtureSample& s : samples) {
        plot.lamps.push_back({fit(s.x, minX->x, maxX->x), fit(s.y, minY->y, maxY->y), unit(s.red),
                              unit(s.green), unit(s.blue), unit(s.dimmer),
                              unit(std::max(s.strobe, 0.0))});
    }
    return plot;
}

} // namespace kelvo
