#include "Show/ShowPatchBuilder.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kelvo {
namespace {

using nlohmann::json;
using namespace ShowPatchBuilder;
using F = PatchFixture;

json snapshotWith(json fixtures, json definitions = json::object()) {
    return {{"summary", {{"id", "show-1"}, {"name", "Main Stage"}}},
            {"revision", 12},
            {"fixture_definitions", definitions},
            {"fixtures", fixtures}};
}

json positioned(const std::string& id, json x, json y, const std::string& group) {
    return {{"id", id}, {"x", x}, {"y", y}, {"group_name", group}};
}

F placed(const std::string& id, std::int64_t universe, std::int64_t address, std::int64_t width,
         bool disabled = false) {
    return {id, "", "", universe, address, width, std::nullopt, disabled, false};
}

TEST(ShowPatchBuild, NeedsASummaryWithATextId) {
    for (const json& snapshot : {json::object(), json::array(), json{{"summary", "show-1"}},
                                 json{{"summary", {{"id", 7}}}}})
        EXPECT_FALSE(build(snapshot)) << snapshot;
    EXPECT_EQ(build(json{{"summary", {{"id", "s"}}}, {"revision", "4"}}),
              (ShowPatch{"s", "", 0, {0, 0, 1, 1, {}}, {}}));
}

TEST(ShowPatchBuild, ReadsEachRowWithItsDefaultsGroupedInFirstAppearanceOrderByAddress) {
    const json definitions = {{"acme/spot", {{"label", "Spot"}, {"dmx_address_width", 12}}},
                              {"wide", {{"dmx_address_width", 8}}},
                              {"broken", "not an object"}};
    const auto patch = build(snapshotWith(json::parse(R"([
        {"id": "s1", "name": "Spot L", "fixture_type": "acme/spot", "group_name": "Truss",
         "universe": 2, "address": 101, "is_disabled": false},
        {"id": 5},
        {"id": "b1", "fixture_type": "broken", "group_name": "", "address": -9},
        {"id": "t", "fixture_type": "", "group_name": "T", "universe": "2", "address": 2.5},
        {"id": "w", "fixture_type": "wide", "group_name": "Truss", "universe": 3.0,
         "address": 1.0, "is_disabled": true},
        {"id": "s2", "fixture_type": "acme/spot", "group_name": "Truss", "universe": 2,
         "address": 50, "is_disabled": "yes"}])"),
                                          definitions));
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->showName, "Main Stage");
    EXPECT_EQ(patch->revision, 12);
    // Universe and address below 1 or not whole numbers read as 1; b1 and t then share channel 1.
    EXPECT_EQ(patch->groups,
              (std::vector<PatchGroup>{
                  {"Truss",
                   {F{"s2", "", "Spot", 2, 50, 12, "Truss", false, false},
                    F{"s1", "Spot L", "Spot", 2, 101, 12, "Truss", false, false},
                    F{"w", "", "wide", 3, 1, 8, "Truss", true, false}}},
                  {"T", {F{"t", "", "—", 1, 1, 1, "T", false, true}}},
                  {std::nullopt, {F{"b1", "", "broken", 1, 1, 1, std::nullopt, false, true}}}}));
    EXPECT_EQ(patch->fixtureCount(), 5u);
    EXPECT_EQ(patch->overlapCount(), 2u);
}

TEST(ShowPatchOverlaps, FlagsEveryFixtureSharingAChannelWithAnotherOnItsUniverse) {
    const std::pair<std::vector<F>, std::set<std::string>> cases[] = {
        {{placed("a", 1, 1, 4), placed("b", 1, 4, 1, true)}, {"a", "b"}}, // disabled ones count
        {{placed("a", 1, 1, 3), placed("b", 1, 4, 1)}, {}},               // touching is not sharing
        {{placed("a", 1, 1, 4), placed("b", 2, 1, 4)}, {}},
        // a 1…10, b 2…11, c 3…12, d 12: d touches only c, e at 13 touches nobody.
        {{placed("d", 1, 12, 1), placed("a", 1, 1, 10), placed("b", 1, 2, 10),
          placed("c", 1, 3, 10), placed("e", 1, 13, 1)},
         {"a", "b", "c", "d"}},
        // a covers 1…20; b (2…2) ends early but c at 10 still lies inside a.
        {{placed("a", 1, 1, 20), placed("b", 1, 2, 1), placed("c", 1, 10, 1)}, {"a", "b", "c"}},
        {{placed("a", 1, INT64_MAX - 1, INT64_MAX), placed("b", 1, INT64_MAX, 1)}, {"a", "b"}},
    };
    for (const auto& [fixtures, expected] : cases)
        EXPECT_EQ(overlappingIds(fixtures), expected) << fixtures.front().id;
}

