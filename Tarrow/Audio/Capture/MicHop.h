#pragma once

#include "Audio/BandDecibelLevels.h"

#include <vector>

namespace kelvo {

/// One hop of live input: its band levels, its length in seconds (512 / sample rate), its 512
/// mono samples and the sample rate.
struct MicHop {
    BandDecibelLevels levels;
    double dt = 0.0;
    std::vector<float> samples;
    double sampleRate = 0.0;

    friend bool operator==(const MicHop&, const MicHop&) = default;
};

} // namespace kelvo
