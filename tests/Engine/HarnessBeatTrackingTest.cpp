#include "Engine/HarnessRig.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

namespace kelvo {
namespace {

using testing::beatFMeasure;
using testing::DanceTrackSpec;
using testing::SyntheticDanceTrack;

constexpr double tempoDeadline = 8.0;
constexpr double bpmTolerance = 1.0;

struct TempoCase {
    double bpm;
    double sampleRate;
    double noiseDecibels;
    double levelChangeDecibels; ///< applied from 12 s on
};

void PrintTo(const TempoCase& c, std::ostream* os) {
    *os << c.bpm << " BPM at " << c.sampleRate << " Hz, noise " << c.noiseDecibels
        << " dB, level change " << c.levelChangeDecibels << " dB";
}

class HarnessTempo : public ::testing::TestWithParam<TempoCase> {};

TEST_P(HarnessTempo, LocksWithinEightSecondsAndBeatsLandOnTheKicks) {
    const TempoCase c = GetParam();
    DanceTrackSpec spec{
        .bpm = c.bpm, .seconds = 30, .sampleRate = c.sampleRate, .noiseDecibels = c.noiseDecibels};
    if (c.levelChangeDecibels != 0) {
        spec.levelChanges.push_back({12.0, c.levelChangeDecibels});
    }
    const SyntheticDanceTrack track(spec);

    EngineHost host;
    testing::ScriptErrorWatch errors;
    host.loadHarness(testing::harnessSource());
    const auto run = testing::runClassical(host, testing::hopsOf(track));
    EXPECT_FALSE(errors.scriptThrew());

    for (const auto& [clock, bpm] : run.bpm) {
        if (clock >= tempoDeadline) {
            ASSERT_NEAR(bpm, c.bpm, bpmTolerance) << "at " << clock << " s";
        }
    }
    EXPECT_GT(host.lastBeat().confidence, 0.5);

    // Lights are judged on the kicks after the tracker has settled.
    const auto detected = testing::from(run.beatTimes, tempoDeadline);
    const auto kicks = testing::from(track.truth().kicks, tempoDeadline);
    const double f70 = beatFMeasure(detected, kicks, 0.070);
    const double f35 = beatFMeasure(detected, kicks, 0.035);
    std::printf("[ harness  ] %.0f BPM: F(±70 ms) %.3f, F(±35 ms) %.3f, final %.2f BPM\n", c.bpm,
                f70, f35, host.lastBeat().bpm);
    EXPECT_GE(f70, 0.9);
    EXPECT_GE(f35, 0.8);
}

INSTANTIATE_TEST_SUITE_P(
    SteadyTracks, HarnessTempo,
    ::testing::Values(TempoCase{100, 48000, -200, 0}, TempoCase{120, 48000, -200, 0},
                      TempoCase{128, 48000, -200, 0}, TempoCase{140, 48000, -200, 0},
                      TempoCase{174, 48000, -200, 0},
                      // Interfaces running at other rates.
                      TempoCase{128, 22050, -200, 0}, TempoCase{128, 96000, -200, 0},
                      // A noisy, quiet room microphone at 44.1 kHz whose level then drops 15 dB.
                      TempoCase{100, 44100, -35, -15}, TempoCase{128, 44100, -35, -15},
                      TempoCase{174, 44100, -35, -15}));

TEST(HarnessBeatTracker, BeatCountAndDownbeatsFollowTheBeats) {
    DanceTrackSpec spec{.bpm = 125, .seconds = 20};
    const SyntheticDanceTrack track(spec);
    EngineHost host;
    host.loadHarness(testing::harnessSource());
    int beats = 0;
    int downbeats = 0;
    int lastCount = 0;
    for (const MicHop& hop : testing::hopsOf(track)) {
        const auto json = host.updateClassical(std::span<const MicHop>(&hop, 1));
        ASSERT_TRUE(json.has_value());
        const auto frame = nlohmann::json::parse(*json);
        if (frame["beat"].get<bool>()) {
            ++beats;
            EXPECT_EQ(host.lastBeat().beatCount, lastCount + 1);
            lastCount = host.lastBeat().beatCount;
            if (frame["downbeat"].get<bool>()) {
                ++downbeats;
                EXPECT_EQ((host.lastBeat().beatCount - 1) % 4, 0);
            }
        } else {
            EXPECT_FALSE(frame["downbeat"].get<bool>());
        }
        EXPECT_GE(frame["phase"].get<double>(), 0.0);
        EXPECT_LE(frame["phase"].get<double>(), 1.0);
    }
    // About 20 s × 125 / 60 beats minus the first seconds of listening.
    EXPECT_GT(beats, 30);
    EXPECT_LT(beats, 43);
    EXPECT_NEAR(downbeats, beats / 4.0, 1.0);
}

TEST(HarnessBeatTracker, SilenceNeverBeats) {
    EngineHost host;
    host.loadHarness(testing::harnessSource());
    std::vector<MicHop> silent(3000);
    for (MicHop& hop : silent) {
        hop.dt = 512.0 / 48000.0;
        hop.sampleRate = 48000;
    }
    const auto run = testing::runClassical(host, silent);
    EXPECT_TRUE(run.beatTimes.empty());
    EXPECT_EQ(host.lastBeat().bpm, 0.0);
    EXPECT_EQ(host.lastNormalizedBands(), MicBands{});
    EXPECT_EQ(host.lastBeat().drop, 0.0);
}

TEST(HarnessBeatTracker, StopsBeatingWhenTheMusicStops) {
    DanceTrackSpec spec{.bpm = 128, .seconds = 15};
    const SyntheticDanceTrack track(spec);
    EngineHost host;
    host.loadHarness(testing::harnessSource());
    auto hops = testing::hopsOf(track);
    const std::size_t musicHops = hops.size();
    hops.resize(musicHops + 1000, MicHop{BandDecibelLevels::silent(), 512.0 / 48000.0, {}, 48000});
    const auto run = testing::runClassical(host, hops);
    const double musicEnd = static_cast<double>(musicHops) * 512.0 / 48000.0;
    ASSERT_FALSE(run.beatTimes.empty());
    // The flywheel may carry a beat or two over the end, never more than the silence timeout.
    EXPECT_LT(run.beatTimes.back(), musicEnd + 3.0);
    EXPECT_NEAR(host.lastBeat().bpm, 128, 1.0); // the tempo is remembered
    EXPECT_LT(host.lastBeat().confidence, 0.2);
}

TEST(HarnessBeatTracker, TheSameAudioGivesTheSameFrames) {
    DanceTrackSpec spec{.bpm = 140, .seconds = 12};
    const auto hops = testing::hopsOf(SyntheticDanceTrack(spec));
    std::vector<std::string> first;
    std::vector<std::string> second;
    for (auto* out : {&first, &second}) {
        EngineHost host;
        host.loadHarness(testing::harnessSource());
        for (const MicHop& hop : hops) {
            out->push_back(host.updateClassical(std::span<const MicHop>(&hop, 1)).value_or(""));
        }
    }
    EXPECT_EQ(first, second);
}

TEST(HarnessBeatTracker, HopBatchesOfATickKeepTheirBeats) {
    DanceTrackSpec spec{.bpm = 120, .seconds = 20};
    const auto hops = testing::hopsOf(SyntheticDanceTrack(spec));
    EngineHost single;
    single.loadHarness(testing::harnessSource());
    const auto reference = testing::runClassical(single, hops);

    // Two hops per tick, as the 60 Hz engine loop hands them over.
    EngineHost batched;
    batched.loadHarness(testing::harnessSource());
    int beatTicks = 0;
    for (std::size_t i = 0; i + 2 <= hops.size(); i += 2) {
        const auto json = batched.updateClassical(std::span<const MicHop>(&hops[i], 2));
        ASSERT_TRUE(json.has_value());
        if (nlohmann::json::parse(*json)["beat"].get<bool>()) {
            ++beatTicks;
        }
    }
    EXPECT_NEAR(beatTicks, static_cast<double>(reference.beatTimes.size()), 1.0);
}

TEST(HarnessBeatTracker, BeatsStayOnTheGridThroughABreakAndTheDrop) {
    testing::DanceTrackSpec spec{.bpm = 124, .seconds = 60, .breaks = {{35.0, 10.0}}};
    const testing::SyntheticDanceTrack track(spec);
    EngineHost host;
    host.loadHarness(testing::harnessSource());
    const auto run = testing::runClassical(host, testing::hopsOf(track));
    // Through the break only the hats play, off the beat: the lights must not slide onto them.
    const auto detected = testing::from(run.beatTimes, 8.0);
    const auto grid = testing::from(track.truth().beats, 8.0);
    EXPECT_GE(testing::beatFMeasure(detected, grid, 0.035), 0.95);
    for (const auto& [clock, bpm] : run.bpm) {
        if (clock >= 8.0) {
            ASSERT_NEAR(bpm, 124, 1.0) << "at " << clock << " s";
        }
    }
}

TEST(HarnessBeatTracker, FollowsTheNextTrackAtAnotherTempo) {
    // A DJ cuts from a 128 BPM track to a 140 BPM one at 20 s.
    testing::DanceTrackSpec first{.bpm = 128, .seconds = 20};
    testing::DanceTrackSpec second{.bpm = 140, .seconds = 20, .firstBeat = 0.1};
    const testing::SyntheticDanceTrack a(first);
    const testing::SyntheticDanceTrack b(second);
    std::vector<float> mix = a.samples();
    mix.insert(mix.end(), b.samples().begin(), b.samples().end());

    EngineHost host;
    host.loadHarness(testing::harnessSource());
    const auto run = testing::runClassical(host, testing::hopsOf(mix, 48000));
    for (const auto& [clock, bpm] : run.bpm) {
        if (clock >= 8 && clock < 20) {
            ASSERT_NEAR(bpm, 128, 1.0) << "at " << clock << " s";
        }
        if (clock >= 28) {
            ASSERT_NEAR(bpm, 140, 1.0) << "at " << clock << " s";
        }
    }
    std::vector<double> kicks;
    for (double k : b.truth().kicks) {
        kicks.push_back(20 + k);
    }
    EXPECT_GE(
        testing::beatFMeasure(testing::from(run.beatTimes, 28), testing::from(kicks, 28), 0.07),
        0.9);
}

} // namespace
} // namespace kelvo
