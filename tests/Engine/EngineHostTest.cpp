#include "Engine/EngineHost.h"

#include "Engine/BundledHarness.h"
#include "Engine/Script/ScriptString.h"
#include "support/RecordingHarness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using nlohmann::json;
using test::loggedCalls;
using test::testHarness;
using testing::ElementsAre;
using testing::HasSubstr;

MicHop hop(double low, double mid, double high, double all = -20, double onset = 0,
           double dt = 512.0 / 48000) {
    return {{low, mid, high, all, 0.25, onset}, dt, {}, 48000};
}

class RecordingHost : public testing::Test {
protected:
    void SetUp() override { host.loadHarness(testHarness()); }
    void loadShow(json show, json control = json::object()) {
        show["name"] = show.value("name", "Demo");
        subset = host.loadShow(show, control);
    }
    EngineHost host;
    std::optional<std::string> subset;
};

TEST(EngineHostLoad, AScriptThatThrowsIsPrintedAndWithoutASessionEveryCallIsANoOp) {
    EngineHost fresh, noEngine, throwing;
    testing::internal::CaptureStdout();
    throwing.loadHarness(testHarness("throws_on_load.js"));
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_THAT(printed, HasSubstr("JSC error: Error: harness failed half way\n"));
    EXPECT_THAT(printed, HasSubstr("JSC error: TypeError: tracker broken\n"));
    noEngine.loadHarness(testHarness("no_engine.js"));
    EXPECT_EQ(noEngine.loadShow({{"name", "x"}}, json::object()), std::nullopt);
    for (EngineHost* host : {&fresh, &noEngine, &throwing}) {
        EXPECT_FALSE(host->hasSession());
        EXPECT_FALSE(host->hasRealizedShow());
        EXPECT_EQ(host->updateClassical(std::vector<MicHop>{hop(-20, -20, -20)}), std::nullopt);
        EXPECT_EQ(host->step("{}", 0.016, true), std::nullopt);
        EXPECT_EQ(host->dropDiagnostics().status, "Not loaded");
    }
}

TEST_F(RecordingHost, ClassicalChainPassesLevelsThroughEveryStage) {
    MicHop h = hop(0.5, 0.2, 0.3, 0.4, 0.9, 0.01);
    h.levels.lowDominance = 0.6;
    const auto frame = host.updateClassical(std::vector<MicHop>{h});
    ASSERT_TRUE(frame);
    const json result = json::parse(*frame);
    EXPECT_EQ(result["gained"], true) << "the decibel window's result feeds the normaliser";
    EXPECT_DOUBLE_EQ(result["drop"].get<double>(), 0.5);
    EXPECT_EQ(host.lastNormalizedBands(), (MicBands{0.5, 0.2, 0.3, 0.4}));
    EXPECT_DOUBLE_EQ(host.classicalClock(), 0.01);
    EXPECT_TRUE(host.dropArmed()) << "sustained_low > 0 arms the recording detector";

    loadShow({{"result", json::object()}});
    const auto detector = loggedCalls(host, "detector");
    ASSERT_EQ(detector.size(), 1u);
    EXPECT_EQ(detector[0], json({0.5, 0.9, 0.6, 0.01}));
    EXPECT_EQ(loggedCalls(host, "tracker")[0], json({0.5, 0.01}));

    // A negative duration does not move the clock: the window sees it clamped, the detector and
    // the tracker the hop's own.
    host.updateClassical(std::vector<MicHop>{hop(0, 0, 0, -20, 0, -1.0)});
    EXPECT_DOUBLE_EQ(host.classicalClock(), 0.01);
    EXPECT_EQ(loggedCalls(host, "window")[1], 0.0);
    EXPECT_EQ(loggedCalls(host, "detector")[1][3], -1.0);
    EXPECT_EQ(loggedCalls(host, "tracker")[1][1], -1.0);
}

