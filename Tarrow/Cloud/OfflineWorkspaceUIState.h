#pragma once

#include "Show/ShowOptions.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// The dashboard selections that make the cached show usable without the cloud.
struct OfflineWorkspaceUIState {
    // Defaulted, so a state can be written with designated initialisers.
    std::vector<ShowOption> shows = {};
    std::optional<std::string> selectedShowId = {};
    std::vector<LightingModeOption> lightingModes = {};
    std::string selectedModeId = {};
    std::vector<ThemeOption> themes = {};
    std::string selectedThemeName = {};
    std::optional<std::string> selectedModeTo = {};
    std::optional<double> selectedModeLerp = {};

    friend bool operator==(const OfflineWorkspaceUIState&,
                           const OfflineWorkspaceUIState&) = default;
};

// Keys "shows", "selectedShowId", "lightingModes", "selectedModeId", "themes",
// "selectedThemeName", "selectedModeTo", "selectedModeLerp"; absent optionals are left out.
// Decoding throws nlohmann::json::exception when a required key is missing or mistyped.
void to_json(nlohmann::json& out, const OfflineWorkspaceUIState& state);
void from_json(const nlohmann::json& in, OfflineWorkspaceUIState& state);

} // namespace kelvo
