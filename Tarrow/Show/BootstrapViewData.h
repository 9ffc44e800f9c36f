#pragma once

#include "Show/ShowOptions.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// A bootstrap or configuration document whose top level is not a JSON object.
class BootstrapViewDataError : public std::runtime_error {
public:
    enum class Kind { invalidJSON };

    static constexpr const char* invalidJSONDescription =
        "Runtime bootstrap payload was not a JSON object";

    explicit BootstrapViewDataError(Kind kind = Kind::invalidJSON)
        : std::runtime_error(invalidJSONDescription), kind_(kind) {}

    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

/// Tolerant readers of the runtime bootstrap payload and the configuration document: a
/// malformed element is skipped, a missing list is empty. The byte overloads parse first and
/// throw the parser's error on a malformed document and BootstrapViewDataError when the top
/// level is not an object; the JSON overloads throw only the latter.
/// The parser's own errors are nlohmann::json::exception: parse_error for bad syntax,
/// out_of_range for a number beyond a double (1e999).
namespace BootstrapViewData {

/// Parses a document and requires an object at the top level.
nlohmann::json parseDocument(std::string_view bytes);

std::vector<ShowOption> extractShowList(std::string_view bootstrapJSON);
std::vector<LightingModeOption> extractLightingModes(std::string_view bootstrapJSON);
BridgeControlSelections extractControlSelections(std::string_view bootstrapJSON);
std::map<std::string, std::int64_t> extractShowRevisions(std::string_view bootstrapJSON);
std::vector<ThemeOption> extractThemeOptions(std::string_view configJSON);

/// The same readers over a document parsed once (for example by applying a bootstrap).
namespace parsed {
std::vector<ShowOption> extractShowList(const nlohmann::json& bootstrap);
std::vector<LightingModeOption> extractLightingModes(const nlohmann::json& bootstrap);
BridgeControlSelections extractControlSelections(const nlohmann::json& bootstrap);
std::map<std::string, std::int64_t> extractShowRevisions(const nlohmann::json& bootstrap);
std::vector<ThemeOption> extractThemeOptions(const nlohmann::json& config);
} // namespace parsed

/// Colour entries of at least three numbers; the first three are r, g, b, extras are ignored,
/// anything else is skipped.
ThemePalette paletteColors(const nlohmann::json* entries);

inline constexpr const char* defaultModeId = "blackout";
inline constexpr const char* defaultThemeName = "Rave";
inline constexpr const char* sharedModeCategory = "general";
inline constexpr const char* showModeCategory = "show";

} // namespace BootstrapViewData

} // namespace kelvo
