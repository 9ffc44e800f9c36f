#include "Show/BootstrapViewData.h"
#include "Show/JsonValueReaders.h"

#include <QLocale>
#include <gmock/gmock.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace kelvo {
namespace {

using namespace BootstrapViewData;
using nlohmann::json;

std::vector<std::string> keysOf(const std::vector<LightingModeOption>& modes) {
    std::vector<std::string> keys;
    for (const auto& m : modes)
        keys.push_back(m.key);
    return keys;
}

std::vector<LightingModeOption> modesFrom(const json& lightingModes) {
    return extractLightingModes(json{{"active_show", {{"lighting_modes", lightingModes}}}}.dump());
}

// --- whole documents ----------------------------------------------------------------------

TEST(BootstrapDocument, TopLevelThatIsNotAnObjectIsInvalidJSONWithItsText) {
    for (const char* document : {"[]", "[{\"shows\":[]}]", "3", "\"text\"", "null", "true"}) {
        SCOPED_TRACE(document);
        try {
            extractShowList(document);
            FAIL() << "no error";
        } catch (const BootstrapViewDataError& error) {
            EXPECT_EQ(error.kind(), BootstrapViewDataError::Kind::invalidJSON);
            EXPECT_STREQ(error.what(), "Runtime bootstrap payload was not a JSON object");
        }
        EXPECT_THROW(extractLightingModes(document), BootstrapViewDataError);
        EXPECT_THROW(extractControlSelections(document), BootstrapViewDataError);
        EXPECT_THROW(extractShowRevisions(document), BootstrapViewDataError);
        EXPECT_THROW(extractThemeOptions(document), BootstrapViewDataError);
    }
}

TEST(BootstrapDocument, SyntaxErrorsAreTheParsersOwnError) {
    for (const char* document :
         {"", "{", "{\"shows\":[}", "{'a':1}", "{\"a\":1}trailing", "{\"a\":\"\xff\"}"}) {
        SCOPED_TRACE(document);
        EXPECT_THROW(extractShowList(document), json::parse_error);
        EXPECT_THROW(extractThemeOptions(document), json::parse_error);
    }
    // A number beyond a double is the parser's range error, not invalidJSON.
    EXPECT_THROW(extractThemeOptions(R"({"theme_color_examples":[{"name":88e8888}]})"),
                 json::out_of_range);
}

TEST(BootstrapDocument, MissingListsGiveEmptyResultsAndDefaults) {
    EXPECT_TRUE(extractShowList("{}").empty());
    EXPECT_TRUE(extractLightingModes("{}").empty());
    EXPECT_TRUE(extractShowRevisions("{}").empty());
    EXPECT_TRUE(extractThemeOptions("{}").empty());
    EXPECT_EQ(extractControlSelections("{}"),
              (BridgeControlSelections{"blackout", "Rave", std::nullopt, 0}));
}

TEST(BootstrapDocument, WrongTypesAtTheTopLevelGiveEmptyResults) {
    const json wrong = {{"shows", {{"id", "a"}}},
                        {"active_show", json::array()},
                        {"control_state", "mode"},
                        {"theme_color_examples", 7}};
    EXPECT_TRUE(parsed::extractShowList(wrong).empty());
    EXPECT_TRUE(parsed::extractLightingModes(wrong).empty());
    EXPECT_TRUE(parsed::extractShowRevisions(wrong).empty());
    EXPECT_TRUE(parsed::extractThemeOptions(wrong).empty());
    EXPECT_EQ(parsed::extractControlSelections(wrong).modeId, "blackout");
    EXPECT_TRUE(
        parsed::extractLightingModes(json{{"active_show", {{"lighting_modes", "x"}}}}).empty());
}

// --- shows --------------------------------------------------------------------------------

TEST(ShowList, DropsArchivedAndMalformedShowsKeepingServerOrder) {
    const auto shows = extractShowList(
        json{{"shows",
              {{{"id", "z"}, {"name", "Zed"}, {"active", true}},
               {{"id", "arch"}, {"name", "Old"}, {"archived", true}},
               42,
               {{"id", 5}, {"name", "numeric id"}},
               {{"id", "no-name"}},
               {{"id", "a"}, {"name", "Alpha"}, {"active", "yes"}, {"archived", 1}}}}}
            .dump());
    EXPECT_EQ(shows,
              (std::vector<ShowOption>{{"z", "Zed", true, false}, {"a", "Alpha", false, false}}));
}

TEST(ShowList, MarkingActiveSetsExactlyTheMatchingEntries) {
    const std::vector<ShowOption> shows = {
        {"a", "A", true, false}, {"b", "B", false, true}, {"b", "B again", false, false}};
    EXPECT_EQ(ShowList::markingActive(shows, "b"),
              (std::vector<ShowOption>{{"a", "A", false, false},
                                       {"b", "B", true, true},
                                       {"b", "B again", true, false}}));
    for (const auto& show : ShowList::markingActive(shows, "nothing"))
        EXPECT_FALSE(show.active);
}

// --- lighting modes -----------------------------------------------------------------------

TEST(LightingModes, LabelIsTrimmedAndFallsBackToTheKey) {
    const auto modes = modesFrom({{{"id", "1"}, {"key", "party"}, {"label", "  "}},
                                  {{"id", "2"}, {"key", "calm"}, {"label", " \n\tSoft\u2028 "}},
                                  {{"id", "3"}, {"key", "k3"}, {"label", 12}},
                                  {{"id", "4"}, {"key", "k4"}}});
    ASSERT_EQ(modes.size(), 4u);
    std::map<std::string, std::string> labels;
    for (const auto& m : modes)
        labels[m.key] = m.label;
    EXPECT_EQ(labels["party"], "party");
    EXPECT_EQ(labels["calm"], "Soft");
    EXPECT_EQ(labels["k3"], "k3");
    EXPECT_EQ(labels["k4"], "k4");
}

TEST(LightingModes, SharedAndCategoryFollowTheShowIdKey) {
    const auto modes = modesFrom(
        {{{"id", "1"}, {"key", "shared"}, {"order_index", 0}},
         {{"id", "2"}, {"key", "null-show"}, {"show_id", nullptr}, {"order_index", 1}},
         {{"id", "3"}, {"key", "forced"}, {"show_id", "s"}, {"shared", true}, {"order_index", 2}},
         {{"id", "4"},
          {"key", "cat"},
          {"category", "  Strobes "},
          {"shared", 1},
          {"order_index", 3}},
         {{"id", "5"},
          {"key", "blankcat"},
          {"category", " "},
          {"shared", false},
          {"order_index", 4}}});
    ASSERT_EQ(keysOf(modes),
              (std::vector<std::string>{"shared", "null-show", "forced", "cat", "blankcat"}));
    EXPECT_TRUE(modes[0].shared);
    EXPECT_EQ(modes[0].category, "general");
    EXPECT_FALSE(modes[1].shared);
    EXPECT_EQ(modes[1].category, "show");
    EXPECT_TRUE(modes[2].shared);
    EXPECT_EQ(modes[2].category, "general");
    EXPECT_TRUE(modes[3].shared); // "shared": 1 is no boolean; no "show_id" makes it shared
    EXPECT_EQ(modes[3].category, "Strobes");
    EXPECT_FALSE(modes[4].shared);
    EXPECT_EQ(modes[4].category, "show");
}

TEST(LightingModes, SkipsMalformedAndArchivedModes) {
    const auto modes = modesFrom({{{"id", "1"}, {"key", "ok"}},
                                  {{"id", 1}, {"key", "numeric-id"}},
                                  {{"id", "2"}},
                                  {{"id", "3"}, {"key", "gone"}, {"archived", true}},
                                  {{"id", "4"}, {"key", "kept"}, {"archived", "true"}},
                                  "text",
                                  nullptr});
    EXPECT_EQ(keysOf(modes), (std::vector<std::string>{"kept", "ok"}));
}

TEST(LightingModes, SortsStablyByOrderIndexThenCaseInsensitiveLabel) {
    const auto modes = modesFrom({{{"id", "1"}, {"key", "b"}, {"label", "b"}, {"order_index", 2}},
                                  {{"id", "2"}, {"key", "B2"}, {"label", "B2"}, {"order_index", 1}},
                                  {{"id", "3"}, {"key", "a"}, {"label", "a"}, {"order_index", 1}}});
    EXPECT_EQ(keysOf(modes), (std::vector<std::string>{"a", "B2", "b"}));

    // Case alone does not reorder, and equal labels keep the server's order.
    const auto sameIndex = modesFrom({{{"id", "1"}, {"key", "x1"}, {"label", "beta"}},
                                      {{"id", "2"}, {"key", "x2"}, {"label", "Alpha"}},
                                      {{"id", "3"}, {"key", "x3"}, {"label", "alpha"}},
                                      {{"id", "4"}, {"key", "x4"}, {"label", "ALPHA"}},
                                      {{"id", "5"}, {"key", "x5"}, {"label", "Beta"}}});
    EXPECT_EQ(sameIndex[0].label.size(), 5u);
    EXPECT_EQ(keysOf(sameIndex), (std::vector<std::string>{"x2", "x3", "x4", "x1", "x5"}));

    // The user's language orders accented letters with their base letter, not after "z".
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::French, QLocale::France));
    const auto accented = modesFrom({{{"id", "1"}, {"key", "f"}, {"label", "fast"}},
                                     {{"id", "2"}, {"key", "e"}, {"label", "\u00c9clair"}},
                                     {{"id", "3"}, {"key", "d"}, {"label", "easy"}}});
    QLocale::setDefault(previous);
    EXPECT_EQ(keysOf(accented), (std::vector<std::string>{"d", "e", "f"}));
}

