// The generated test music is the ground truth of the harness tests: check that it says what it
// claims (kicks where the truth puts them, breaks on the grid, silence of the bass in a break).

#include "support/SyntheticDanceTrack.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace kelvo {
namespace {

using testing::beatFMeasure;
using testing::DanceTrackSpec;
using testing::SyntheticDanceTrack;

double energy(const std::vector<float>& s, double rate, double from, double to) {
    double sum = 0;
    for (auto i = static_cast<std::size_t>(from * rate);
         i < static_cast<std::size_t>(to * rate) && i < s.size(); ++i) {
        sum += double(s[i]) * s[i];
    }
    return sum;
}

TEST(HarnessTestMusic, KicksSitOnTheBeatsOfTheTruth) {
    DanceTrackSpec spec{.bpm = 128, .seconds = 10};
    const SyntheticDanceTrack track(spec);
    const double period = 60.0 / 128;
    ASSERT_EQ(track.truth().beats.size(), track.truth().kicks.size());
    EXPECT_NEAR(track.truth().beats[1] - track.truth().beats[0], period, 1e-9);
    EXPECT_EQ(track.samples().size(), 480000u);
    for (double kick : track.truth().kicks) {
        if (kick + period > spec.seconds) {
            break;
        }
        // The 50 ms after a kick are far louder than the 50 ms before it.
        EXPECT_GT(energy(track.samples(), 48000, kick, kick + 0.05),
                  4 * energy(track.samples(), 48000, kick - 0.05, kick))
            << kick;
    }
}

TEST(HarnessTestMusic, BreaksSnapToTheGridAndTakeTheBassOut) {
    DanceTrackSpec spec{.bpm = 120, .seconds = 30, .firstBeat = 0.25};
    spec.breaks.push_back({10.1, 8.1}); // → 10.25 … 18.25
    const SyntheticDanceTrack track(spec);
    ASSERT_EQ(track.spec().breaks.size(), 1u);
    EXPECT_NEAR(track.spec().breaks[0].start, 10.25, 1e-9);
    EXPECT_NEAR(track.spec().breaks[0].length, 8.0, 1e-9);
    ASSERT_EQ(track.truth().drops.size(), 1u);
    EXPECT_NEAR(track.truth().drops[0], 18.25, 1e-9);
    for (double kick : track.truth().kicks) {
        EXPECT_TRUE(kick < 10.25 || kick >= 18.25) << kick;
    }
    // In the break only hats and the pad play: much quieter than with kick and bass.
    EXPECT_LT(energy(track.samples(), 48000, 12, 16), 0.05 * energy(track.samples(), 48000, 4, 8));

    // Without hats nothing else in the mix changes: the samples differ only after off-beats.
    spec.hats = false;
    const SyntheticDanceTrack plain(spec);
    auto same = [&](double from, double to) {
        const auto begin = static_cast<std::ptrdiff_t>(from * 48000);
        const auto end = static_cast<std::ptrdiff_t>(to * 48000);
        return std::equal(plain.samples().begin() + begin, plain.samples().begin() + end,
                          track.samples().begin() + begin);
    };
    for (double beat : {4.25, 12.25}) { // in the music and in the break
        EXPECT_TRUE(same(beat, beat + 0.24)) << beat;
        EXPECT_FALSE(same(beat + 0.25, beat + 0.26)) << beat;
    }
}

TEST(HarnessTestMusic, SameSpecSameSamplesAndTheTruthReadsAsJSON) {
    DanceTrackSpec spec{.bpm = 140, .seconds = 5, .noiseDecibels = -40, .breaks = {{2, 1}}};
    EXPECT_EQ(SyntheticDanceTrack(spec).samples(), SyntheticDanceTrack(spec).samples());
    const auto truth = nlohmann::json::parse(SyntheticDanceTrack(spec).truthJSON());
    EXPECT_EQ(truth["bpm"], 140.0);
    EXPECT_EQ(truth["beats"].size(), SyntheticDanceTrack(spec).truth().beats.size());
    EXPECT_EQ(truth["drops"].size(), 1u);
    DanceTrackSpec other = spec;
    other.seed = 2; // another noise sequence
    EXPECT_NE(SyntheticDanceTrack(spec).samples(), SyntheticDanceTrack(other).samples());
}

TEST(HarnessTestMusic, FMeasureMatchesEachReferenceOnce) {
    const std::vector<double> reference = {1.0, 2.0, 3.0, 4.0};
    EXPECT_DOUBLE_EQ(beatFMeasure(reference, reference, 0.07), 1.0);
    // Two detections near one beat count once; a shifted set misses everything.
    EXPECT_NEAR(beatFMeasure({1.0, 1.01, 2.0, 3.0, 4.0}, reference, 0.07), 2 * 0.8 * 1.0 / 1.8,
                1e-12);
    EXPECT_DOUBLE_EQ(beatFMeasure({1.5, 2.5, 3.5}, reference, 0.07), 0.0);
    EXPECT_NEAR(beatFMeasure({1.05, 2.0}, reference, 0.035), 2 * 0.5 * 0.25 / 0.75, 1e-12);
    EXPECT_DOUBLE_EQ(beatFMeasure({}, {}, 0.07), 1.0);
    EXPECT_DOUBLE_EQ(beatFMeasure({}, reference, 0.07), 0.0);
}

} // namespace
} // namespace kelvo
