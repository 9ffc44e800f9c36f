#include "Show/BootstrapViewData.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace kelvo {
namespace {

using namespace BootstrapViewData;
using nlohmann::json;

std::vector<LightingModeOption> modesFrom(const json& lightingModes) {
    return extractLightingModes(json{{"active_show", {{"lighting_modes", lightingModes}}}}.dump());
}

std::vector<std::string> keysOf(const json& lightingModes) {
    std::vector<std::string> keys;
    for (const auto& m : modesFrom(lightingModes))
        keys.push_back(m.key);
    return keys;
}

TEST(BootstrapDocument, ATopLevelThatIsNotAnObjectIsInvalidJSONBadSyntaxIsTheParsersError) {
    // One nested past any real document is refused before its copies could overflow the stack.
    const std::string deep = "{\"a\":" + std::string(300, '[') + std::string(300, ']') + "}";
    for (const std::string& document :
         {std::string("[]"), std::string("3"), std::string("null"), deep}) {
        SCOPED_TRACE(document);
        try {
            parseDocument(document);
            ADD_FAILURE() << "no error";
        } catch (const BootstrapViewDataError& error) {
            EXPECT_EQ(error.kind(), BootstrapViewDataError::Kind::invalidJSON);
            EXPECT_STREQ(error.what(), "Runtime bootstrap payload was not a JSON object");
        }
    }
    for (const char* document : {"{\"a\":1}trailing", "{\"a\":\"\xff\"}"})
        EXPECT_THROW(parseDocument(document), json::parse_error) << document;
    EXPECT_THROW(parseDocument(R"({"theme_color_examples":[{"name":88e8888}]})"),
                 json::out_of_range);
}

TEST(BootstrapDocument, MissingOrMistypedListsGiveEmptyResultsAndDefaults) {
    const json documents[] = {{{"shows", {{"id", "a"}}},
                               {"active_show", json::array()},
                               {"control_state", "mode"},
                               {"theme_color_examples", 7}},
                              {{"active_show", {{"lighting_modes", "x"}}}}};
    for (const json& document : documents) {
        EXPECT_TRUE(parsed::extractShowList(document).empty()) << document;
        EXPECT_TRUE(parsed::extractLightingModes(document).empty()) << document;
        EXPECT_TRUE(parsed::extractShowRevisions(document).empty()) << document;
        EXPECT_TRUE(parsed::extractThemeOptions(document).empty()) << document;
        EXPECT_EQ(parsed::extractControlSelections(document),
                  (BridgeControlSelections{"blackout", "Rave", std::nullopt, 0}));
    }
}

TEST(ShowList, DropsArchivedAndMalformedShowsKeepingServerOrderAndMarksTheActiveOne) {
    const auto shows = extractShowList(R"({"shows": [{"id": "z", "name": "Zed", "active": true},
        {"id": "arch", "name": "Old", "archived": true}, 42, {"id": "no-name"},
        {"id": "a", "name": "Alpha", "active": "yes", "archived": 1}]})");
    EXPECT_EQ(shows,
              (std::vector<ShowOption>{{"z", "Zed", true, false}, {"a", "Alpha", false, false}}));

    const std::vector<ShowOption> listed = {
        {"a", "A", true, false}, {"b", "B", false, true}, {"b", "B again", false, false}};
    EXPECT_EQ(ShowList::markingActive(listed, "b"),
              (std::vector<ShowOption>{{"a", "A", false, false},
                                       {"b", "B", true, true},
                                       {"b", "B again", true, false}}));
}

TEST(LightingModes, EachModeIsReadWithItsDefaultsOrSkipped) {
    const auto mode = [](json fields) {
        fields["id"] = "m";
        fields["key"] = "k";
        return fields;
    };
    using M = LightingModeOption;
    const std::pair<json, std::optional<M>> cases[] = {
        {mode({{"label", " \n\tSoft\u2028 "}}), M{"m", "k", "Soft", "general", 0, true, {}, {}}},
        // No "show_id" key at all makes a mode shared; a null one does not.
        {mode({{"show_id", nullptr}}), M{"m", "k", "k", "show", 0, false, {}, {}}},
        {mode({{"show_id", "s"}, {"shared", true}}), M{"m", "k", "k", "general", 0, true, {}, {}}},
        {mode({{"category", "  Strobes "}, {"shared", 1}}),
         M{"m", "k", "k", "Strobes", 0, true, {}, {}}},
        {mode({{"order_index", -1.7}}), M{"m", "k", "k", "general", -1, true, {}, {}}},
        {mode({{"order_index", 1e300}}), M{"m", "k", "k", "general", INT64_MAX, true, {}, {}}},
        {mode({{"global_parent_id", "p"}, {"core_key", "c"}}),
         M{"m", "k", "k", "general", 0, true, "p", "c"}},
        {mode({{"archived", true}}), std::nullopt},
        {"text", std::nullopt},
    };
    for (const auto& [row, expected] : cases)
        EXPECT_EQ(modesFrom(json::array({row})),
                  expected ? std::vector<M>{*expected} : std::vector<M>{})
            << row;
}

