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
    DanceTrackSpec spec;
    spec.bpm = 126;
    spec.seconds = 60;
    spec.breaks.push_back({36.0, 10.0});
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
    DanceTrackSpec spec;
    spec.bpm = 128;
    spec.seconds = 56;
    spec.breaks.push_back({34.0, 10.0});
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

TEST(HarnessDrop, ABreakInsideTheFirstThirtySecondsNeverArms) {
    DanceTrackSpec spec;
    spec.bpm = 124;
    spec.seconds = 40;
    spec.breaks.push_back({12.0, 10.0});
    EngineHost host;
    const auto run = runTrack(spec, host);
    EXPECT_TRUE(run.dropTimes.empty());
    EXPECT_LT(run.firstArmedAt, 0);
}

TEST(HarnessDrop, OnlyBassOutTimeAfterTheWarmUpCounts) {
    // Bass out from 25 s to 33 s: eight seconds out, but only three after the warm-up.
    DanceTrackSpec spec;
    spec.bpm = 124;
    spec.seconds = 45;
    spec.breaks.push_back({25.0, 8.0});
    EngineHost host;
    const auto run = runTrack(spec, host);
    EXPECT_TRUE(run.dropTimes.empty());
    EXPECT_LT(run.firstArmedAt, 0);
}

TEST(HarnessDrop, ASteadyTrackNeverFires) {
    DanceTrackSpec spec;
    spec.bpm = 128;
    spec.seconds = 70;
    spec.noiseDecibels = -50;
    spec.levelChanges.push_back({40.0, -10.0});
    EngineHost host;
    const auto run = runTrack(spec, host);
    EXPECT_TRUE(run.dropTimes.empty());
    EXPECT_LT(run.firstArmedAt, 0);
    EXPECT_EQ(host.dropDiagnostics().status, "listening");
}

TEST(HarnessDrop, AShortBreakDoesNotArm) {
    DanceTrackSpec spec;
    spec.bpm = 128;
    spec.seconds = 50;
    spec.breaks.push_back({34.0, 4.0});
    EngineHost host;
    const auto run = runTrack(spec, host);
    EXPECT_TRUE(run.dropTimes.empty());
}

TEST(HarnessDrop, TwoBreaksFireTwoDrops) {
    DanceTrackSpec spec;
    spec.bpm = 130;
    spec.seconds = 80;
    spec.breaks.push_back({32.0, 9.0});
    spec.breaks.push_back({56.0, 9.0});
    EngineHost host;
    const auto run = runTrack(spec, host);
    ASSERT_EQ(run.dropTimes.size(), 2u);
    EXPECT_NEAR(run.dropTimes[0], 41.0, dropLatency);
    EXPECT_NEAR(run.dropTimes[1], 65.0, dropLatency);
    EXPECT_EQ(host.dropDiagnostics().recentEvents.size(), 2u);
}

TEST(HarnessDrop, StatusIsArmedDuringALongBreak) {
    DanceTrackSpec spec;
    spec.bpm = 128;
    spec.seconds = 44;
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