TEST(LightingModes, OrderIndexIsANumberTruncatedTowardZero) {
    const auto modes = modesFrom({{{"id", "1"}, {"key", "three"}, {"order_index", 3.9}},
                                  {{"id", "2"}, {"key", "text"}, {"order_index", "3"}},
                                  {{"id", "3"}, {"key", "neg"}, {"order_index", -1.7}},
                                  {{"id", "4"}, {"key", "bool"}, {"order_index", true}},
                                  {{"id", "5"}, {"key", "huge"}, {"order_index", 1e300}}});
    std::map<std::string, std::int64_t> index;
    for (const auto& m : modes)
        index[m.key] = m.orderIndex;
    EXPECT_EQ(index["three"], 3);
    EXPECT_EQ(index["text"], 0);
    EXPECT_EQ(index["neg"], -1);
    EXPECT_EQ(index["bool"], 1);
    EXPECT_EQ(index["huge"], INT64_MAX);
    EXPECT_EQ(keysOf(modes), (std::vector<std::string>{"neg", "text", "bool", "three", "huge"}));
}

TEST(LightingModes, ParentAndCoreKeyOnlyWhenText) {
    const auto modes =
        modesFrom({{{"id", "1"}, {"key", "a"}, {"global_parent_id", "p"}, {"core_key", "c"}},
                   {{"id", "2"}, {"key", "b"}, {"global_parent_id", 3}, {"core_key", nullptr}}});
    ASSERT_EQ(modes.size(), 2u);
    EXPECT_EQ(modes[0].globalParentId, "p");
    EXPECT_EQ(modes[0].coreKey, "c");
    EXPECT_EQ(modes[1].globalParentId, std::nullopt);
    EXPECT_EQ(modes[1].coreKey, std::nullopt);
}

