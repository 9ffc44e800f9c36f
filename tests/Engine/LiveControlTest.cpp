#include "Engine/LiveControl.h"

#include "Engine/EngineHost.h"

#include "support/RecordingHarness.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

class LiveControlTest : public testing::Test {
protected:
    void SetUp() override {
        engine.loadHarness(test::testHarness());
        engine.loadShow({{"name", "Demo"}, {"result", json::object()}}, json::object());
        QObject::connect(&control, &LiveControl::modeSelectionPending, [this] { ++sendsStarted; });
        QObject::connect(&control, &LiveControl::remoteModeApplied, [this] { ++publishes; });
        QObject::connect(&control, &LiveControl::workspaceEdited, [this] { ++persists; });
    }

    LiveControlQueries queries() {
        return {.themePayloads = [this]() -> std::optional<json> {
                    return themes.empty() ? std::nullopt : std::optional(themes);
                },
                .hasDeviceToken = [this] { return paired; }};
    }

    std::vector<json> engineControls() { return test::loggedCalls(engine, "applyControl"); }

    EngineHost engine;
    ManualMonotonicClock clock;
    json themes = json::array();
    bool paired = true;
    int sendsStarted = 0, publishes = 0, persists = 0;
    LiveControl control{engine, clock, queries()};
};

TEST_F(LiveControlTest, RemoteModeWithinTheWindowLosesButItsThemeApplies) {
    control.selectLightingBlend({"pulse", std::nullopt, 0});
    EXPECT_EQ(sendsStarted, 1);
    EXPECT_TRUE(control.ownsModeFields());
    clock.advance(300ms);
    control.applyLiveControlState({{"mode", "chase"}, {"mode_lerp", 0.7}, {"theme_name", "Ice"}});
    EXPECT_EQ(control.selectedModeId(), "pulse");
    EXPECT_EQ(control.selectedModeLerp(), 0.0);
    EXPECT_EQ(control.selectedThemeName(), "Ice");
    EXPECT_EQ(control.lastControlState()["mode"], "pulse");
    EXPECT_EQ(
        engineControls().back(),
        (json{{"modeId", "pulse"}, {"modeTo", nullptr}, {"modeLerp", 0}, {"themeName", "Ice"}}));
}

TEST_F(LiveControlTest, AConfirmedPickStillOwnsTheModeUntilSixTenthsOfASecond) {
    control.selectLightingBlend({"pulse", std::nullopt, 0});
    clock.advance(300ms);
    control.modeSelectionSent({"pulse", std::nullopt, 0}, control.modeSelectionGeneration());
    clock.advance(200ms); // 0.5 s after the pick: only the window owns the mode now
    control.applyLiveControlState({{"mode", "chase"}, {"theme_name", "Ice"}});
    EXPECT_EQ(control.selectedModeId(), "pulse") << "an echo inside the window loses";
    EXPECT_EQ(control.selectedThemeName(), "Ice");
    EXPECT_EQ(control.confirmedModeSelection(), (LightingModeSelection{"pulse", std::nullopt, 0}))
        << "an overridden echo confirms nothing";
    clock.advance(99ms); // 0.599 s
    control.applyLiveControlState({{"mode", "chase"}});
    EXPECT_EQ(control.selectedModeId(), "pulse");
    clock.advance(11ms); // 0.61 s
    control.applyLiveControlState({{"mode", "chase"}, {"mode_lerp", 0.5}, {"mode_to", "wash"}});
    EXPECT_EQ(control.selectedModeId(), "chase");
    EXPECT_EQ(control.confirmedModeSelection(), (LightingModeSelection{"chase", "wash", 0.5}));
    EXPECT_EQ(engineControls().back()["modeId"], "chase");
}

TEST_F(LiveControlTest, WindowEndsOnlyWhenNothingIsPending) {
    control.selectLightingBlend({"pulse", std::nullopt, 0});
    clock.advance(700ms);
    EXPECT_TRUE(control.ownsModeFields()) << "still pending";
    control.modeSelectionSent({"pulse", std::nullopt, 0}, control.modeSelectionGeneration());
    EXPECT_FALSE(control.ownsModeFields());
    control.applyLiveControlState({{"mode", "chase"}});
    EXPECT_EQ(control.selectedModeId(), "chase");
    EXPECT_EQ(control.confirmedModeSelection(), (LightingModeSelection{"chase", std::nullopt, 0}));
}

TEST_F(LiveControlTest, RemoteStateWithoutModeLeavesModeAndDoesNotPublish) {
    control.applyLiveControlState({{"mode", "wash"}});
    EXPECT_EQ(publishes, 1);
    control.applyLiveControlState({{"theme_name", "Sunset"}, {"manual_dimmer", 0.5}});
    EXPECT_EQ(control.selectedModeId(), "wash");
    EXPECT_EQ(publishes, 1);
    EXPECT_EQ(persists, 2);
    EXPECT_EQ(engineControls().back(), (json{{"themeName", "Sunset"}, {"manualDimmer", 0.5}}));
    EXPECT_EQ(control.lastControlState(),
              (json{{"mode", "wash"}, {"theme_name", "Sunset"}, {"manual_dimmer", 0.5}}));
}

TEST_F(LiveControlTest, LerpIsClampedForDisplayAndPassedOnAsGiven) {
    control.applyLiveControlState({{"mode", "a"}, {"mode_to", "b"}, {"mode_lerp", 1.7}});
    EXPECT_EQ(control.selectedModeLerp(), 1.0);
    EXPECT_EQ(control.selectedModeTo(), "b");
    EXPECT_EQ(engineControls().back()["modeLerp"], 1.7);
    control.applyLiveControlState({{"mode", "a"}, {"mode_to", nullptr}});
    EXPECT_EQ(control.selectedModeLerp(), 0.0) << "missing lerp with a mode sets the blend to 0";
    EXPECT_EQ(control.selectedModeTo(), std::nullopt);
}

TEST_F(LiveControlTest, OfflineLocalPickIsConfirmedAtOnce) {
    paired = false;
    control.selectLightingBlend({"strobe", "wash", 0.4});
    EXPECT_EQ(sendsStarted, 0);
    EXPECT_FALSE(control.ownsModeFields());
    EXPECT_EQ(control.confirmedModeSelection(), (LightingModeSelection{"strobe", "wash", 0.4}));
    EXPECT_EQ(engineControls().back(),
              (json{{"modeId", "strobe"}, {"modeTo", "wash"}, {"modeLerp", 0.4}}));
    EXPECT_EQ(persists, 1);
    control.selectLightingBlend({"strobe", "wash", 0.4});
    EXPECT_EQ(persists, 1) << "the same selection again does nothing";
}

TEST_F(LiveControlTest, ThemesGoToTheEngineWithTheChosenName) {
    themes = json::array({{{"name", "Ice"}, {"colors", {{0, 0, 1}}}}});
    control.selectTheme("Ice");
    EXPECT_EQ(control.selectedThemeName(), "Ice");
    EXPECT_EQ(engineControls().back(), (json{{"themes", themes}, {"themeName", "Ice"}}));
    control.pushThemesToEngine();
    EXPECT_EQ(engineControls().back(), (json{{"themes", themes}, {"themeName", "Ice"}}));
}

} // namespace
} // namespace kelvo
