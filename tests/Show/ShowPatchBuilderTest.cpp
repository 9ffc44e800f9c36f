#include "Show/ShowPatchBuilder.h"

#include "support/FileBytes.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

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
    EXPECT_FALSE(build(json::object()));
    EXPECT_FALSE(build(json::array()));
    EXPECT_FALSE(build(json{{"summary", "show-1"}}));
    EXPECT_FALSE(build(json{{"summary", {{"id", 7}}}}));
    EXPECT_FALSE(build(json{{"summary", {{"name", "x"}}}}));

    const auto patch = build(json{{"summary", {{"id", "s"}}}, {"revision", "4"}});
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->showId, "s");
    EXPECT_EQ(patch->showName, "");
    EXPECT_EQ(patch->revision, 0);
    EXPECT_EQ(patch->fixtureCount(), 0u);
    EXPECT_TRUE(patch->groups.empty());
}

TEST(ShowPatchOverlaps, TouchingRangesDoNotOverlapSharedChannelsDo) {
    const json definitions = {{"four", {{"dmx_address_width", 4}}},
                              {"three", {{"dmx_address_width", 3}}},
                              {"one", {{"dmx_address_width", 1}}}};
    auto patch = build(
        snapshotWith({fixtureRow("a", 1, 1, "four"), fixtureRow("b", 1, 4, "one")}, definitions));
    ASSERT_TRUE(patch);
    EXPECT_TRUE(findFixture(*patch, "a")->overlaps);
    EXPECT_TRUE(findFixture(*patch, "b")->overlaps);
    EXPECT_EQ(patch->overlapCount(), 2u);

    patch = build(
        snapshotWith({fixtureRow("a", 1, 1, "three"), fixtureRow("b", 1, 4, "one")}, definitions));
    EXPECT_EQ(patch->overlapCount(), 0u);

    // The same addresses on different universes never collide.
    patch = build(
        snapshotWith({fixtureRow("a", 1, 1, "four"), fixtureRow("b", 2, 1, "four")}, definitions));
    EXPECT_EQ(patch->overlapCount(), 0u);
}

TEST(ShowPatchOverlaps, FlagsEveryFixtureSharingAChannelWithAnother) {
    const std::pair<std::vector<PatchFixture>, std::set<std::string>> cases[] = {
        // a 1…10, b 2…11, c 3…12, d 12: d touches only c, e at 13 touches nobody.
        {{placed("d", 1, 12, 1), placed("a", 1, 1, 10), placed("b", 1, 2, 10),
          placed("c", 1, 3, 10), placed("e", 1, 13, 1)},
         {"a", "b", "c", "d"}},
        // a covers 1…20; b (2…2) ends early but c at 10 still lies inside a.
        {{placed("a", 1, 1, 20), placed("b", 1, 2, 1), placed("c", 1, 10, 1)}, {"a", "b", "c"}},
        {{placed("x", 3, 1, 2), placed("y", 3, 3, 2), placed("z", 3, 5, 2)}, {}},
        // Extreme addresses do not overflow.
        {{placed("a", 1, INT64_MAX - 1, INT64_MAX), placed("b", 1, INT64_MAX, 1)}, {"a", "b"}},
    };
    for (const auto& [fixtures, expected] : cases)
        EXPECT_EQ(overlappingIds(fixtures), expected) << fixtures.front().id;
}

TEST(ShowPatchOverlaps, ThreeMutualOverlapsCountThree) {
    const json definitions = {{"wide", {{"dmx_address_width", 8}}}};
    const auto patch =
        build(snapshotWith({fixtureRow("a", 1, 5, "wide"), fixtureRow("b", 1, 1, "wide"),
                            fixtureRow("c", 1, 3, "wide"), fixtureRow("d", 1, 100, "wide")},
                           definitions));
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->fixtureCount(), 4u);
    EXPECT_EQ(patch->overlapCount(), 3u);
    EXPECT_FALSE(findFixture(*patch, "d")->overlaps);
}

TEST(ShowPatchOverlaps, DisabledFixturesStillCount) {
    auto row = fixtureRow("off", 1, 1);
    row["is_disabled"] = true;
    const auto patch = build(snapshotWith({row, fixtureRow("on", 1, 1)}));
    ASSERT_TRUE(patch);
    EXPECT_TRUE(findFixture(*patch, "off")->isDisabled);
    EXPECT_TRUE(findFixture(*patch, "off")->overlaps);
    EXPECT_FALSE(findFixture(*patch, "on")->isDisabled);
    EXPECT_EQ(patch->overlapCount(), 2u);
}

