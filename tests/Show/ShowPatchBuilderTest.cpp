#include "Show/ShowPatchBuilder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>

namespace kelvo {
namespace {

using nlohmann::json;
using namespace ShowPatchBuilder;

json fixtureRow(const std::string& id, json universe, json address,
                const std::string& type = "par") {
    return {{"id", id}, {"fixture_type", type}, {"universe", universe}, {"address", address}};
}

json snapshotWith(json fixtures, json definitions = json::object()) {
    return {{"summary", {{"id", "show-1"}, {"name", "Main Stage"}}},
            {"revision", 12},
            {"fixture_definitions", definitions},
            {"fixtures", fixtures}};
}

const PatchFixture* findFixture(const ShowPatch& patch, const std::string& id) {
    for (const auto& group : patch.groups)
        for (const auto& fixture : group.fixtures)
            if (fixture.id == id)
                return &fixture;
    return nullptr;
}

PatchFixture placed(const std::string& id, std::int64_t universe, std::int64_t address,
                    std::int64_t width) {
    return {id, "", "", universe, address, width, std::nullopt, false, false};
}

TEST(ShowPatchIdentity, NeedsASummaryWithATextId) {
    for (const json& snapshot : {json::object(), json::array(), json{{"summary", "show-1"}},
                                 json{{"summary", {{"id", 7}}}}})
        EXPECT_FALSE(build(snapshot)) << snapshot;
    const auto patch = build(json{{"summary", {{"id", "s"}}}, {"revision", "4"}});
    ASSERT_TRUE(patch);
    EXPECT_EQ(*patch, (ShowPatch{"s", "", 0, {0, 0, 1, 1, {}}, {}}));
}

TEST(ShowPatchOverlaps, FlagsEveryFixtureSharingAChannelWithAnotherOnItsUniverse) {
    const std::pair<std::vector<PatchFixture>, std::set<std::string>> cases[] = {
        {{placed("a", 1, 1, 4), placed("b", 1, 4, 1)}, {"a", "b"}},
        {{placed("a", 1, 1, 3), placed("b", 1, 4, 1)}, {}}, // touching is not sharing
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

TEST(ShowPatchOverlaps, TheCountIsOfFixturesDisabledOnesIncluded) {
    const json definitions = {{"wide", {{"dmx_address_width", 8}}}};
    json off = fixtureRow("c", 1, 3, "wide");
    off["is_disabled"] = true;
    const auto patch =
        build(snapshotWith({fixtureRow("a", 1, 5, "wide"), fixtureRow("b", 1, 1, "wide"), off,
                            fixtureRow("d", 1, 100, "wide")},
                           definitions));
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->fixtureCount(), 4u);
    EXPECT_EQ(patch->overlapCount(), 3u);
    EXPECT_TRUE(findFixture(*patch, "c")->isDisabled);
    EXPECT_TRUE(findFixture(*patch, "c")->overlaps);
    EXPECT_FALSE(findFixture(*patch, "d")->overlaps);
}

TEST(ShowPatchAddressing, UniverseAndAddressDefaultToOne) {
    const std::map<std::string, std::pair<json, std::pair<std::int64_t, std::int64_t>>> cases = {
        {"zero", {{0, 0}, {1, 1}}},     {"neg", {{-3, -9}, {1, 1}}},
        {"text", {{"2", "7"}, {1, 1}}}, {"frac", {{2.5, 3.5}, {1, 1}}},
        {"ok", {{4, 300}, {4, 300}}},   {"whole", {{2.0, 17.0}, {2, 17}}}};
    json rows = {{{"id", "missing"}}};
    for (const auto& [id, c] : cases)
        rows.push_back(fixtureRow(id, c.first[0], c.first[1]));
    const auto patch = build(snapshotWith(rows));
    ASSERT_TRUE(patch);
    EXPECT_EQ(findFixture(*patch, "missing")->universe, 1);
    EXPECT_EQ(findFixture(*patch, "missing")->address, 1);
    for (const auto& [id, c] : cases)
        EXPECT_EQ(std::pair(findFixture(*patch, id)->universe, findFixture(*patch, id)->address),
                  c.second)
            << id;
}

TEST(ShowPatchWidth, TheManualDimmersOptionsOrTheDefinitionAtLeastOne) {
    const auto options = [](json width) { return json{{"options", {{"width", width}}}}; };
    const json nine = {{"dmx_address_width", 9}};
    EXPECT_EQ(dmxWidth(manualDimmerType, options(6), &nine), 6);
    EXPECT_EQ(dmxWidth(manualDimmerType, json::object(), &nine), 1);
    EXPECT_EQ(dmxWidth(manualDimmerType, options("6"), &nine), 1);
    EXPECT_EQ(dmxWidth(manualDimmerType, options(0), &nine), 1);
    EXPECT_EQ(dmxWidth("par", options(40), nullptr), 1);
    EXPECT_EQ(dmxWidth("par", options(40), &nine), 9);
    for (const json& width : {json(0), json(-5), json("16")}) {
        const json definition = {{"dmx_address_width", width}};
        EXPECT_EQ(dmxWidth("par", json::object(), &definition), 1) << width;
    }
}

TEST(ShowPatchTypeLabel, LabelThenTypeThenEmDash) {
    const json labelled = {{"label", "Wash 7"}}, empty = {{"label", ""}}, numeric = {{"label", 3}};
    EXPECT_EQ(typeLabel(&labelled, "acme/wash@7"), "Wash 7");
    EXPECT_EQ(typeLabel(&empty, "acme/wash@7"), "acme/wash@7");
    EXPECT_EQ(typeLabel(&numeric, ""), "\u2014");
    const auto patch = build(snapshotWith({{{"id", "x"}, {"fixture_type", ""}}}));
    EXPECT_EQ(findFixture(*patch, "x")->fixtureType, "\u2014");
}

TEST(ShowPatchFixtures, SkipsRowsWithoutATextIdAndReadsTheRest) {
    const json definitions = {{"acme/spot", {{"label", "Spot"}, {"dmx_address_width", 12}}},
                              {"broken", "not an object"}};
    const auto patch = build(snapshotWith(
        {{{"id", "s1"},
          {"name", "Spot L"},
          {"fixture_type", "acme/spot"},
          {"group_name", "Truss"},
          {"universe", 2},
          {"address", 101},
          {"is_disabled", false}},
         {{"id", 5}},
         "row",
         {{"name", "no id"}},
         {{"id", "b1"}, {"fixture_type", "broken"}, {"group_name", ""}, {"is_disabled", "yes"}}},
        definitions));
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->fixtureCount(), 2u);
    const auto* spot = findFixture(*patch, "s1");
    ASSERT_TRUE(spot);
    EXPECT_EQ(*spot, (PatchFixture{"s1", "Spot L", "Spot", 2, 101, 12, "Truss", false, false}));
    const auto* broken = findFixture(*patch, "b1");
    ASSERT_TRUE(broken);
    EXPECT_EQ(*broken, (PatchFixture{"b1", "", "broken", 1, 1, 1, std::nullopt, false, false}));
    EXPECT_EQ(patch->showName, "Main Stage");
    EXPECT_EQ(patch->revision, 12);
}

TEST(ShowPatchGroups, FirstAppearanceOrderUngroupedLastFixturesByAddress) {
    json rows = json::array();
    const auto add = [&](const std::string& id, json group, int universe, int address) {
        json row = fixtureRow(id, universe, address);
        if (!group.is_null())
            row["group_name"] = group;
        rows.push_back(row);
    };
    add("loose1", nullptr, 1, 50);
    add("back2", "Back", 2, 1);
    add("front1", "Front", 1, 20);
    add("back1", "Back", 1, 90);
    add("loose2", "", 1, 10);
    add("front2", "Front", 1, 5);
    const auto patch = build(snapshotWith(rows));
    ASSERT_TRUE(patch);
    std::vector<std::pair<std::optional<std::string>, std::vector<std::string>>> groups;
    for (const PatchGroup& g : patch->groups) {
        groups.push_back({g.name, {}});
        for (const PatchFixture& f : g.fixtures)
            groups.back().second.push_back(f.id);
    }
    EXPECT_EQ(groups, (decltype(groups){{"Back", {"back1", "back2"}},
                                        {"Front", {"front2", "front1"}},
                                        {std::nullopt, {"loose2", "loose1"}}}));
}

TEST(ShowPatchBlueprint, FirstFloorObjectWithMinimumSize) {
    json snapshot = snapshotWith(json::array());
    snapshot["scene_objects"] = {
        "junk",
        {{"kind", "truss"}, {"floor_width", 50}},
        {{"kind", "floor"}, {"x", -4}, {"y", 2.5}, {"floor_width", 0.5}, {"floor_depth", 12}},
        {{"kind", "floor"}, {"floor_width", 99}}};
    EXPECT_EQ(build(snapshot)->blueprint, (ShowBlueprint{-4, 2.5, 1, 12, {}}));
    snapshot["scene_objects"] = {{{"kind", "floor"}, {"floor_width", 1.0}, {"floor_depth", -3}}};
    EXPECT_EQ(build(snapshot)->blueprint, (ShowBlueprint{0, 0, 1, 1, {}}));
}

TEST(ShowPatchBlueprint, MissingFloorSizeSpansTheFixtures) {
    json a = fixtureRow("a", 1, 1), b = fixtureRow("b", 1, 10), c = fixtureRow("c", 1, 20);
    a["x"] = 2;
    a["y"] = 1;
    a["group_name"] = "G";
    b["x"] = 8;
    b["y"] = 5;
    b["group_name"] = "G";
    c["x"] = "far";
    c["group_name"] = "Lone";
    json snapshot = snapshotWith({a, b, c});
    snapshot["scene_objects"] = {{{"kind", "floor"}, {"x", 1}}};
    // Positions 2, 8 and 0 (not a number) span 8 by 5; a group's marker sits at its centre.
    const std::vector<ShowBlueprint::Marker> markers = {{5, 3, "G"}, {0, 0, "Lone"}};
    EXPECT_EQ(build(snapshot)->blueprint, (ShowBlueprint{1, 0, 8, 5, markers}));
    snapshot.erase("scene_objects");
    EXPECT_EQ(build(snapshot)->blueprint, (ShowBlueprint{0, 0, 8, 5, markers}));

    // Positions at the ends of the number range stay finite.
    a["x"] = 1e308;
    b["x"] = 1.5e308;
    a["y"] = -1e308;
    b["y"] = 1e308;
    const auto patch = build(snapshotWith({a, b}));
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

    json missing = encoded;
    missing["groups"][0]["fixtures"][0].erase("width");
    EXPECT_THROW(missing.get<ShowPatch>(), json::exception);
}

} // namespace
} // namespace kelvo
