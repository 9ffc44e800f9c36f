#include "Engine/HarnessRig.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using testing::DanceTrackSpec;
using testing::SyntheticDanceTrack;

constexpr double dropLatency = 0.25;

testing::ClassicalRun runTrack(const DanceTrackSpec& spec, EngineHost& host) {
    host.loadHarness(testing::harnessSource());
    return testing::runClassical(host, testing::hopsOf(SyntheticDanceTrack(spec)));
}

TEST(HarnessDrop, ABreakAfterTheWarmUpFiresExactlyOnceWhenTheBassReturns) {
    DanceTrackSpec spec{.bpm = 126, .seconds = 60, .breaks = {{36.0, 10.0}}};
    EngineHost host;
    const auto run = runTrack(spec, host);
    const double bassBack = spec.breaks[0].start + spec.breaks[0].length;

    ASSERT_EQ(run.dropTimes.size(), 1u);
    EXPECT_GE(run.dropTimes[0], bassBack);
    EXPECT_LE(run.dropTimes[0], bassBack + dropLatency);
    // Armed after about eight seconds of bass out, not before.
    EXPECT_GT(run.firstArmedAt, spec.breaks[0].start + 6.5);
    EXPECT_LT(run.firstArmedAt, bassBack);
    EXPECT_FALSE(host.dropArmed());

    const DropDiagnostics diagnostics = host.dropDiagnostics();
    EXPECT_EQ(diagnostics.eventCount, 1);
    ASSERT_EQ(diagnostics.recentEvents.size(), 1u);
    char expected[16];
    std::snprintf(expected, sizeof expected, "%.1fs", run.dropTimes[0]);
    EXPECT_EQ(diagnostics.recentEvents[0], expected);
}

TEST(HarnessDrop, TheDropLevelIsOneAtTheDropAndDecaysToZero) {
    DanceTrackSpec spec{.bpm = 128, .seconds = 56, .breaks = {{34.0, 10.0}}};
    EngineHost host;
    host.loadHarness(testing::harnessSource());
    double previous = 0;
    bool fired = false;
    bool decayed = false;
    for (const MicHop& hop : testing::hopsOf(SyntheticDanceTrack(spec))) {
        host.updateClassical(std::span<const MicHop>(&hop, 1));
        const double level = host.lastBeat().drop;
        if (!fired && level >= 1.0) {
            fired = true;
        } else if (fired) {
            EXPECT_LE(level, previous) << "the level only decays after the drop";
            decayed = decayed || level == 0.0;
        }
        previous = level;
    }
    EXPECT_TRUE(fired);
    EXPECT_TRUE(decayed);
}

TEST(HarnessDrop, WithoutALongBreakAfterTheWarmUpNothingArms) {
    struct Case {
        const char* what;
        double bpm, seconds;
        std::vector<testing::DanceBreak> breaks;
        double noiseDecibels = -200;
        std::vector<testing::DanceLevelChange> levelChanges = {};
    };
    const Case cases[] = {
        {"a break inside the first thirty seconds", 124, 40, {{12.0, 10.0}}},
        // Bass out from 25 s to 33 s: eight seconds out, but only three after the warm-up.
        {"a break across the end of the warm-up", 124, 45, {{25.0, 8.0}}},
        {"a short break", 128, 50, {{34.0, 4.0}}},
        {"a steady noisy track that gets quieter", 128, 70, {}, -50, {{40.0, -10.0}}},
    };
    for (const Case& c : cases) {
        DanceTrackSpec spec{.bpm = c.bpm,
                            .seconds = c.seconds,
                            .noiseDecibels = c.noiseDecibels,
                            .breaks = c.breaks,
                            .levelChanges = c.levelChanges};
        EngineHost host;
        const auto run = runTrack(spec, host);
        EXPECT_TRUE(run.dropTimes.empty()) << c.what;
        EXPECT_LT(run.firstArmedAt, 0) << c.what;
        EXPECT_EQ(host.dropDiagnostics().status, "listening") << c.what;
    }
}

TEST(HarnessDrop, TwoBreaksFireTwoDrops) {
    DanceTrackSpec spec{.bpm = 130, .seconds = 80, .breaks = {{32.0, 9.0}, {56.0, 9.0}}};
    EngineHost host;
    const auto run = runTrack(spec, host);
    ASSERT_EQ(run.dropTimes.size(), 2u);
    EXPECT_NEAR(run.dropTimes[0], 41.0, dropLatency);
    EXPECT_NEAR(run.dropTimes[1], 65.0, dropLatency);
    EXPECT_EQ(host.dropDiagnostics().recentEvents.size(), 2u);
}

TEST(HarnessDrop, StatusIsArmedDuringALongBreak) {
    DanceTrackSpec spec{.bpm = 128, .seconds = 44};
    spec.breaks.push_back({32.0, 30.0}); // still out at the end
    EngineHost host;
    runTrack(spec, host);
    EXPECT_TRUE(host.dropArmed());
    EXPECT_EQ(host.dropDiagnostics().status, "armed");
    host.replaceDropDetector();
    EXPECT_EQ(host.dropDiagnostics().status, "listening");
}

} // namespace
} // namespace kelvo
