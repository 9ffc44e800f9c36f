#pragma once

#include "Audio/BandDecibelLevels.h"

#include <vector>

namespace kelvo {

/// One 512-frame hop of live input.
struct MicHop {
    BandDecibelLevels levels;
    double dt = 0.0; ///< hop length in seconds: 512 / sampleRate
    std::vector<float> samples;
    double sampleRate = 0.0;

    friend bool operator==(const MicHop&, const MicHop&) = default;
};

} // namespace kelvo
