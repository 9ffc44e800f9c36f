#include "Engine/EngineLoop.h"

#include "Engine/EngineHost.h"

#include "support/RecordingHarness.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

class FakeHopSource final : public HopSource {
public:
    bool capturing = false;
    std::vector<MicHop> pending;
    bool isCapturing() const override { return capturing; }
    std::vector<MicHop> takePendingHops() override { return std::exchange(pending, {}); }
};

/// What the loop announced.
struct RecordingListener {
    explicit RecordingListener(EngineLoop& loop) {
        QObject::connect(&loop, &EngineLoop::micTraceChanged, [this] { ++traceChanges; });
        QObject::connect(&loop, &EngineLoop::beatReadoutChanged,
                         [this](const BeatReadout& beat) { beats.push_back(beat); });
        QObject::connect(&loop, &EngineLoop::visualsRefreshed, [this] { ++refreshes; });
        QObject::connect(&loop, &EngineLoop::frameReady,
                         [this](const DmxFrame& buffers) { frames.push_back(buffers); });
    }
    int traceChanges = 0, refreshes = 0;
    std::vector<BeatReadout> beats;
    std::vector<DmxFrame> frames;
};

MicHop levelHop(double high) {
    return {{0.5, 0.5, high, 0.5, 0.3, 0.0}, 0.01, {}, 48000};
}

class EngineLoopTest : public testing::Test {
protected:
    void SetUp() override { engine.loadHarness(test::testHarness()); }
    void realizeShow(bool stepPalette = false) {
        engine.loadShow({{"name", "Demo"},
                         {"stepPalette", stepPalette},
                         {"result", {{"dmx", {{"1", {10, 20}}, {"2", {30}}}}}}},
                        json::object());
    }
    EngineHost engine;
    FakeHopSource hops;
    ManualMonotonicClock clock;
    EngineLoop loop{engine, hops, clock};
    RecordingListener listener{loop};
};

TEST_F(EngineLoopTest, TheSessionStepsWithTheMeasuredDt) {
    realizeShow();
    loop.tick(); // first tick: nominal
    clock.advance(3s);
    loop.tick(); // after a pause
    clock.advance(500us);
    loop.tick(); // floor
    clock.advance(20ms);
    loop.forgetLastTickTime();
    loop.tick(); // after a restart: nominal again
    clock.advance(20ms);
    loop.tick();
    const std::vector<double> expected = {1.0 / 60.0, 3.0, 0.001, 1.0 / 60.0, 0.02};
    const auto steps = test::loggedCalls(engine, "step");
    const auto windows = test::loggedCalls(engine, "window");
    ASSERT_EQ(steps.size(), expected.size());
    ASSERT_EQ(windows.size(), expected.size()) << "one silent hop per tick";
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(steps[i][1].get<double>(), expected[i], 1e-12) << "step " << i;
        EXPECT_NEAR(windows[i].get<double>(), expected[i], 1e-12) << "silent hop " << i;
    }
    EXPECT_EQ(engine.lastNormalizedBands().low, -120.0) << "the hops are silent";
}

TEST_F(EngineLoopTest, WithoutAShowTheLastBuffersKeepGoingOut) {
    hops.capturing = true;
    hops.pending = {levelHop(0)};
    loop.tick();
    loop.tick();
    ASSERT_EQ(listener.frames.size(), 2u);
    EXPECT_TRUE(listener.frames[0].empty());
    EXPECT_TRUE(hops.pending.empty()) << "unused hops do not pile up";
    EXPECT_EQ(engine.classicalClock(), 0.0);

    realizeShow();
    loop.tick();
    EXPECT_TRUE(listener.frames.back().empty()) << "no audio has produced a frame yet";
    hops.pending = {levelHop(0)};
    loop.tick();
    const DmxFrame expected = {{1, {10, 20}}, {2, {30}}};
    EXPECT_EQ(listener.frames.back(), expected);

    // The show goes away (new harness): the previous buffers are re-sent, not black.
    engine.loadHarness(test::testHarness());
    ASSERT_FALSE(engine.hasRealizedShow());
    loop.tick();
    EXPECT_EQ(listener.frames.back(), expected);
}

TEST_F(EngineLoopTest, AStallsBacklogIsCutToTheNewestHalfSecondAndTheReadoutFollows) {
    realizeShow();
    hops.capturing = true;
    for (int i = 0; i < 80; ++i)
        hops.pending.push_back(levelHop(i == 79 ? 1 : 0)); // 0.8 s, the beat last
    loop.tick();
    EXPECT_NEAR(engine.classicalClock(), 0.5, 1e-9);
    EXPECT_EQ(loop.droppedHops(), 30u);
    EXPECT_TRUE(loop.beatReadout().beat) << "the newest hops are the ones fed";
    loop.tick(); // no new hops: the repeated frame, beat cleared
    hops.pending = {levelHop(0), levelHop(0)};
    loop.tick();
    loop.tick();
    EXPECT_EQ(loop.droppedHops(), 30u);
    EXPECT_EQ(listener.beats.size(), 2u) << "the readout is published only when it changes";
}

TEST_F(EngineLoopTest, VisualsRefreshOnEveryFifthTickSinceLaunch) {
    // Two ticks without a show still count: the refresh follows the tick count, not the steps.
    loop.tick();
    loop.tick();
    realizeShow(true); // the palette carries the number of the step that was asked to refresh
    std::vector<std::uint64_t> refreshedTicks;
    std::vector<double> schemeStep;
    for (int i = 0; i < 10; ++i) {
        const int before = listener.refreshes;
        loop.tick();
        if (listener.refreshes != before)
            refreshedTicks.push_back(loop.tickCount());
        schemeStep.push_back(engine.liveScheme().empty() ? 0 : engine.liveScheme()[0].r);
    }
    EXPECT_EQ(refreshedTicks, (std::vector<std::uint64_t>{5, 10}));
    // Ticks 3…12 are steps 1…10; the engine resamples the scheme only on ticks 5 and 10.
    EXPECT_EQ(schemeStep, (std::vector<double>{0, 0, 3, 3, 3, 3, 3, 8, 8, 8}));
}

TEST_F(EngineLoopTest, TheTraceIsAnnouncedOnlyWhenItMoves) {
    realizeShow();
    for (std::size_t i = 0; i < MicBandTrace::capacity + 5; ++i)
        loop.tick();
    EXPECT_EQ(loop.micTrace().low.size(), MicBandTrace::capacity);
    EXPECT_EQ(listener.traceChanges, int(MicBandTrace::capacity))
        << "a full trace of silence receiving silence stays as it was";

    hops.capturing = true;
    hops.pending = {levelHop(0.8)}; // the recording normaliser passes the high band through
    loop.tick();
    EXPECT_EQ(listener.traceChanges, int(MicBandTrace::capacity) + 1);
}

} // namespace
} // namespace kelvo
