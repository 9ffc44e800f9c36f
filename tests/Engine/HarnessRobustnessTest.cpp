#include "Engine/HarnessRig.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kelvo {
namespace {

using nlohmann::json;

class HarnessOddInput : public ::testing::Test {
protected:
    void SetUp() override { host_.loadHarness(testing::harnessSource()); }
    void TearDown() override { EXPECT_FALSE(watch_.scriptThrew()); }

    testing::ScriptErrorWatch watch_;
    EngineHost host_;
};

TEST_F(HarnessOddInput, AnEmptyShowIsRealizedAndRendersNothing) {
    const auto subset = host_.loadShow(json::object(), json::object());
    ASSERT_TRUE(subset.has_value());
    EXPECT_TRUE(host_.hasRealizedShow());
    const auto dmx = host_.step("{}", 1.0 / 60, true);
    ASSERT_TRUE(dmx.has_value());
    EXPECT_TRUE(dmx->empty());
    EXPECT_TRUE(host_.lightingPlot().lamps.empty());
    EXPECT_FALSE(host_.liveScheme().empty()); // the default palette still shows
    const auto payload = json::parse(host_.interpretationPayload().value_or("null"));
    EXPECT_TRUE(payload["tree"]["children"].empty());
}

TEST_F(HarnessOddInput, MalformedFixturesAreSkippedOrDefaulted) {
    const json show = {
        {"summary", {{"id", "odd"}}},
        {"fixture_definitions",
         {{"rgb", {{"dmx_address_width", 3}}},
          {"wide",
           {{"dmx_address_width", 600}, {"channels", {"dimmer", 7, nullptr, {{"type", 3}}}}}},
          {"broken", "not an object"}}},
        {"fixtures",
         {{{"id", "a"}, {"fixture_type", "rgb"}, {"universe", -4}, {"address", 0}},
          {{"id", "b"}, {"fixture_type", "rgb"}, {"universe", "2"}, {"address", 510}},
          {{"id", "c"}, {"fixture_type", "wide"}, {"universe", 2}, {"address", 1}},
          {{"id", "d"}, {"fixture_type", "broken"}, {"universe", 3}, {"address", 1}},
          {{"id", "e"}, {"fixture_type", "unknown"}, {"universe", 4.7}, {"address", 2.2}},
          {{"name", "no id"}, {"fixture_type", "rgb"}, {"universe", 5}},
          "just a string",
          nullptr,
          {{"id", 17}}}},
        {"lighting_modes", {1, "x", {{"key", 5}}}},
        {"scene_objects", "nope"}};
    const auto subset = host_.loadShow(show, {{"mode", 42}, {"theme_name", nullptr}});
    ASSERT_TRUE(subset.has_value());
    EXPECT_EQ(json::parse(*subset)["fixtures"].size(), 5u);
    const auto dmx = host_.step("{\"bpm\": \"fast\", \"beat\": 1, \"low\": null}", 1.0 / 60, true);
    ASSERT_TRUE(dmx.has_value());
    // "a" lands on universe 1 address 1 (3 wide); "b" is on 1 too (a string universe) at 510.
    ASSERT_TRUE(dmx->count(1));
    EXPECT_EQ(dmx->at(1).size(), 512u);
    // "c" is 600 wide but cut at the end of its universe.
    ASSERT_TRUE(dmx->count(2));
    EXPECT_EQ(dmx->at(2).size(), 512u);
    EXPECT_TRUE(dmx->count(3));
    EXPECT_TRUE(dmx->count(4)); // 4.7 → 4
}

TEST_F(HarnessOddInput, AbsurdWidthsStayWithinAUniverse) {
    const json show = {
        {"summary", {{"id", "wide"}}},
        {"fixture_definitions", {{"huge", {{"dmx_address_width", 1e12}}}}},
        {"fixtures",
         {{{"id", "h"}, {"fixture_type", "huge"}, {"universe", 1}, {"address", 3}},
          {{"id", "m"},
           {"fixture_type", "pelorin/manual-dimmer@1ch"},
           {"universe", 2},
           {"address", 500},
           {"options", {{"width", 1e15}}}},
          {{"id", "far"}, {"fixture_type", "huge"}, {"universe", 3}, {"address", 1e9}}}}};
    ASSERT_TRUE(host_.loadShow(show, {{"mode", "static"}}).has_value());
    const auto dmx = host_.step("{}", 1.0 / 60, true);
    ASSERT_TRUE(dmx.has_value());
    ASSERT_EQ(dmx->size(), 3u);
    for (const auto& [universe, bytes] : *dmx) {
        EXPECT_EQ(bytes.size(), 512u) << universe;
    }
    EXPECT_GT(dmx->at(2)[511], 0); // the dimmer pack runs to the end of its universe
    EXPECT_TRUE(std::all_of(dmx->at(3).begin(), dmx->at(3).end(), [](auto b) { return b == 0; }));
}

TEST_F(HarnessOddInput, AtMost64UniversesAreProducedTheLowestFirst) {
    json fixtures = json::array();
    for (int u = 70; u >= 1; --u) {
        fixtures.push_back({{"id", "f" + std::to_string(u)},
                            {"fixture_type", "dim"},
                            {"universe", u},
                            {"address", 1}});
    }
    const json show = {{"summary", {{"id", "many"}}},
                       {"fixture_definitions", {{"dim", {{"dmx_address_width", 1}}}}},
                       {"fixtures", fixtures}};
    host_.loadShow(show, {{"mode", "static"}});
    const auto dmx = host_.step("{}", 1.0 / 60, false);
    ASSERT_TRUE(dmx.has_value());
    ASSERT_EQ(dmx->size(), 64u);
    EXPECT_EQ(dmx->begin()->first, 1);
    EXPECT_EQ(dmx->rbegin()->first, 64);
    for (const auto& [universe, bytes] : *dmx) {
        ASSERT_EQ(bytes.size(), 1u);
        EXPECT_GT(bytes[0], 200) << universe;
    }
    // The fixtures left out are not claimed in the interpretation either.
    const auto tree = json::parse(host_.interpretationPayload().value_or("null"))["tree"];
    ASSERT_EQ(tree["children"].size(), 1u);
    const auto& ids = tree["children"][0]["children"][0]["fixtures"];
    EXPECT_EQ(ids.size(), 64u);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), "f65"), 0);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), "f64"), 1);
}

