#include "Audio/MicFeatures.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

void MicBandTrace::push(std::vector<double>& trace, double level) {
    const double clamped = std::isnan(level) ? 0.0 : std::clamp(level, 0.0, 1.0);
    const double previous = trace.empty() ? clamped : trace.back();
    const bool wasFull = trace.size() >= capacity;
    trace.push_back(clamped >= previous ? clamped : previous + (clamped - previous) * fallFraction);
    if (wasFull)
        trace.erase(trace.begin(), trace.end() - capacity);
}

} // namespace kelvo