TEST_F(RecordingHost, ABeatAnywhereInTheBatchIsKeptAndTheRepeatedFrameClearsIt) {
    EXPECT_EQ(host.updateClassical(std::vector<MicHop>{hop(0, 0, 0, -500)}), std::nullopt)
        << "the normaliser gave no frame";

    const auto frame =
        host.updateClassical(std::vector<MicHop>{hop(0, 0, 1), hop(0, 1, 0), hop(0.3, 0, 0)});
    ASSERT_TRUE(frame);
    EXPECT_EQ(json::parse(*frame)["beat"], true);
    EXPECT_EQ(json::parse(*frame)["downbeat"], true);
    EXPECT_EQ(host.lastBeat().beatCount, 1);
    const json repeated = json::parse(host.latestFrameJSON().value_or("{}"));
    EXPECT_EQ(repeated["beat"], false);
    EXPECT_EQ(repeated["downbeat"], false);
    EXPECT_FALSE(host.lastBeat().beat);
    EXPECT_DOUBLE_EQ(host.lastBeat().drop, 0.3);
}

TEST_F(RecordingHost, SustainedDropCountsOnceAndRecentDropsKeepEight) {
    std::vector<MicHop> hops;
    for (int i = 0; i < 50; ++i)
        hops.push_back(hop(1.5, 0, 0, -20, 0, 0.1));
    host.updateClassical(hops);
    EXPECT_EQ(host.automaticDropCount(), 1);
    EXPECT_THAT(host.recentDrops(), ElementsAre("0.1s"));
    EXPECT_EQ(host.dropDiagnostics().status, "drop");

    // Ten separate drops: each needs the level back at 0 in between.
    for (int i = 0; i < 10; ++i)
        host.updateClassical(
            std::vector<MicHop>{hop(0, 0, 0, -20, 0, 1.0), hop(1, 0, 0, -20, 0, 1.0)});
    EXPECT_EQ(host.automaticDropCount(), 11);
    ASSERT_EQ(host.recentDrops().size(), 8u);
    EXPECT_EQ(host.recentDrops().front(), "25.0s") << "newest first";
}

TEST_F(RecordingHost, ShowLoadAppliesOptionsAndControlFromState) {
    const json show = json::parse(R"({"name": "Club", "result": {}, "fixtures": [
        {"id": "a", "options": {"dimmer_type": "8bit"}}, {"id": 7}, {"id": "b", "options": "bogus"}]})");
    const json control =
        json::parse(R"({"mode": "pulse", "mode_to": "chase", "theme_name": "Sunset",
        "manual_fixture_dimmers": {"a": 0.2, "b": 1.7}})");
    subset = host.loadShow(show, control);
    ASSERT_TRUE(subset);

    EXPECT_EQ(loggedCalls(host, "build")[0], json({"Club", control}));
    EXPECT_EQ(loggedCalls(host, "applyFixtureOptions")[0], json::parse(R"([
        {"id": "a", "options": {"dimmer_type": "8bit"}}, {"id": "b", "options": {}}])"));
    // How the engine lights the state's mode and dimmers is the harness contract's test.
    EXPECT_EQ(loggedCalls(host, "applyControl")[0]["themeName"], "Sunset");
}

