#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// One show a user can switch to.
struct ShowOption {
    std::string id;
    std::string name;
    bool active = false; ///< the show currently running on the bridge
    bool archived = false;

    friend bool operator==(const ShowOption&, const ShowOption&) = default;
};

/// One lighting mode; `key` is what the engine selects.
struct LightingModeOption {
    std::string id;
    std::string key;
    std::string label;
    std::string category; ///< "general" for shared modes, "show" for a show's own, or the server's
    std::int64_t orderIndex = 0;
    bool shared = false;
    std::optional<std::string> globalParentId;
    std::optional<std::string> coreKey;

    friend bool operator==(const LightingModeOption&, const LightingModeOption&) = default;
};

/// Channel values as the server sends them; the harness expects 0…1 but nothing is clamped.
struct ThemePaletteColor {
    double r = 0;
    double g = 0;
    double b = 0;

    friend bool operator==(const ThemePaletteColor&, const ThemePaletteColor&) = default;
};

using ThemePalette = std::vector<ThemePaletteColor>;

struct ThemeOption {
    std::string name;
    ThemePalette palette;
    std::vector<ThemePalette> palettes; ///< alternatives, each of at least three colours
    bool allowsRainbow = false;
    bool alwaysRainbow = false;

    /// The theme as the harness takes it: camelCase keys, colours as [r, g, b] lists.
    nlohmann::json enginePayload() const;

    friend bool operator==(const ThemeOption&, const ThemeOption&) = default;
};

/// The selections held in the cloud's control state.
struct BridgeControlSelections {
    std::string modeId;
    std::string themeName;
    std::optional<std::string> modeTo;
    double modeLerp = 0; ///< 0…1 towards modeTo

    friend bool operator==(const BridgeControlSelections&,
                           const BridgeControlSelections&) = default;
};

namespace ShowList {
/// The same list with `active` set exactly on the entries whose id is `showId`.
std::vector<ShowOption> markingActive(std::vector<ShowOption> shows, std::string_view showId);
} // namespace ShowList

// The persisted (camelCase) form used by the workspace file. Decoding is strict: a missing
// required key or a value of the wrong type throws nlohmann::json::exception.
void to_json(nlohmann::json& out, const ShowOption& show);
void from_json(const nlohmann::json& in, ShowOption& show);
void to_json(nlohmann::json& out, const LightingModeOption& mode);
void from_json(const nlohmann::json& in, LightingModeOption& mode);
void to_json(nlohmann::json& out, const ThemePaletteColor& color);
void from_json(const nlohmann::json& in, ThemePaletteColor& color);
void to_json(nlohmann::json& out, const ThemeOption& theme);
void from_json(const nlohmann::json& in, ThemeOption& theme);

} // namespace kelvo