TEST(LightingModes, SortStablyByOrderIndexThenTheLabelInTheUsersLanguage) {
    const auto row = [](const char* key, const char* label, int index) {
        return json{{"id", key}, {"key", key}, {"label", label}, {"order_index", index}};
    };
    EXPECT_EQ(keysOf({row("b", "b", 2), row("B2", "B2", 1), row("a", "a", 1)}),
              (std::vector<std::string>{"a", "B2", "b"}));
    // Case alone does not reorder: equal labels keep the server's order.
    EXPECT_EQ(keysOf({row("x1", "beta", 0), row("x2", "Alpha", 0), row("x3", "alpha", 0)}),
              (std::vector<std::string>{"x2", "x3", "x1"}));
}

TEST(ControlSelections, TrimModeAndThemeKeepModeToVerbatimClampTheLerp) {
    const auto inf = std::numeric_limits<double>::infinity();
    const std::pair<json, BridgeControlSelections> cases[] = {
        {{{"mode", " party\n"}, {"theme_name", "\tOcean "}}, {"party", "Ocean", std::nullopt, 0}},
        {{{"mode", 4}, {"theme_name", " "}}, {"blackout", "Rave", std::nullopt, 0}},
        {{{"mode_to", " x "}}, {"blackout", "Rave", " x ", 0}},
        {{{"mode_lerp", 1.7}}, {"blackout", "Rave", std::nullopt, 1}},
        {{{"mode_lerp", inf}}, {"blackout", "Rave", std::nullopt, 0}},
    };
    for (const auto& [state, expected] : cases)
        EXPECT_EQ(parsed::extractControlSelections(json{{"control_state", state}}), expected)
            << state;
}

TEST(ShowRevisions, OnlyIntegralNumbersAndLaterDuplicatesWin) {
    const auto revisions = extractShowRevisions(R"({"shows": [{"id": "a", "revision": 3},
        {"id": "half", "revision": 3.5}, {"id": "whole", "revision": 4.0},
        {"id": "old", "revision": 9, "archived": true}, {"id": "a", "revision": 5},
        {"id": "big", "revision": 18446744073709551615}]})");
    EXPECT_EQ(revisions, (std::map<std::string, std::int64_t>{{"a", 5}, {"whole", 4}}));
}

TEST(ThemeOptions, PalettesNeedThreeNumbersPerColourAndThreeColoursPerAlternative) {
    const auto themes = extractThemeOptions(R"({"theme_color_examples": [{"name": "Fire",
        "palette": [[1, 0], [1, 0, 0.5, 9], ["1", 0, 0], "red", [true, 2, -1]],
        "palettes": [[[1, 0, 0], [0, 1, 0], [0, 0, 1]], [[1, 0, 0], [0, 1, 0]],
                     [[1, 0, 0], [0, 1, 0], [0, 1]], "x"],
        "allows_rainbow": true, "always_rainbow": "yes"},
        {"name": "", "palette": [[1, 0, 0], [0, 1, 0], [0, 0, 1]]}, {"name": 5},
        {"name": " Spaced "}, 7]})");
    ASSERT_EQ(themes.size(), 2u);
    EXPECT_EQ(themes[0].palette, (ThemePalette{{1, 0, 0.5}, {1, 2, -1}})); // no clamping
    EXPECT_EQ(themes[0].palettes,
              (std::vector<ThemePalette>{ThemePalette{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}));
    EXPECT_TRUE(themes[0].allowsRainbow);
    EXPECT_FALSE(themes[0].alwaysRainbow);
    EXPECT_EQ(themes[1], (ThemeOption{" Spaced ", {}, {}, false, false})); // names are not trimmed
    // The engine takes camelCase keys and colours as triples.
    EXPECT_EQ(themes[0].enginePayload(),
              json::parse(R"({"name":"Fire","palette":[[1,0,0.5],[1,2,-1]],
                  "palettes":[[[1,0,0],[0,1,0],[0,0,1]]],"allowsRainbow":true,"alwaysRainbow":false})"));
}

} // namespace
} // namespace kelvo
