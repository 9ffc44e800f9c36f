#pragma once

#include <vector>

namespace kelvo {

/// A fixture as read from the engine's step result: position and raw values.
struct FixtureSample {
    double x = 0, y = 0, red = 0, green = 0, blue = 0, dimmer = 0, strobe = 0;
    friend bool operator==(const FixtureSample&, const FixtureSample&) = default;
};

/// A lamp of the dashboard's lighting plot: position fitted to 0...1, values clamped to 0...1.
struct PlotLamp {
    double x = 0, y = 0, red = 0, green = 0, blue = 0, dimmer = 0, strobe = 0;
    friend bool operator==(const PlotLamp&, const PlotLamp&) = default;
};

struct LightingPlot {
    static constexpr int maximumLamps = 14;
    std::vector<PlotLamp> lamps;
    friend bool operator==(const LightingPlot&, const LightingPlot&) = default;
};

/// Fits raw samples into the unit square and clamps their values.
LightingPlot fitLightingPlot(const std::vector<FixtureSample>& samples);

} // namespace kelvo