TEST_F(HarnessOddInput, HostileControlAndFramesNeverThrow) {
    auto boot = testing::demoBootstrap();
    host_.loadShow(boot["active_show"], boot["control_state"]);
    host_.applyControl(
        {.modeId = "chase",
         .modeTo = "",
         .modeLerp = 7.5,
         .themeName = "Empty",
         .themes = json::array({json(nullptr), json("x"), json{{"name", ""}},
                                json{{"name", "Odd"}, {"palette", {{1}, "red", {0.2, 0.3, 0.4}}}},
                                json{{"name", "Empty"}, {"palette", json::array()}}}),
         .manualDimmer = 0.4});
    for (const char* frame :
         {"{}", "null", "[]", "{\"beat\": true, \"bpm\": -3}",
          "{\"bpm\": 1e308, \"phase\": \"x\", \"drop\": 1e9}", "{\"beat\": true, \"bpm\": 0}"}) {
        const auto dmx = host_.step(frame, 1.0 / 60, true);
        ASSERT_TRUE(dmx.has_value()) << frame;
        EXPECT_EQ(dmx->size(), 3u);
    }
    for (double dt : {0.0, -1.0, 1e9}) {
        EXPECT_TRUE(host_.step("{}", dt, false).has_value());
    }
    host_.applyControl({.themeName = "Odd"});
    host_.step("{}", 1.0 / 60, true);
    EXPECT_EQ(host_.liveScheme().size(), 1u);
    EXPECT_EQ(host_.liveScheme().front(), (ThemePaletteColor{0.2, 0.3, 0.4}));
}

TEST_F(HarnessOddInput, OddBandLevelsGiveFiniteBands) {
    std::vector<MicHop> hops;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (int i = 0; i < 400; ++i) {
        MicHop hop;
        hop.dt = i % 7 == 0 ? -1.0 : 512.0 / 48000;
        hop.levels = {i % 3 ? -20.0 : nan, i % 5 ? -30.0 : inf, -inf, 1e6, 7.0, -3.0};
        hops.push_back(hop);
    }
    const auto json = host_.updateClassical(hops);
    ASSERT_TRUE(json.has_value());
    const auto frame = json::parse(*json);
    for (const auto& [key, value] : frame.items()) {
        if (value.is_number()) {
            EXPECT_TRUE(std::isfinite(value.get<double>())) << key;
        }
    }
    const MicBands bands = host_.lastNormalizedBands();
    for (double v : {bands.low, bands.mid, bands.high, bands.all}) {
        EXPECT_GE(v, 0.0);
        EXPECT_LE(v, 1.0);
    }
}

TEST_F(HarnessOddInput, TheDecibelWindowAdaptsAQuietRoomAndAHotFeedAlike) {
    // The same music 40 dB apart: after a few seconds both give usable 0…1 bands.
    testing::DanceTrackSpec quiet{.bpm = 122, .seconds = 12, .gainDecibels = -46};
    testing::DanceTrackSpec hot = quiet;
    hot.gainDecibels = -6;
    std::vector<double> peaks;
    for (const auto& spec : {quiet, hot}) {
        EngineHost host;
        host.loadHarness(testing::harnessSource());
        double peak = 0;
        double clock = 0;
        for (const MicHop& hop : testing::hopsOf(testing::SyntheticDanceTrack(spec))) {
            host.updateClassical(std::span<const MicHop>(&hop, 1));
            clock += hop.dt;
            if (clock > 4) {
                peak = std::max(peak, host.lastNormalizedBands().low);
            }
        }
        peaks.push_back(peak);
        EXPECT_NEAR(host.lastBeat().bpm, 122, 1.0);
    }
    EXPECT_GT(peaks[0], 0.8);
    EXPECT_GT(peaks[1], 0.8);
}

} // namespace
} // namespace kelvo