// --- control selections -------------------------------------------------------------------

TEST(ControlSelections, TrimModeAndThemeKeepModeToVerbatimClampTheLerp) {
    const auto inf = std::numeric_limits<double>::infinity();
    const std::pair<json, BridgeControlSelections> cases[] = {
        {json::object(), {"blackout", "Rave", std::nullopt, 0}},
        {{{"theme_name", ""}}, {"blackout", "Rave", std::nullopt, 0}},
        {{{"mode", " party\n"}, {"theme_name", "\tOcean "}}, {"party", "Ocean", std::nullopt, 0}},
        {{{"mode", 4}, {"theme_name", " "}}, {"blackout", "Rave", std::nullopt, 0}},
        {{{"mode_to", ""}}, {"blackout", "Rave", "", 0}},
        {{{"mode_to", " x "}}, {"blackout", "Rave", " x ", 0}},
        {{{"mode_to", nullptr}}, {"blackout", "Rave", std::nullopt, 0}},
        {{{"mode_lerp", 1.7}}, {"blackout", "Rave", std::nullopt, 1}},
        {{{"mode_lerp", -0.2}}, {"blackout", "Rave", std::nullopt, 0}},
        {{{"mode_lerp", 0.25}}, {"blackout", "Rave", std::nullopt, 0.25}},
        {{{"mode_lerp", "0.5"}}, {"blackout", "Rave", std::nullopt, 0}},
        {{{"mode_lerp", true}}, {"blackout", "Rave", std::nullopt, 1}},
        {{{"mode_lerp", nullptr}}, {"blackout", "Rave", std::nullopt, 0}},
        {{{"mode_lerp", inf}}, {"blackout", "Rave", std::nullopt, 0}}, // never reaches the engine
    };
    for (const auto& [state, expected] : cases)
        EXPECT_EQ(parsed::extractControlSelections(json{{"control_state", state}}), expected)
            << state;
}