TEST(ShowPatchAddressing, UniverseAndAddressDefaultToOne) {
    const auto patch = build(snapshotWith({fixtureRow("zero", 0, 0),
                                           fixtureRow("neg", -3, -9),
                                           {{"id", "missing"}},
                                           fixtureRow("text", "2", "7"),
                                           fixtureRow("frac", 2.5, 3.5),
                                           fixtureRow("ok", 4, 300),
                                           fixtureRow("whole", 2.0, 17.0)}));
    ASSERT_TRUE(patch);
    for (const char* id : {"zero", "neg", "missing", "text", "frac"}) {
        SCOPED_TRACE(id);
        const auto* f = findFixture(*patch, id);
        ASSERT_TRUE(f);
        EXPECT_EQ(f->universe, 1);
        EXPECT_EQ(f->address, 1);
    }
    EXPECT_EQ(findFixture(*patch, "ok")->universe, 4);
    EXPECT_EQ(findFixture(*patch, "ok")->address, 300);
    EXPECT_EQ(findFixture(*patch, "whole")->universe, 2);
    EXPECT_EQ(findFixture(*patch, "whole")->address, 17);
}

TEST(ShowPatchWidth, ManualDimmerTakesItsOptionsWidth) {
    const json definitions = {{manualDimmerType, {{"dmx_address_width", 9}}}};
    json wide = fixtureRow("wide", 1, 1, manualDimmerType);
    wide["options"] = {{"width", 6}};
    json noOptions = fixtureRow("bare", 2, 1, manualDimmerType);
    json badOptions = fixtureRow("bad", 3, 1, manualDimmerType);
    badOptions["options"] = {{"width", "6"}};
    json zero = fixtureRow("zero", 4, 1, manualDimmerType);
    zero["options"] = {{"width", 0}};
    const auto patch = build(snapshotWith({wide, noOptions, badOptions, zero}, definitions));
    ASSERT_TRUE(patch);
    EXPECT_EQ(findFixture(*patch, "wide")->width, 6);
    EXPECT_EQ(findFixture(*patch, "bare")->width, 1);
    EXPECT_EQ(findFixture(*patch, "bad")->width, 1);
    EXPECT_EQ(findFixture(*patch, "zero")->width, 1);
}

TEST(ShowPatchWidth, OtherTypesTakeTheDefinitionsWidthAtLeastOne) {
    const json row = {{"options", {{"width", 40}}}};
    EXPECT_EQ(dmxWidth("par", row, nullptr), 1);
    const json zero = {{"dmx_address_width", 0}}, negative = {{"dmx_address_width", -5}},
               sixteen = {{"dmx_address_width", 16}}, text = {{"dmx_address_width", "16"}};
    EXPECT_EQ(dmxWidth("par", row, &zero), 1);
    EXPECT_EQ(dmxWidth("par", row, &negative), 1);
    EXPECT_EQ(dmxWidth("par", row, &sixteen), 16);
    EXPECT_EQ(dmxWidth("par", row, &text), 1);
}

TEST(ShowPatchTypeLabel, LabelThenTypeThenEmDash) {
    const json labelled = {{"label", "Wash 7"}}, empty = {{"label", ""}}, numeric = {{"label", 3}};
    EXPECT_EQ(typeLabel(&labelled, "acme/wash@7"), "Wash 7");
    EXPECT_EQ(typeLabel(&empty, "acme/wash@7"), "acme/wash@7");
    EXPECT_EQ(typeLabel(&numeric, ""), "—");
    EXPECT_EQ(typeLabel(nullptr, ""), "\u2014");

    const auto patch = build(snapshotWith({{{"id", "x"}, {"fixture_type", ""}}}));
    ASSERT_TRUE(patch);
    EXPECT_EQ(findFixture(*patch, "x")->fixtureType, "—");
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
    ASSERT_EQ(patch->groups.size(), 3u);
    const auto idsOf = [](const PatchGroup& g) {
        std::vector<std::string> ids;
        for (const auto& f : g.fixtures)
            ids.push_back(f.id);
        return ids;
    };
    EXPECT_EQ(patch->groups[0].name, "Back");
    EXPECT_EQ(idsOf(patch->groups[0]), (std::vector<std::string>{"back1", "back2"}));
    EXPECT_EQ(patch->groups[1].name, "Front");
    EXPECT_EQ(idsOf(patch->groups[1]), (std::vector<std::string>{"front2", "front1"}));
    EXPECT_EQ(patch->groups[2].name, std::nullopt);
    EXPECT_EQ(idsOf(patch->groups[2]), (std::vector<std::string>{"loose2", "loose1"}));
}

