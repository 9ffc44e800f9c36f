// The generated test music is the ground truth of the engine tests and the beat comparison.

#include "testmusic/SyntheticDanceTrack.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

double energy(const std::vector<float>& s, double from, double to) {
    double sum = 0;
    for (auto i = std::size_t(from * 48000); i < std::size_t(to * 48000) && i < s.size(); ++i)
        sum += double(s[i]) * s[i];
    return sum;
}

TEST(HarnessTestMusic, KicksSitWhereTheTruthSaysAndABreakOnTheGridTakesTheBassOut) {
    const test::SyntheticDanceTrack track({.bpm = 120, .seconds = 30, .breaks = {{10.1, 8.1}}});
    const auto& truth = track.truth();
    EXPECT_EQ(truth.drops, std::vector<double>{18.25}); // snapped to the beats 10.25 … 18.25
    for (double kick : truth.kicks) {
        EXPECT_TRUE(kick < 10.25 || kick >= 18.25) << kick;
        // The 50 ms after a kick are far louder than the 50 ms before it.
        if (kick + 0.5 < 30) {
            EXPECT_GT(energy(track.samples(), kick, kick + 0.05),
                      4 * energy(track.samples(), kick - 0.05, kick))
                << kick;
        }
    }
    EXPECT_LT(energy(track.samples(), 12, 16), 0.05 * energy(track.samples(), 4, 8));
}

} // namespace
} // namespace kelvo