TEST_F(RecordingHost, AStagedShowSwitchesInOneGoWhileTheOldOneKeepsStepping) {
    loadShow({{"name", "Old"}, {"result", {{"dmx", {{"1", {1}}}}}}});
    const auto stage = [this](int level) {
        const json show = {{"name", "New"},
                           {"result", {{"dmx", {{"1", {level}}}}}},
                           {"fixtures", {{{"id", "a"}, {"x", 1}, {"y", 2}}}}};
        const EngineHost::ShowTexts texts = EngineHost::showTexts(show, {{"mode", "pulse"}});
        return std::pair{texts, host.stageShow(texts)};
    };
    const auto [olderTexts, older] = stage(2);
    const auto [texts, staged] = stage(3);
    const std::optional<std::string> text = host.stagedShowText(staged);
    ASSERT_TRUE(text);
    EXPECT_EQ(json::parse(*text)["name"], "New");
    EXPECT_EQ(host.stagedShowText(older), std::nullopt) << "the newer stage dropped it";
    EXPECT_FALSE(host.switchToStagedShow(older, olderTexts, {}));
    EXPECT_EQ(host.step("{}", 1.0 / 60, false), (DmxFrame{{1, {1}}})) << "the old show steps on";

    ASSERT_TRUE(
        host.switchToStagedShow(staged, texts, EngineHost::fixturePositionsFromSubset(*text)));
    EXPECT_EQ(host.step("{}", 1.0 / 60, true), (DmxFrame{{1, {3}}}));
    EXPECT_FALSE(host.switchToStagedShow(staged, texts, {})) << "a stage switches once";
}

TEST_F(RecordingHost, AStagedHarnessTakesOverTogetherWithItsShow) {
    loadShow({{"name", "Old"}, {"result", {{"dmx", {{"1", {1}}}}}}});
    ASSERT_TRUE(host.stageHarness(testHarness()));
    const json show = {{"name", "New"},
                       {"result", {{"dmx", {{"1", {2}}}}}},
                       {"fixtures", {{{"id", "a"}}, {{"id", "b"}}}}};
    const EngineHost::ShowTexts texts = EngineHost::showTexts(show, json::object());
    const EngineHost::StagedShow staged = host.stageShow(texts);
    for (int ahead = 0; host.canLoadStagedShowAhead(staged); ++ahead) {
        ASSERT_LT(ahead, 3);
        host.loadStagedShowAhead(staged, texts);
        EXPECT_EQ(host.step("{}", 1.0 / 60, false), (DmxFrame{{1, {1}}}))
            << "the old engine steps on";
    }
    int retired = 0;
    QObject::connect(&host, &EngineHost::engineRetired, [&retired] { ++retired; });
    ASSERT_TRUE(host.switchToStagedShow(staged, texts, {}));
    EXPECT_FALSE(host.hasStagedHarness());
    EXPECT_EQ(retired, 1);
    EXPECT_TRUE(host.hasRetiredEngine()) << "not torn down inside the switch";
    EXPECT_EQ(host.step("{}", 1.0 / 60, false), (DmxFrame{{1, {2}}}));
    EXPECT_EQ(loggedCalls(host, "step").size(), 1u) << "a fresh engine: the old one's log is gone";
    // Warmed on a one-fixture sample, then the whole show ahead, not again at the switch.
    const std::vector<json> loads = loggedCalls(host, "loadShow");
    ASSERT_EQ(loads.size(), 2u);
    EXPECT_EQ(loads[0]["fixtures"].size(), 1u);
    EXPECT_EQ(loads[1]["fixtures"].size(), 2u);
}

TEST_F(RecordingHost, AHarnessBuiltInPiecesIsStagedOnlyWhenCompleteAndAnAbandonedOneLeavesNothing) {
    loadShow({{"name", "Old"}, {"result", {{"dmx", {{"1", {1}}}}}}});
    const std::uint64_t replaced = host.beginHarness(testHarness());
    ASSERT_FALSE(host.continueHarness());
    const std::uint64_t newer = host.beginHarness(testHarness());
    host.abandonHarness(replaced); // the replaced download's cancellation arrives late
    int pieces = 1;
    for (; !host.continueHarness(); ++pieces) {
        EXPECT_FALSE(host.hasStagedHarness());
        EXPECT_EQ(host.step("{}", 1.0 / 60, false), (DmxFrame{{1, {1}}}))
            << "the old engine steps on";
    }
    EXPECT_EQ(pieces, 4);
    host.abandonHarness(newer);
    EXPECT_TRUE(host.hasStagedHarness()) << "a complete build waits for its show";

    const std::uint64_t cancelled = host.beginHarness(testHarness());
    host.continueHarness();
    host.continueHarness();
    host.abandonHarness(cancelled);
    EXPECT_TRUE(host.continueHarness());
    host.installStagedHarness();
    EXPECT_FALSE(host.hasStagedHarness());
    EXPECT_EQ(host.step("{}", 1.0 / 60, false), (DmxFrame{{1, {1}}})) << "nothing half-built runs";
}