// --- revisions ----------------------------------------------------------------------------

TEST(ShowRevisions, OnlyIntegralNumbersAndLaterDuplicatesWin) {
    const auto revisions = extractShowRevisions(json{
        {"shows",
         {{{"id", "a"}, {"revision", 3}},
          {{"id", "half"}, {"revision", 3.5}},
          {{"id", "text"}, {"revision", "3"}},
          {{"id", "whole"}, {"revision", 4.0}},
          {{"id", "old"}, {"revision", 9}, {"archived", true}},
          {{"id", 7}, {"revision", 1}},
          {{"id", "none"}},
          {{"id", "a"}, {"revision", 5}},
          {{"id", "big"},
           {"revision", 18446744073709551615ULL}}}}}.dump());
    EXPECT_EQ(revisions, (std::map<std::string, std::int64_t>{{"a", 5}, {"whole", 4}}));
}

// --- themes -------------------------------------------------------------------------------

TEST(ThemeOptions, PaletteEntriesNeedThreeNumbersAndIgnoreExtras) {
    const auto themes = extractThemeOptions(json{
        {"theme_color_examples",
         {{{"name", "Fire"},
           {"palette",
            {{1, 0}, {1, 0, 0.5, 9}, {"1", 0, 0}, {0.2, 0.3, 0.4}, "red", {true, 2, -1}}},
           {"allows_rainbow", true},
           {"always_rainbow", "yes"}}}}}.dump());
    ASSERT_EQ(themes.size(), 1u);
    EXPECT_EQ(themes[0].palette,
              (ThemePalette{{1, 0, 0.5}, {0.2, 0.3, 0.4}, {1, 2, -1}})); // no clamping
    EXPECT_TRUE(themes[0].allowsRainbow);
    EXPECT_FALSE(themes[0].alwaysRainbow);
}

TEST(ThemeOptions, AlternativePalettesNeedThreeColoursAndEmptyPaletteKeepsTheTheme) {
    const json three = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const json two = {{1, 0, 0}, {0, 1, 0}};
    const json twoPlusJunk = {{1, 0, 0}, {0, 1, 0}, {0, 1}};
    const auto themes = parsed::extractThemeOptions(
        json{{"theme_color_examples",
              {{{"name", "Alt"}, {"palettes", {three, two, twoPlusJunk, "x"}}},
               {{"name", ""}, {"palette", three}},
               {{"name", 5}},
               {{"name", " Spaced "}},
               7}}});
    ASSERT_EQ(themes.size(), 2u);
    EXPECT_EQ(themes[0].name, "Alt");
    EXPECT_TRUE(themes[0].palette.empty());
    ASSERT_EQ(themes[0].palettes.size(), 1u);
    EXPECT_EQ(themes[0].palettes[0].size(), 3u);
    EXPECT_EQ(themes[1].name, " Spaced "); // names are not trimmed
}

