#include "Show/BootstrapViewData.h"

#include "Show/JsonValueReaders.h"
#include "Show/UntrustedJSON.h"

#include <QCollator>
#include <QString>

#include <algorithm>

namespace kelvo::BootstrapViewData {

using json_read::jsonBool;
using json_read::jsonString;
using json_read::member;

namespace {

// A list whose elements are not all objects keeps its object elements: one malformed entry
// from the server must not hide the good ones beside it.
template <typename Visit> void forEachObject(const nlohmann::json* list, Visit&& visit) {
    if (!list || !list->is_array())
        return;
    for (const auto& element : *list)
        if (element.is_object())
            visit(element);
}

void requireObject(const nlohmann::json& document) {
    if (!document.is_object())
        throw BootstrapViewDataError(BootstrapViewDataError::Kind::invalidJSON);
}

/// Trimmed text, or nothing when missing, not text or blank.
std::optional<std::string> nonBlankTrimmed(const nlohmann::json* value) {
    auto text = jsonString(value);
    if (!text)
        return std::nullopt;
    auto result = json_read::trimmed(*text);
    if (result.empty())
        return std::nullopt;
    return result;
}

} // namespace

nlohmann::json parseDocument(std::string_view bytes) {
    if (jsonNestsTooDeep(bytes))
        throw BootstrapViewDataError(BootstrapViewDataError::Kind::invalidJSON);
    auto document = nlohmann::json::parse(bytes);
    requireObject(document);
    return document;
}

std::vector<ShowOption> extractShowList(std::string_view bootstrapJSON) {
    return parsed::extractShowList(parseDocument(bootstrapJSON));
}

std::vector<ShowOption> parsed::extractShowList(const nlohmann::json& bootstrap) {
    requireObject(bootstrap);
    std::vector<ShowOption> shows;
    forEachObject(member(bootstrap, "shows"), [&](const nlohmann::json& element) {
        auto id = jsonString(member(element, "id"));
        auto name = jsonString(member(element, "name"));
        if (!id || !name)
            return;
        ShowOption show{std::move(*id), std::move(*name),
                        jsonBool(member(element, "active")).value_or(false),
                        jsonBool(member(element, "archived")).value_or(false)};
        if (!show.archived)
            shows.push_back(std::move(show));
    });
    return shows;
}

std::vector<LightingModeOption> extractLightingModes(std::string_view bootstrapJSON) {
    return parsed::extractLightingModes(parseDocument(bootstrapJSON));
}

std::vector<LightingModeOption> parsed::extractLightingModes(const nlohmann::json& bootstrap) {
    requireObject(bootstrap);
    std::vector<LightingModeOption> modes;
    const auto* activeShow = member(bootstrap, "active_show");
    if (!activeShow || !activeShow->is_object())
        return modes;
    forEachObject(member(*activeShow, "lighting_modes"), [&](const nlohmann::json& element) {
        auto id = jsonString(member(element, "id"));
        auto key = jsonString(member(element, "key"));
        if (!id || !key)
            return;
        if (jsonBool(member(element, "archived")) == true)
            return;
        LightingModeOption mode;
        mode.id = std::move(*id);
        mode.label = nonBlankTrimmed(member(element, "label")).value_or(*key);
        mode.key = std::move(*key);
        // "show_id": null still names a show slot, so only a missing key makes a mode shared.
        mode.shared =
            jsonBool(member(element, "shared")).value_or(member(element, "show_id") == nullptr);
        mode.category = nonBlankTrimmed(member(element, "category"))
                            .value_or(mode.shared ? sharedModeCategory : showModeCategory);
        mode.orderIndex =
            json_read::jsonTruncatedInteger(member(element, "order_index")).value_or(0);
        mode.globalParentId = jsonString(member(element, "global_parent_id"));
        mode.coreKey = jsonString(member(element, "core_key"));
        modes.push_back(std::move(mode));
    });

    QCollator collator; // the user's locale
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::vector<QString> labels;
    labels.reserve(modes.size());
    std::vector<std::size_t> order(modes.size());
    for (std::size_t i = 0; i < modes.size(); ++i) {
        order[i] = i;
        labels.push_back(QString::fromStdString(modes[i].label));
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        if (modes[a].orderIndex != modes[b].orderIndex)
            return modes[a].orderIndex < modes[b].orderIndex;
        return collator.compare(labels[a], labels[b]) < 0;
    });
    std::vector<LightingModeOption> sorted;
    sorted.reserve(modes.size());
    for (const auto i : order)
        sorted.push_back(std::move(modes[i]));
    return sorted;
}