TEST(ShowPatchBlueprint, FirstFloorObjectWithMinimumSize) {
    json snapshot = snapshotWith(json::array());
    snapshot["scene_objects"] = {
        "junk",
        {{"kind", "truss"}, {"floor_width", 50}},
        {{"kind", "floor"}, {"x", -4}, {"y", 2.5}, {"floor_width", 0.5}, {"floor_depth", 12}},
        {{"kind", "floor"}, {"floor_width", 99}}};
    auto patch = build(snapshot);
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->blueprint.floorX, -4);
    EXPECT_EQ(patch->blueprint.floorY, 2.5);
    EXPECT_EQ(patch->blueprint.floorWidth, 1.0);
    EXPECT_EQ(patch->blueprint.floorDepth, 12);

    snapshot["scene_objects"] = {{{"kind", "floor"}, {"floor_width", 1.0}, {"floor_depth", -3}}};
    patch = build(snapshot);
    EXPECT_EQ(patch->blueprint.floorX, 0);
    EXPECT_EQ(patch->blueprint.floorWidth, 1.0);
    EXPECT_EQ(patch->blueprint.floorDepth, 1.0);
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
    auto patch = build(snapshot);
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->blueprint.floorX, 1);
    EXPECT_EQ(patch->blueprint.floorWidth, 8); // positions 2, 8 and 0 (not a number)
    EXPECT_EQ(patch->blueprint.floorDepth, 5);
    ASSERT_EQ(patch->blueprint.markers.size(), 2u);
    EXPECT_EQ(patch->blueprint.markers[0], (ShowBlueprint::Marker{5, 3, "G"}));
    EXPECT_EQ(patch->blueprint.markers[1], (ShowBlueprint::Marker{0, 0, "Lone"}));

    snapshot.erase("scene_objects");
    patch = build(snapshot);
    EXPECT_EQ(patch->blueprint.floorX, 0);
    EXPECT_EQ(patch->blueprint.floorY, 0);
    EXPECT_EQ(patch->blueprint.floorWidth, 8);
    EXPECT_EQ(patch->blueprint.floorDepth, 5);

    patch = build(snapshotWith(json::array()));
    EXPECT_EQ(patch->blueprint, (ShowBlueprint{0, 0, 1, 1, {}}));
}

TEST(ShowPatchBlueprint, ExtremePositionsStayFinite) {
    json a = fixtureRow("a", 1, 1), b = fixtureRow("b", 1, 10);
    a["x"] = 1e308;
    a["group_name"] = "G";
    b["x"] = -1e308;
    b["group_name"] = "G";
    const auto patch = build(snapshotWith({a, b}));
    ASSERT_TRUE(patch);
    EXPECT_TRUE(std::isfinite(patch->blueprint.floorWidth));
    EXPECT_EQ(patch->blueprint.markers.at(0).x, 0);
    // The patch must survive its own JSON round trip.
    EXPECT_EQ(json(*patch).get<ShowPatch>(), *patch);
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
    EXPECT_EQ(patch.fixtureCount(), 2u);
    EXPECT_EQ(patch.overlapCount(), 1u);

    json missing = encoded;
    missing["groups"][0]["fixtures"][0].erase("width");
    EXPECT_THROW(missing.get<ShowPatch>(), json::exception);
}

// Every show snapshot found in the development cloud's data builds a patch without overlaps.
TEST(ShowPatchDemo, DemoShowsBuildWithoutOverlaps) {
    const std::filesystem::path folder = std::filesystem::path(KELVO_SOURCE_DIR) / "devcloud/data";
    if (!std::filesystem::is_directory(folder))
        GTEST_SKIP() << "no demo show data in this tree: " << folder;
    std::vector<json> snapshots;
    const std::function<void(const json&)> collect = [&](const json& value) {
        if (value.is_object()) {
            if (value.contains("summary") && value.contains("fixtures"))
                snapshots.push_back(value);
            for (const auto& [key, child] : value.items())
                collect(child);
        } else if (value.is_array()) {
            for (const auto& child : value)
                collect(child);
        }
    };
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.path().extension() != ".json")
            continue;
        collect(json::parse(test::readText(entry.path())));
    }
    ASSERT_FALSE(snapshots.empty()) << "no show snapshot under " << folder;
    for (const auto& snapshot : snapshots) {
        const auto patch = build(snapshot);
        ASSERT_TRUE(patch);
        SCOPED_TRACE(patch->showId);
        EXPECT_GT(patch->fixtureCount(), 0u);
        EXPECT_EQ(patch->overlapCount(), 0u);
    }
}

} // namespace
} // namespace kelvo