TEST(ThemeOptions, EnginePayloadUsesCamelCaseAndTriples) {
    ThemeOption theme{"Ice", {{0.1, 0.2, 0.3}}, {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}, true, false};
    EXPECT_EQ(theme.enginePayload(), json::parse(R"({"name":"Ice","palette":[[0.1,0.2,0.3]],
                              "palettes":[[[1.0,0.0,0.0],[0.0,1.0,0.0],[0.0,0.0,1.0]]],
                              "allowsRainbow":true,"alwaysRainbow":false})"));
}

// --- persisted form -----------------------------------------------------------------------

TEST(PersistedOptions, RoundTripWithTheExactKeys) {
    const LightingModeOption mode{"m1", "party", "Party", "show", -3, false, "p", std::nullopt};
    const json encoded = mode;
    EXPECT_EQ(encoded, json::parse(R"({"id":"m1","key":"party","label":"Party","category":"show",
                                     "orderIndex":-3,"shared":false,"globalParentId":"p"})"));
    EXPECT_EQ(encoded.get<LightingModeOption>(), mode);

    const ShowOption show{"s", "Show", true, false};
    EXPECT_EQ(json(show),
              json::parse(R"({"id":"s","name":"Show","active":true,"archived":false})"));
    EXPECT_EQ(json(show).get<ShowOption>(), show);

    const ThemeOption theme{"T", {{0.5, 0.25, 1}}, {}, false, true};
    EXPECT_EQ(json(theme), json::parse(R"({"name":"T","palette":[{"r":0.5,"g":0.25,"b":1.0}],
                                         "palettes":[],"allowsRainbow":false,"alwaysRainbow":true})"));
    EXPECT_EQ(json(theme).get<ThemeOption>(), theme);
}

TEST(PersistedOptions, StrictDecodingRejectsMissingOrMistypedKeys) {
    EXPECT_THROW(json::parse(R"({"id":"s","name":"n","active":true})").get<ShowOption>(),
                 json::exception);
    EXPECT_THROW(
        json::parse(R"({"id":"s","name":"n","active":1,"archived":false})").get<ShowOption>(),
        json::exception);
    EXPECT_THROW(json::parse(R"({"id":"m","key":"k","label":"l","category":"c","orderIndex":1.5,
                                "shared":true})")
                     .get<LightingModeOption>(),
                 json::exception);
    EXPECT_THROW(json::parse(R"({"r":1,"g":true,"b":0})").get<ThemePaletteColor>(),
                 json::exception);
}

// --- number readers -----------------------------------------------------------------------

TEST(JsonNumberReaders, BooleansAreNumbersStringsAreNot) {
    using namespace json_read;
    const json t = true, s = "3", f = 2.5, i = -4, big = 1e19, whole = 7.0;
    EXPECT_EQ(jsonDouble(&t), 1.0);
    EXPECT_EQ(jsonDouble(&s), std::nullopt);
    EXPECT_EQ(jsonDouble(nullptr), std::nullopt);
    EXPECT_EQ(jsonInteger(&t), 1);
    EXPECT_EQ(jsonInteger(&f), std::nullopt);
    EXPECT_EQ(jsonInteger(&i), -4);
    EXPECT_EQ(jsonInteger(&big), std::nullopt);
    EXPECT_EQ(jsonInteger(&whole), 7);
    EXPECT_EQ(jsonTruncatedInteger(&f), 2);
    EXPECT_EQ(jsonTruncatedInteger(&s), std::nullopt);
}

} // namespace
} // namespace kelvo