TEST(ShowPatchWidth, TheManualDimmersOptionsOrTheDefinitionAtLeastOne) {
    const auto options = [](json width) { return json{{"options", {{"width", width}}}}; };
    const json nine = {{"dmx_address_width", 9}};
    EXPECT_EQ(dmxWidth(manualDimmerType, options(6), &nine), 6);
    EXPECT_EQ(dmxWidth(manualDimmerType, json::object(), &nine), 1);
    EXPECT_EQ(dmxWidth(manualDimmerType, options(0), &nine), 1);
    EXPECT_EQ(dmxWidth("par", options(40), nullptr), 1);
    EXPECT_EQ(dmxWidth("par", options(40), &nine), 9);
    const json zero = {{"dmx_address_width", 0}}, text = {{"dmx_address_width", "16"}};
    EXPECT_EQ(dmxWidth("par", json::object(), &zero), 1);
    EXPECT_EQ(dmxWidth("par", json::object(), &text), 1);
    const json numericLabel = {{"label", 3}};
    EXPECT_EQ(typeLabel(&numericLabel, ""), "—");
}

TEST(ShowPatchBlueprint, FirstFloorObjectWithMinimumSizeElseTheFixturesSpan) {
    json snapshot = snapshotWith(json::array());
    snapshot["scene_objects"] = {
        "junk",
        {{"kind", "truss"}, {"floor_width", 50}},
        {{"kind", "floor"}, {"x", -4}, {"y", 2.5}, {"floor_width", 0.5}, {"floor_depth", 12}},
        {{"kind", "floor"}, {"floor_width", 99}}};
    EXPECT_EQ(build(snapshot)->blueprint, (ShowBlueprint{-4, 2.5, 1, 12, {}}));

    // Positions 2, 8 and 0 (not a number) span 8 by 5; a group's marker sits at its centre.
    snapshot = snapshotWith({positioned("a", 2, 1, "G"), positioned("b", 8, 5, "G"),
                             positioned("c", "far", nullptr, "Lone")});
    const std::vector<ShowBlueprint::Marker> markers = {{5, 3, "G"}, {0, 0, "Lone"}};
    EXPECT_EQ(build(snapshot)->blueprint, (ShowBlueprint{0, 0, 8, 5, markers}));

    // Positions at the ends of the number range stay finite.
    const auto patch = build(
        snapshotWith({positioned("a", 1e308, -1e308, "G"), positioned("b", 1.5e308, 1e308, "G")}));
    EXPECT_TRUE(std::isfinite(patch->blueprint.floorDepth));
    EXPECT_EQ(patch->blueprint.markers.at(0), (ShowBlueprint::Marker{1.25e308, 0, "G"}));
}

TEST(ShowPatchJson, EncodesCamelCaseKeysAndRoundTrips) {
    ShowPatch patch{"s", "Show", 3, {1, 2, 10, 8, {{4, 5, "G"}, {0, 0, std::nullopt}}}, {}};
    patch.groups.push_back({"G", {{"f", "Par", "Par 64", 1, 10, 3, "G", true, false}}});
    patch.groups.push_back({std::nullopt, {{"g", "", "—", 2, 1, 1, std::nullopt, false, true}}});
    const json encoded = patch;
    EXPECT_EQ(encoded, json::parse(R"({
        "showId":"s","showName":"Show","revision":3,
        "blueprint":{"floorX":1.0,"floorY":2.0,"floorWidth":10.0,"floorDepth":8.0,
                     "markers":[{"x":4.0,"y":5.0,"groupName":"G"},{"x":0.0,"y":0.0}]},
        "groups":[{"name":"G","fixtures":[{"id":"f","name":"Par","fixtureType":"Par 64","universe":1,
                    "address":10,"width":3,"groupName":"G","isDisabled":true,"overlaps":false}]},
                  {"fixtures":[{"id":"g","name":"","fixtureType":"—","universe":2,"address":1,
                    "width":1,"isDisabled":false,"overlaps":true}]}]})"));
    EXPECT_EQ(encoded.get<ShowPatch>(), patch);
}

} // namespace
} // namespace kelvo
