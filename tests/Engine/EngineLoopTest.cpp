#include "Engine/EngineLoop.h"

#include "Engine/EngineHost.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

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

class RecordingListener final : public EngineLoopListener {
public:
    int traceChanges = 0, refreshes = 0;
    std::vector<BeatReadout> beats;
    std::vector<DmxFrame> frames;
    void micTraceChanged(const MicBandTrace&) override { ++traceChanges; }
    void beatReadoutChanged(const BeatReadout& beat) override { beats.push_back(beat); }
    void visualsRefreshed() override { ++refreshes; }
    void outputFrame(const DmxFrame& buffers) override { frames.push_back(buffers); }
};

std::string recordingHarness() {
    std::ifstream file(std::string(KELVO_TEST_DATA_DIR) + "/harnesses/recording.js");
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

MicHop levelHop(double high) {
    MicHop hop;
    hop.levels = {0.5, 0.5, high, 0.5, 0.3, 0.0};
    hop.dt = 0.01;
    hop.sampleRate = 48000;
    return hop;
}

class EngineLoopTest : public testing::Test {
protected:
    void SetUp() override { engine.loadHarness(recordingHarness()); }
    void realizeShow() {
        engine.loadShow({{"name", "Demo"}, {"result", {{"dmx", {{"1", {10, 20}}, {"2", {30}}}}}}},
                        json::object());
    }
    EngineHost engine;
    FakeHopSource hops;
    ManualMonotonicClock clock;
    RecordingListener listener;
    EngineLoop loop{engine, hops, clock, listener};
};

TEST_F(EngineLoopTest, DtFollowsTheClockWithAFloor) {
    loop.tick();
    EXPECT_DOUBLE_EQ(loop.lastDt(), 1.0 / 60.0) << "first tick";
    clock.advance(3s);
    loop.tick();
    EXPECT_DOUBLE_EQ(loop.lastDt(), 3.0);
    clock.advance(500us);
    loop.tick();
    EXPECT_DOUBLE_EQ(loop.lastDt(), 0.001);
    clock.advance(20ms);
    loop.forgetLastTickTime();
    loop.tick();
    EXPECT_DOUBLE_EQ(loop.lastDt(), 1.0 / 60.0) << "after a restart";
    EXPECT_EQ(loop.tickCount(), 4u);
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
    engine.loadHarness(recordingHarness());
    loop.tick();
    EXPECT_EQ(listener.frames.back(), expected);
}

TEST_F(EngineLoopTest, StoppedCaptureFeedsASilentHopPerTick) {
    realizeShow();
    loop.tick();
    clock.advance(20ms);
    loop.tick();
    EXPECT_NEAR(engine.classicalClock(), 1.0 / 60.0 + 0.02, 1e-9);
    EXPECT_EQ(engine.lastNormalizedBands().low, -120.0) << "the recording normaliser passes levels";
}

TEST_F(EngineLoopTest, CapturedHopsAreDrainedAndRepeatedFramesFillTheGaps) {
    realizeShow();
    hops.capturing = true;
    hops.pending = {levelHop(1), levelHop(0)};
    loop.tick();
    EXPECT_TRUE(hops.pending.empty());
    EXPECT_DOUBLE_EQ(engine.classicalClock(), 0.02);
    EXPECT_TRUE(loop.beatReadout().beat) << "a beat in the batch survives";

    loop.tick(); // no new hops: the repeated frame, beat cleared
    EXPECT_DOUBLE_EQ(engine.classicalClock(), 0.02);
    EXPECT_FALSE(loop.beatReadout().beat);
    EXPECT_EQ(listener.frames.size(), 2u);
}

TEST_F(EngineLoopTest, BeatReadoutPublishedOnlyOnChange) {
    realizeShow();
    hops.capturing = true;
    for (int i = 0; i < 4; ++i) {
        hops.pending = {levelHop(0)};
        loop.tick();
    }
    EXPECT_EQ(listener.beats.size(), 1u) << "first frame differs from the default readout";
    hops.pending = {levelHop(1)};
    loop.tick();
    EXPECT_EQ(listener.beats.size(), 2u);
    EXPECT_EQ(listener.beats.back().beatCount, 1);
}

TEST_F(EngineLoopTest, VisualsRefreshEveryFifthTickAndTraceEveryStep) {
    realizeShow();
    for (int i = 0; i < 10; ++i)
        loop.tick();
    EXPECT_EQ(listener.refreshes, 2);
    EXPECT_EQ(listener.traceChanges, 10);
    EXPECT_EQ(loop.micTrace().low.size(), 10u);
    EXPECT_EQ(loop.micTrace().low.back(), 0.0) << "-120 clamps to 0";
}

} // namespace
} // namespace kelvo
