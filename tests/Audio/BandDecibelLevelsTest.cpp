#include "Audio/BandDecibelLevels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace kelvo {
namespace {

TEST(LowDominance, IsTheLowBandsLinearShareWithSilenceAndGarbageAsMinus120) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    struct Case {
        double low, mid, high, dominance;
    };
    const Case cases[] = {
        {-20, -20, -20, 1.0 / 3.0},
        {-20, -120, -120, 1.0 / (1.0 + 2.0 * 1e-5)},
        {-40, -20, -120, 0.1 / (0.1 + 1.0 + 1e-5)}, // low is 10^(-20/20) of the peak
        {-300, -500, nan, 0.0},
        {nan, -30, -30, BandDecibelLevels::lowDominanceFromBandDecibels(-120, -30, -30)},
        {inf, -30, -30, BandDecibelLevels::lowDominanceFromBandDecibels(-120, -30, -30)},
    };
    for (const Case& c : cases)
        EXPECT_DOUBLE_EQ(BandDecibelLevels::lowDominanceFromBandDecibels(c.low, c.mid, c.high),
                         c.dominance)
            << c.low << " " << c.mid << " " << c.high;
}

} // namespace
} // namespace kelvo