BridgeControlSelections extractControlSelections(std::string_view bootstrapJSON) {
    return parsed::extractControlSelections(parseDocument(bootstrapJSON));
}

BridgeControlSelections parsed::extractControlSelections(const nlohmann::json& bootstrap) {
    requireObject(bootstrap);
    static const nlohmann::json empty = nlohmann::json::object();
    const auto* state = member(bootstrap, "control_state");
    const auto& controlState = state && state->is_object() ? *state : empty;
    BridgeControlSelections selections;
    selections.modeId = nonBlankTrimmed(member(controlState, "mode")).value_or(defaultModeId);
    selections.themeName =
        nonBlankTrimmed(member(controlState, "theme_name")).value_or(defaultThemeName);
    selections.modeTo = jsonString(member(controlState, "mode_to"));
    selections.modeLerp = json_read::unitAmount(member(controlState, "mode_lerp"));
    return selections;
}

std::map<std::string, std::int64_t> extractShowRevisions(std::string_view bootstrapJSON) {
    return parsed::extractShowRevisions(parseDocument(bootstrapJSON));
}

std::map<std::string, std::int64_t> parsed::extractShowRevisions(const nlohmann::json& bootstrap) {
    requireObject(bootstrap);
    std::map<std::string, std::int64_t> revisions;
    forEachObject(member(bootstrap, "shows"), [&](const nlohmann::json& element) {
        auto id = jsonString(member(element, "id"));
        if (!id || jsonBool(member(element, "archived")) == true)
            return;
        // Only an integral JSON number (booleans being numbers): 3.5 and "3" are skipped.
        if (const auto value = json_read::jsonInteger(member(element, "revision")))
            revisions[*id] = *value;
    });
    return revisions;
}

ThemePalette paletteColors(const nlohmann::json* entries) {
    ThemePalette palette;
    if (!entries || !entries->is_array())
        return palette;
    for (const auto& entry : *entries) {
        if (!entry.is_array() || entry.size() < 3)
            continue;
        const auto r = json_read::jsonDouble(&entry[0]);
        const auto g = json_read::jsonDouble(&entry[1]);
        const auto b = json_read::jsonDouble(&entry[2]);
        if (r && g && b)
            palette.push_back({*r, *g, *b});
    }
    return palette;
}

std::vector<ThemeOption> extractThemeOptions(std::string_view configJSON) {
    return parsed::extractThemeOptions(parseDocument(configJSON));
}

std::vector<ThemeOption> parsed::extractThemeOptions(const nlohmann::json& config) {
    requireObject(config);
    std::vector<ThemeOption> themes;
    forEachObject(member(config, "theme_color_examples"), [&](const nlohmann::json& element) {
        auto name = jsonString(member(element, "name"));
        if (!name || name->empty())
            return;
        ThemeOption theme;
        theme.name = std::move(*name);
        theme.palette = paletteColors(member(element, "palette"));
        if (const auto* alternatives = member(element, "palettes");
            alternatives && alternatives->is_array()) {
            for (const auto& alternative : *alternatives) {
                auto colours = paletteColors(&alternative);
                if (colours.size() >= 3)
                    theme.palettes.push_back(std::move(colours));
            }
        }
        theme.allowsRainbow = jsonBool(member(element, "allows_rainbow")).value_or(false);
        theme.alwaysRainbow = jsonBool(member(element, "always_rainbow")).value_or(false);
        themes.push_back(std::move(theme));
    });
    return themes;
}

} // namespace kelvo::BootstrapViewData
