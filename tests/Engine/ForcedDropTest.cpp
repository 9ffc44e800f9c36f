#include "Engine/ForcedDrop.h"
#include "Engine/DropDiagnostics.h"

#include "support/FakeTimers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

class ForcedDropTest : public testing::Test {
protected:
    ForcedDropTest() {
        QObject::connect(&hold, &ForcedDropHold::engineForcedDrop,
                         [this](bool on) { engineCalls.push_back(on); });
        QObject::connect(&hold, &ForcedDropHold::heldChanged,
                         [this](bool held) { heldChanges.push_back(held); });
    }
    test::FakeTimerFactory timers;
    std::vector<bool> engineCalls;
    std::vector<bool> heldChanges;
    ForcedDropHold hold{timers};
};

TEST_F(ForcedDropTest, EngineHearsTrueOnceThenEverySecondThenFalseOnceWhenTheLastSourceLetsGo) {
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

    // Overlapping sources hold until the last one lets go.
    engineCalls.clear();
    hold.begin(DropHoldSource::keyboard);
    hold.begin(DropHoldSource::pointer);
    EXPECT_THAT(engineCalls, ElementsAre(true)) << "a second source only joins";
    hold.end(DropHoldSource::keyboard);
    hold.end(DropHoldSource::menu); // it was not holding: changes nothing
    EXPECT_TRUE(hold.isDropHeld());
    hold.end(DropHoldSource::pointer);
    EXPECT_FALSE(hold.isDropHeld());
    EXPECT_THAT(engineCalls, ElementsAre(true, false));
}

TEST_F(ForcedDropTest, EachMenuTriggerEndsTheMenuHoldOneSecondLater) {
    hold.triggerMenuDrop();
    timers.advance(milliseconds(500));
    hold.triggerMenuDrop(); // joins the hold; its own pulse ends 1 s from now
    EXPECT_THAT(engineCalls, ElementsAre(true));
    timers.advance(milliseconds(499));
    EXPECT_TRUE(hold.isDropHeld());
    timers.advance(milliseconds(1)); // t = 1.0 s: re-assert, then the first pulse ends the hold
    EXPECT_FALSE(hold.isDropHeld()) << "a second trigger does not extend the first";
    EXPECT_THAT(engineCalls, ElementsAre(true, true, false));

    hold.begin(DropHoldSource::pointer);
    timers.advance(milliseconds(500)); // t = 1.5 s: the second pulse ends the menu source only
    EXPECT_TRUE(hold.isDropHeld());
    EXPECT_THAT(engineCalls, ElementsAre(true, true, false, true));
    EXPECT_EQ(timers.activeCount(), 1) << "only the re-assert timer is left";
}

TEST(DropDetectedEventTest, ExactKeys) {
    const nlohmann::json encoded = DropDetectedEvent{41.5, 40.25, "classical"};
    EXPECT_EQ(encoded, nlohmann::json::parse(
                           R"({"emittedAt": 41.5, "proposalAt": 40.25, "source": "classical"})"));
}

} // namespace
} // namespace kelvo
