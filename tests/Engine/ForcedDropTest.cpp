#include "Engine/ForcedDrop.h"

#include "support/FakeTimers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

class ForcedDropTest : public testing::Test {
protected:
    testing_support::FakeTimerFactory timers;
    std::vector<bool> engineCalls;
    std::vector<bool> heldChanges;
    ForcedDropHold hold{timers, [this](bool on) { engineCalls.push_back(on); },
                        [this](bool held) { heldChanges.push_back(held); }};
};

TEST_F(ForcedDropTest, EngineHearsTrueOnceThenEverySecondThenFalseOnce) {
    hold.begin(DropHoldSource::pointer);
    EXPECT_THAT(engineCalls, ElementsAre(true));
    timers.fire(milliseconds(1000));
    timers.fire(milliseconds(1000));
    EXPECT_THAT(engineCalls, ElementsAre(true, true, true));
    hold.end(DropHoldSource::pointer);
    EXPECT_THAT(engineCalls, ElementsAre(true, true, true, false));
    timers.fire(milliseconds(1000));
    EXPECT_EQ(engineCalls.size(), 4u) << "no re-assert after the hold ended";
    EXPECT_THAT(heldChanges, ElementsAre(true, false));
    EXPECT_EQ(timers.activeCount(), 0);
}

TEST_F(ForcedDropTest, OverlappingSourcesHoldUntilTheLastLetsGo) {
    hold.begin(DropHoldSource::keyboard);
    hold.begin(DropHoldSource::pointer);
    EXPECT_THAT(engineCalls, ElementsAre(true)) << "a second source only joins";
    hold.end(DropHoldSource::keyboard);
    EXPECT_TRUE(hold.isDropHeld());
    hold.end(DropHoldSource::menu);
    EXPECT_TRUE(hold.isDropHeld()) << "ending a source that was not holding changes nothing";
    hold.end(DropHoldSource::pointer);
    EXPECT_FALSE(hold.isDropHeld());
    EXPECT_THAT(engineCalls, ElementsAre(true, false));
}

TEST_F(ForcedDropTest, MenuPulseInsideAHeldTile) {
    hold.begin(DropHoldSource::pointer);
    hold.triggerMenuDrop();
    timers.fire(milliseconds(1000)); // the pulse ends, the re-assert fires
    EXPECT_TRUE(hold.isDropHeld());
    EXPECT_EQ(hold.sources(), std::set<DropHoldSource>{DropHoldSource::pointer});
    hold.end(DropHoldSource::pointer);
    EXPECT_FALSE(hold.isDropHeld());
    EXPECT_EQ(engineCalls.back(), false);
}

TEST_F(ForcedDropTest, MenuPulseAloneLastsOneSecond) {
    hold.triggerMenuDrop();
    EXPECT_TRUE(hold.isDropHeld());
    timers.fire(milliseconds(1000));
    EXPECT_FALSE(hold.isDropHeld());
    EXPECT_EQ(std::count(engineCalls.begin(), engineCalls.end(), false), 1);
}

TEST_F(ForcedDropTest, LoopStopReleasesEveryHold) {
    hold.begin(DropHoldSource::keyboard);
    hold.triggerMenuDrop();
    hold.begin(DropHoldSource::pointer);
    hold.releaseAll();
    EXPECT_FALSE(hold.isDropHeld());
    EXPECT_TRUE(hold.sources().empty());
    EXPECT_THAT(engineCalls, ElementsAre(true, false));
    EXPECT_EQ(timers.activeCount(), 0);
}

TEST(DropKeyboardHoldTest, PressGThenHReleaseGStillHeld) {
    DropKeyboardHold keys;
    EXPECT_TRUE(keys.update(DropKeyboardHold::keyG, true, true));
    EXPECT_TRUE(keys.update(DropKeyboardHold::keyH, true, true));
    EXPECT_TRUE(keys.update(DropKeyboardHold::keyG, false, true));
    EXPECT_FALSE(keys.held.empty());
    EXPECT_TRUE(keys.update(DropKeyboardHold::keyH, false, true));
    EXPECT_TRUE(keys.held.empty());
}

TEST(DropKeyboardHoldTest, DisallowedDownIsIgnoredButUpIsHonoured) {
    DropKeyboardHold keys;
    EXPECT_FALSE(keys.update(DropKeyboardHold::keyJ, true, false)) << "typing or a modifier";
    EXPECT_TRUE(keys.held.empty());
    EXPECT_TRUE(keys.update(DropKeyboardHold::keyJ, true, true));
    EXPECT_TRUE(keys.update(DropKeyboardHold::keyJ, false, false));
    EXPECT_FALSE(keys.update(DropKeyboardHold::keyJ, false, true)) << "was not held";
    EXPECT_FALSE(keys.update(38 /* L */, true, true));
    EXPECT_TRUE(DropKeyboardHold::isDropKey(DropKeyboardHold::keyI));
}

} // namespace
} // namespace kelvo
