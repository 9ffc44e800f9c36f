#include "Audio/BandDecibelLevels.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

namespace {
double sanitised(double level) {
    if (!std::isfinite(level))
        return BandDecibelLevels::silenceDecibels;
    return std::max(level, BandDecibelLevels::silenceDecibels);
}
} // namespace

double BandDecibelLevels::lowDominanceFromBandDecibels(double low, double mid, double high) {
    const double l = sanitised(low), m = sanitised(mid), h = sanitised(high);
    if (l <= silenceDecibels && m <= silenceDecibels && h <= silenceDecibels)
        return 0.0;
    const double peak = std::max({l, m, h});
    const auto weight = [peak](double level) { return std::pow(10.0, (level - peak) / 20.0); };
    const double lowWeight = weight(l);
    return lowWeight / (lowWeight + weight(m) + weight(h));
}

} // namespace kelvo