TEST_F(RecordingHost, ApplyControlMapRules) {
    loadShow({{"result", json::object()}});
    host.applyControl({.modeId = ""});
    host.applyControl({});
    EXPECT_TRUE(loggedCalls(host, "applyControl").empty());

    host.applyControl({.modeId = "wash"});
    host.applyControl({.modeTo = "ignored-without-mode",
                       .themeName = "Ice",
                       .themes = json::array({{{"name", "Ice"}}}),
                       .manualDimmer = -3});
    // A blend and the dimmer reaching the lights are the harness contract's tests.
    const auto applied = loggedCalls(host, "applyControl");
    ASSERT_EQ(applied.size(), 2u);
    EXPECT_EQ(applied[0], (json{{"modeId", "wash"}, {"modeTo", nullptr}, {"modeLerp", 0}}));
    EXPECT_EQ(applied[1],
              (json{{"themeName", "Ice"}, {"themes", {{{"name", "Ice"}}}}, {"manualDimmer", 0}}));

    // Text from outside that is not UTF-8 reaches the script mended, never as an exception.
    host.applyControl({.modeId = "wash\xff"});
    EXPECT_EQ(loggedCalls(host, "applyControl").back()["modeId"], "wash\uFFFD");
}

TEST(EngineHostManualDimmer, FirstMatchWins) {
    const std::pair<json, std::optional<double>> cases[] = {
        {{{"manual_dimmer", 3}, {"manual_fixture_dimmers", {{"a", 0.1}}}}, 1.0},
        {{{"manual_fixture_dimmers", {{"a", -2}, {"b", "x"}}}}, 0.0},
        {{{"manual_fixture_dimmers", {{"a", "0.5"}}}}, std::nullopt},
        {json::array(), std::nullopt}};
    for (const auto& [state, expected] : cases)
        EXPECT_EQ(EngineHost::manualDimmer(state), expected) << state;
}

/// A show of `count` placed fixtures that the plot draws.
json plotResult(int count) {
    json fixtures = json::array(), positions = json::array();
    for (int i = 0; i < count; ++i) {
        fixtures.push_back({{"id", std::to_string(i)}, {"dimmer", 255}});
        positions.push_back({{"id", std::to_string(i)}, {"x", i}, {"y", 3}});
    }
    return {{"fixtures", positions}, {"result", {{"fixtures", fixtures}}}};
}

