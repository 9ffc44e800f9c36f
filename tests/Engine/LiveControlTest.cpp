#include "Engine/LiveControl.h"

#include "Cloud/BridgeAPIError.h"
#include "Cloud/URLRequestPerforming.h"
#include "Engine/EngineHost.h"

#include "support/RecordingHarness.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

/// The cloud's control-state endpoint: each request waits until the test answers it.
struct ScriptedControlEndpoint {
    struct Request {
        json fields;
        std::string token;
        OneShotEvent answered;
        std::exception_ptr failure;
    };

    QCoro::Task<> send(json fields, std::string token, CancellationToken cancel) {
        const auto request = requests.emplace_back(std::make_shared<Request>());
        request->fields = std::move(fields);
        request->token = std::move(token);
        const auto subscription = cancel.onCancel([request] { request->answered.fire(); });
        co_await request->answered;
        cancel.throwIfCancelled();
        if (request->failure)
            std::rethrow_exception(request->failure);
    }

    /// Answers the oldest unanswered request, with `failure` if given.
    void answer(std::exception_ptr failure = nullptr) {
        for (const auto& request : requests)
            if (!request->answered.hasFired()) {
                request->failure = failure;
                request->answered.fire();
                return;
            }
        ADD_FAILURE() << "no request waits for an answer";
    }

    std::vector<std::shared_ptr<Request>> requests;
};

/// A live control over the recording harness, with what it announced.
struct LiveControlRig {
    LiveControlRig() {
        engine.loadHarness(test::testHarness());
        engine.loadShow({{"name", "Demo"}, {"result", json::object()}}, json::object());
        QObject::connect(&control, &LiveControl::remoteModeApplied, [this] { ++publishes; });
        QObject::connect(&control, &LiveControl::workspaceEdited, [this] { ++persists; });
        QObject::connect(&control, &LiveControl::controlChangeFailed,
                         [this](const QString& text) { failures.push_back(text.toStdString()); });
        QObject::connect(&control, &LiveControl::isUpdatingControlChanged,
                         [this] { updating.push_back(control.isUpdatingControl()); });
    }
    LiveControlQueries queries() {
        return {
            .themePayloads =
                [this] { return themes.empty() ? std::nullopt : std::optional(themes); },
            .deviceToken =
                [this] { return paired ? std::optional<std::string>("dev-token") : std::nullopt; },
            .sendControlState =
                [this](json fields, std::string token, CancellationToken cancel) {
                    return cloud.send(std::move(fields), std::move(token), std::move(cancel));
                }};
    }
    std::vector<json> engineControls() { return test::loggedCalls(engine, "applyControl"); }

    EngineHost engine;
    ManualMonotonicClock clock;
    json themes = json::array();
    bool paired = true;
    ScriptedControlEndpoint cloud;
    int publishes = 0, persists = 0;
    std::vector<std::string> failures;
    std::vector<bool> updating;
    LiveControl control{engine, clock, queries()};
};

class LiveControlTest : public testing::Test, protected LiveControlRig {};

std::exception_ptr httpError(int status) {
    return std::make_exception_ptr(BridgeAPIError::httpError(status));
}

