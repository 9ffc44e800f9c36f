#include "Show/ShowOptions.h"

#include "Show/StrictJson.h"

namespace kelvo {

namespace {

nlohmann::json colourTriple(const ThemePaletteColor& c) {
    return nlohmann::json::array({c.r, c.g, c.b});
}

nlohmann::json paletteTriples(const ThemePalette& palette) {
    auto out = nlohmann::json::array();
    for (const auto& colour : palette)
        out.push_back(colourTriple(colour));
    return out;
}

} // namespace

nlohmann::json ThemeOption::enginePayload() const {
    auto alternatives = nlohmann::json::array();
    for (const auto& alternative : palettes)
        alternatives.push_back(paletteTriples(alternative));
    return {{"name", name},
            {"palette", paletteTriples(palette)},
            {"palettes", std::move(alternatives)},
            {"allowsRainbow", allowsRainbow},
            {"alwaysRainbow", alwaysRainbow}};
}

std::vector<ShowOption> ShowList::markingActive(std::vector<ShowOption> shows,
                                                std::string_view showId) {
    for (auto& show : shows)
        show.active = show.id == showId;
    return shows;
}

void to_json(nlohmann::json& out, const ShowOption& show) {
    out = {
        {"id", show.id}, {"name", show.name}, {"active", show.active}, {"archived", show.archived}};
}

void from_json(const nlohmann::json& in, ShowOption& show) {
    show.id = strict_json::string(in, "id");
    show.name = strict_json::string(in, "name");
    show.active = strict_json::boolean(in, "active");
    show.archived = strict_json::boolean(in, "archived");
}

void to_json(nlohmann::json& out, const LightingModeOption& mode) {
    out = {{"id", mode.id},
           {"key", mode.key},
           {"label", mode.label},
           {"category", mode.category},
           {"orderIndex", mode.orderIndex},
           {"shared", mode.shared}};
    strict_json::putOptional(out, "globalParentId", mode.globalParentId);
    strict_json::putOptional(out, "coreKey", mode.coreKey);
}

void from_json(const nlohmann::json& in, LightingModeOption& mode) {
    mode.id = strict_json::string(in, "id");
    mode.key = strict_json::string(in, "key");
    mode.label = strict_json::string(in, "label");
    mode.category = strict_json::string(in, "category");
    mode.orderIndex = strict_json::integer(in, "orderIndex");
    mode.shared = strict_json::boolean(in, "shared");
    mode.globalParentId = strict_json::optionalString(in, "globalParentId");
    mode.coreKey = strict_json::optionalString(in, "coreKey");
}

void to_json(nlohmann::json& out, const ThemePaletteColor& color) {
    out = {{"r", color.r}, {"g", color.g}, {"b", color.b}};
}

void from_json(const nlohmann::json& in, ThemePaletteColor& color) {
    color.r = strict_json::number(in, "r");
    color.g = strict_json::number(in, "g");
    color.b = strict_json::number(in, "b");
}

void to_json(nlohmann::json& out, const ThemeOption& theme) {
    out = {{"name", theme.name},
           {"palette", theme.palette},
           {"palettes", theme.palettes},
           {"allowsRainbow", theme.allowsRainbow},
           {"alwaysRainbow", theme.alwaysRainbow}};
}

void from_json(const nlohmann::json& in, ThemeOption& theme) {
    theme.name = strict_json::string(in, "name");
    theme.palette = strict_json::required(in, "palette").get<ThemePalette>();
    theme.palettes = strict_json::required(in, "palettes").get<std::vector<ThemePalette>>();
    theme.allowsRainbow = strict_json::boolean(in, "allowsRainbow");
    theme.alwaysRainbow = strict_json::boolean(in, "alwaysRainbow");
}

} // namespace kelvo