TEST_F(RecordingHost, StepThatFailsOrGivesNoDmxLeavesTheLastBuffers) {
    EXPECT_EQ(host.step("{}", 0.016, true), std::nullopt) << "no show yet";
    loadShow({{"result", {{"dmx", {{"1", {255, 256}}}}}}}); // the byte rules are DmxFrame's
    EXPECT_EQ(host.step(R"({"beat":true})", 1.0 / 60, false), (DmxFrame{{1, {255, 0}}}));
    EXPECT_EQ(loggedCalls(host, "step")[0], json({{{"beat", true}}, 1.0 / 60}));
    for (const json& result : {json::object(), json{{"dmx", 5}}, json{{"dmx", nullptr}}}) {
        loadShow({{"result", result}});
        EXPECT_EQ(host.step("{}", 0.016, false), std::nullopt) << result;
    }
    loadShow({{"result", {{"dmx", {{"1", 5}}}}}});
    EXPECT_EQ(host.step("{}", 0.016, false), DmxFrame{}) << "a dmx object, but no universe";

    std::vector<std::optional<EngineScriptFault>> faults;
    QObject::connect(&host, &EngineHost::faultChanged,
                     [&](auto, auto current) { faults.push_back(current); });
    json show = plotResult(2);
    show["result"]["dmx"] = {{"1", {9}}};
    loadShow(show);
    ASSERT_EQ(host.step("{}", 0.016, true), (DmxFrame{{1, {9}}}));
    testing::internal::CaptureStdout();
    EXPECT_EQ(host.step(R"({"throw":true})", 0.016, true), std::nullopt);
    EXPECT_EQ(host.step(R"({"throw":true})", 0.016, true), std::nullopt);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "JSC error: Error: step exploded\n")
        << "the same error again within seconds is held back";
    // A text longer than the host copies out is cut between whole characters.
    testing::internal::CaptureStdout();
    const std::size_t longest = script::ScriptString::maximumUtf8Bytes;
    EXPECT_EQ(host.step(json{{"throwLong", longest / 2 + 3}}.dump(), 0.016, true), std::nullopt);
    std::string cut = "JSC error: ";
    for (std::size_t i = 0; i < longest / 2; ++i)
        cut += "é";
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(printed == cut + "\n") << printed.size() << " bytes printed";
    EXPECT_EQ(host.lightingPlot().lamps.size(), 2u) << "a failed step leaves the plot";
    EXPECT_EQ(host.fault(), EngineScriptFault::stepFailed);
    EXPECT_TRUE(host.step("{}", 0.016, false));
    EXPECT_EQ(faults, (std::vector<std::optional<EngineScriptFault>>{EngineScriptFault::stepFailed,
                                                                     std::nullopt}));
}

TEST(EngineHostTimeLimit, ScriptThatRunsOutOfTimeIsLeftAloneThenRetried) {
    using namespace std::chrono_literals;
    const auto clock = std::make_shared<ManualMonotonicClock>();
    EngineHost host(clock, {.call = 5ms});
    host.loadHarness(testHarness());
    host.loadShow({{"name", "x"}, {"result", {{"dmx", {{"1", {7}}}}}}}, json::object());
    std::vector<std::optional<EngineScriptFault>> faults;
    QObject::connect(&host, &EngineHost::faultChanged,
                     [&](auto, auto current) { faults.push_back(current); });

    testing::internal::CaptureStdout();
    EXPECT_EQ(host.step(R"({"spin":true})", 0.016, false), std::nullopt);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "") << "running out of time is no JSC error";
    EXPECT_EQ(host.fault(), EngineScriptFault::stoppedResponding);
    EXPECT_STREQ(description(*host.fault()),
                 "Lighting engine script stopped responding — holding the last look and retrying.");
    clock->advance(999ms);
    EXPECT_FALSE(host.hasRealizedShow());
    host.applyControl({.modeId = "wash"});
    host.applyControl({.themeName = "Ice"});
    host.setForcedDrop(true);
    host.setForcedDrop(false); // a drop let go while the script is left alone
    clock->advance(1ms);
    ASSERT_TRUE(host.hasRealizedShow());
    // What was asked meanwhile reaches it when it is retried: each value at its newest, once.
    EXPECT_EQ(loggedCalls(host, "setForcedDrop"), (std::vector<json>{false}));
    EXPECT_EQ(
        loggedCalls(host, "applyControl"),
        (std::vector<json>{
            {{"modeId", "wash"}, {"modeTo", nullptr}, {"modeLerp", 0.0}, {"themeName", "Ice"}}}));

    // Another timeout in a row waits twice as long; a step in time starts over.
    EXPECT_EQ(host.step(R"({"spin":true})", 0.016, false), std::nullopt);
    clock->advance(1s);
    EXPECT_FALSE(host.hasRealizedShow());
    clock->advance(1s);
    EXPECT_EQ(host.step("{}", 0.016, false), (DmxFrame{{1, {7}}}));
    EXPECT_EQ(host.step(R"({"spin":true})", 0.016, false), std::nullopt);
    clock->advance(1s);
    EXPECT_TRUE(host.hasRealizedShow()) << "a step in time started the delays over";
    EXPECT_EQ(faults, (std::vector<std::optional<EngineScriptFault>>{
                          EngineScriptFault::stoppedResponding, std::nullopt,
                          EngineScriptFault::stoppedResponding}));

    // Optimised code is stopped too, every time (it once hung one timeout in dozens).
    for (int i = 0; i < 100; ++i) {
        clock->advance(8s);
        ASSERT_EQ(host.step(R"({"spin":true})", 0.016, false), std::nullopt);
    }
}