TEST(LiveControl, ALocalPickOwnsTheModeWhileSendingAndForSixTenthsOfASecond) {
    struct Case {
        const char* name;
        std::optional<std::chrono::milliseconds> answeredAt; // nullopt: still sending
        std::chrono::milliseconds remoteAt;
        bool localWins;
    };
    const std::vector<Case> cases{
        {"send outlasting the window", std::nullopt, 700ms, true},
        {"sent, window still open", 100ms, 599ms, true},
        {"sent, window just closed", 100ms, 600ms, false},
        {"sent late, after the window", 800ms, 801ms, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LiveControlRig rig;
        const auto start = rig.clock.now();
        rig.control.applyLiveControlState({{"mode", "wash"}});
        rig.control.selectLightingBlend({"pulse", std::nullopt, 0});
        ASSERT_EQ(rig.cloud.requests.size(), 1u);
        if (c.answeredAt) {
            rig.clock.advance(*c.answeredAt);
            rig.cloud.answer();
        }
        rig.clock.set(start + c.remoteAt);
        rig.control.applyLiveControlState({{"mode", "chase"}, {"theme_name", "Ice"}});
        const std::string winner = c.localWins ? "pulse" : "chase";
        EXPECT_EQ(rig.control.selectedModeId(), winner);
        EXPECT_EQ(rig.control.selectedThemeName(), "Ice") << "the other keys always apply";
        EXPECT_EQ(rig.engineControls().back()["modeId"], winner);
        if (!c.answeredAt)
            rig.cloud.answer();
        EXPECT_EQ(rig.control.confirmedModeSelection()->modeId, winner)
            << "an overridden echo confirms nothing";
    }
}

TEST_F(LiveControlTest, PicksMadeDuringASendCollapseIntoTheNewest) {
    control.selectLightingBlend({"pulse", std::nullopt, 0});
    control.selectLightingBlend({"pulse", "wash", 0.3});
    control.selectLightingBlend({"pulse", "wash", 0.6});
    ASSERT_EQ(cloud.requests.size(), 1u) << "one request at a time";
    cloud.answer(httpError(500)); // superseded: its failure is nobody's concern
    ASSERT_EQ(cloud.requests.size(), 2u);
    EXPECT_EQ(cloud.requests[1]->fields,
              (json{{"mode", "pulse"}, {"mode_to", "wash"}, {"mode_lerp", 0.6}}));
    EXPECT_EQ(cloud.requests[1]->token, "dev-token");
    cloud.answer();
    EXPECT_EQ(control.confirmedModeSelection(), (LightingModeSelection{"pulse", "wash", 0.6}));
    EXPECT_TRUE(failures.empty());
    EXPECT_EQ(updating, (std::vector<bool>{true, false}));
}

TEST_F(LiveControlTest, ARefusedPickReturnsToTheCloudsLatestChoiceAnUnreachableCloudKeepsIt) {
    struct Case {
        std::exception_ptr failure;
        json meanwhile; // what the cloud pushed while the pick was sent
        std::string modeAfter;
        std::string status;
    };
    const json pushed = {{"mode", "chase"}, {"mode_to", "wash"}, {"mode_lerp", 0.5}};
    const std::vector<Case> cases{
        {httpError(409), nullptr, "wash", "Couldn’t switch mode: Server returned HTTP 409"},
        {httpError(403), pushed, "chase", "Couldn’t switch mode: Server returned HTTP 403"},
        {httpError(503), nullptr, "pulse", "Couldn’t switch mode: Server returned HTTP 503"},
        {std::make_exception_ptr(TransportError("Connection refused")), nullptr, "pulse",
         "Couldn’t switch mode: Connection refused"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.status);
        clock.advance(1s); // the previous pick's window is over
        control.applyLiveControlState({{"mode", "wash"}, {"mode_to", nullptr}, {"mode_lerp", 0.2}});
        failures.clear();
        control.selectLightingBlend({"pulse", std::nullopt, 0});
        if (!c.meanwhile.is_null())
            control.applyLiveControlState(c.meanwhile);
        EXPECT_EQ(control.selectedModeId(), "pulse");
        cloud.answer(c.failure);
        EXPECT_EQ(control.selectedModeId(), c.modeAfter);
        EXPECT_EQ(engineControls().back()["modeId"], c.modeAfter);
        EXPECT_EQ(failures, std::vector<std::string>{c.status});
    }
}

TEST_F(LiveControlTest, AColourSchemeIsSentAfterTheEngineHasIt) {
    themes = json::array({{{"name", "Ice"}, {"colors", {{0, 0, 1}}}}});
    control.selectTheme("Ice");
    EXPECT_EQ(engineControls().back(), (json{{"themes", themes}, {"themeName", "Ice"}}));
    EXPECT_FALSE(control.ownsModeFields()) << "a colour scheme leaves the mode to the cloud";
    control.selectTheme("Fire");
    ASSERT_EQ(cloud.requests.size(), 1u);
    cloud.answer();
    ASSERT_EQ(cloud.requests.size(), 2u);
    EXPECT_EQ(cloud.requests[1]->fields, (json{{"theme_name", "Fire"}}));
    cloud.answer(httpError(500));
    EXPECT_EQ(failures, std::vector<std::string>{"Couldn’t switch color scheme: Server returned "
                                                 "HTTP 500"});
    EXPECT_EQ(control.selectedThemeName(), "Fire") << "the engine keeps the operator's scheme";
    control.pushThemesToEngine();
    EXPECT_EQ(engineControls().back(), (json{{"themes", themes}, {"themeName", "Fire"}}));
}

TEST_F(LiveControlTest, OfflinePicksAreFinalAndNothingIsSent) {
    paired = false;
    control.selectLightingBlend({"strobe", "wash", 0.4});
    control.selectTheme("Ice");
    EXPECT_TRUE(cloud.requests.empty());
    EXPECT_EQ(control.confirmedModeSelection(), (LightingModeSelection{"strobe", "wash", 0.4}));
    EXPECT_EQ(persists, 2);
    control.selectLightingBlend({"strobe", "wash", 0.4});
    EXPECT_EQ(persists, 2) << "the same selection again does nothing";
}

TEST_F(LiveControlTest, RemoteStateIsAppliedItsLerpClampedForDisplayAndPassedOnAsGiven) {
    control.applyLiveControlState({{"mode", "a"}, {"mode_to", "b"}, {"mode_lerp", 1.7}});
    EXPECT_EQ(control.selectedModeLerp(), 1.0);
    EXPECT_EQ(engineControls().back()["modeLerp"], 1.7);
    control.applyLiveControlState({{"mode", "wash"}, {"mode_to", nullptr}});
    EXPECT_EQ(control.selectedModeLerp(), 0.0) << "missing lerp with a mode sets the blend to 0";
    EXPECT_EQ(publishes, 2);

    // Without a mode the mode stays and nothing is published.
    control.applyLiveControlState({{"theme_name", "Sunset"}, {"manual_dimmer", 0.5}});
    EXPECT_EQ(control.selectedModeId(), "wash");
    EXPECT_EQ(publishes, 2);
    EXPECT_EQ(persists, 3);
    EXPECT_EQ(engineControls().back(), (json{{"themeName", "Sunset"}, {"manualDimmer", 0.5}}));
    EXPECT_EQ(control.lastControlState(), json::parse(R"({"mode": "wash", "mode_to": null,
        "mode_lerp": 1.7, "theme_name": "Sunset", "manual_dimmer": 0.5})"))
        << "the cloud's keys merged";
}

} // namespace
} // namespace kelvo
