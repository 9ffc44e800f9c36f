#include "Audio/MicFeatures.h"
#include "Audio/BandDecibelLevels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace kelvo {
namespace {

using testing::DoubleEq;
using testing::ElementsAre;

TEST(LowDominance, FollowsTheLinearAmplitudeShare) {
    EXPECT_DOUBLE_EQ(BandDecibelLevels::lowDominanceFromBandDecibels(-20, -20, -20), 1.0 / 3.0);
    EXPECT_DOUBLE_EQ(BandDecibelLevels::lowDominanceFromBandDecibels(-20, -120, -120),
                     1.0 / (1.0 + 2.0 * 1e-5));
    // A louder mid band: low weight 10^(-20/20) = 0.1 relative to the peak.
    EXPECT_DOUBLE_EQ(BandDecibelLevels::lowDominanceFromBandDecibels(-40, -20, -120),
                     0.1 / (0.1 + 1.0 + 1e-5));
}

TEST(LowDominance, SilenceAndGarbageCountAsMinus120) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(BandDecibelLevels::lowDominanceFromBandDecibels(-120, -120, -120), 0.0);
    EXPECT_EQ(BandDecibelLevels::lowDominanceFromBandDecibels(-300, -500, nan), 0.0);
    EXPECT_DOUBLE_EQ(BandDecibelLevels::lowDominanceFromBandDecibels(nan, -30, -30),
                     BandDecibelLevels::lowDominanceFromBandDecibels(-120, -30, -30));
    EXPECT_EQ(BandDecibelLevels::lowDominanceFromBandDecibels(inf, -30, -30),
              BandDecibelLevels::lowDominanceFromBandDecibels(-120, -30, -30));
}

TEST(MicBandTracePush, RisesInstantlyFallsByAThirdOfTheGapClampsAndKeepsTheNewest160) {
    std::vector<double> trace;
    MicBandTrace::push(trace, 1.0);
    MicBandTrace::push(trace, 0.0);
    MicBandTrace::push(trace, 0.9);
    EXPECT_THAT(trace, ElementsAre(DoubleEq(1.0), DoubleEq(0.65), DoubleEq(0.9)));
    std::vector<double> clamped;
    MicBandTrace::push(clamped, 7.0);
    MicBandTrace::push(clamped, -3.0);
    EXPECT_THAT(clamped, ElementsAre(DoubleEq(1.0), DoubleEq(0.65)));

    trace.clear();
    for (int i = 0; i < 200; ++i)
        MicBandTrace::push(trace, i / 199.0);
    ASSERT_EQ(trace.size(), 160u);
    EXPECT_DOUBLE_EQ(trace.front(), 40 / 199.0);
    EXPECT_DOUBLE_EQ(trace.back(), 1.0);
    // An over-long list (restored from elsewhere) is cut back on the next push.
    std::vector<double> longTrace(300, 0.5);
    MicBandTrace::push(longTrace, 0.5);
    EXPECT_EQ(longTrace.size(), 160u);
}

} // namespace
} // namespace kelvo