TEST(EngineHostTimeLimit, ANewEngineThatHangsLoadingItsShowAheadIsRetriedAfterTakingOver) {
    using namespace std::chrono_literals;
    const auto clock = std::make_shared<ManualMonotonicClock>();
    EngineHost host(clock, {.call = 5ms, .load = 5ms});
    host.loadHarness(testHarness());
    ASSERT_TRUE(host.stageHarness(testHarness()));
    const auto texts = EngineHost::showTexts({{"name", "Spins"}}, json::object());
    const EngineHost::StagedShow staged = host.stageShow(texts);
    ASSERT_TRUE(host.canLoadStagedShowAhead(staged));
    host.loadStagedShowAhead(staged, texts);
    EXPECT_FALSE(host.canLoadStagedShowAhead(staged));
    EXPECT_EQ(host.fault(), std::nullopt) << "the running engine is fine until it is replaced";
    EXPECT_FALSE(host.switchToStagedShow(staged, texts, {}));
    EXPECT_EQ(host.fault(), EngineScriptFault::stoppedResponding);
    clock->advance(1s);
    host.loadShow({{"name", "Fine"}, {"result", {{"dmx", {{"1", {4}}}}}}}, json::object());
    EXPECT_EQ(host.step("{}", 0.016, false), (DmxFrame{{1, {4}}})) << "retried, not stuck";
}

TEST(EngineHostTimeLimit, HarnessThatHangsAtLoadGivesWayToTheBuiltInEngine) {
    using namespace std::chrono_literals;
    EngineHost host(std::make_shared<SteadyMonotonicClock>(), {.load = 100ms});
    EXPECT_FALSE(host.loadHarness(testHarness("spins_on_load.js")));
    EXPECT_EQ(host.fault(), EngineScriptFault::loadTookTooLong);
    EXPECT_TRUE(host.hasSession());
    EXPECT_EQ(bundledHarnessScript(), test::readText(std::filesystem::path(KELVO_SOURCE_DIR) /
                                                     "devcloud/harness/engine.js"));
    EXPECT_TRUE(host.loadHarness(testHarness()));
    EXPECT_EQ(host.fault(), std::nullopt);
}

TEST_F(RecordingHost, CachedShowReloadsTheSubsetAndPositions) {
    loadShow(plotResult(4));
    ASSERT_TRUE(subset);
    EngineHost restarted;
    restarted.loadHarness(testHarness());
    testing::internal::CaptureStdout();
    restarted.loadCachedShow("{not json");
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(restarted.hasRealizedShow());
    restarted.loadCachedShow(*subset);
    EXPECT_TRUE(restarted.hasRealizedShow());
    restarted.step("{}", 0.016, true);
    EXPECT_EQ(restarted.lightingPlot().lamps.size(), 4u);

    // Bytes that are not UTF-8 are not a show: nothing is loaded, the positions stay.
    std::string damaged = *subset;
    damaged.insert(damaged.find('{') + 1, "\"\xc3\x28\":0,");
    const std::size_t loaded = loggedCalls(restarted, "loadShow").size();
    restarted.loadCachedShow(damaged);
    EXPECT_EQ(loggedCalls(restarted, "loadShow").size(), loaded);
    restarted.step("{}", 0.016, true);
    EXPECT_EQ(restarted.lightingPlot().lamps.size(), 4u);
}

} // namespace
} // namespace kelvo
