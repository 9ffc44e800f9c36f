#include "Cloud/OfflineWorkspaceUIState.h"

#include "Show/StrictJson.h"

namespace kelvo {

void to_json(nlohmann::json& out, const OfflineWorkspaceUIState& state) {
    out = {{"shows", state.shows},
           {"lightingModes", state.lightingModes},
           {"selectedModeId", state.selectedModeId},
           {"themes", state.themes},
           {"selectedThemeName", state.selectedThemeName}};
    strict_json::putOptional(out, "selectedShowId", state.selectedShowId);
    strict_json::putOptional(out, "selectedModeTo", state.selectedModeTo);
    if (state.selectedModeLerp)
        out["selectedModeLerp"] = *state.selectedModeLerp;
}

void from_json(const nlohmann::json& in, OfflineWorkspaceUIState& state) {
    state.shows = strict_json::required(in, "shows").get<std::vector<ShowOption>>();
    state.selectedShowId = strict_json::optionalString(in, "selectedShowId");
    state.lightingModes =
        strict_json::required(in, "lightingModes").get<std::vector<LightingModeOption>>();
    state.selectedModeId = strict_json::string(in, "selectedModeId");
    state.themes = strict_json::required(in, "themes").get<std::vector<ThemeOption>>();
    state.selectedThemeName = strict_json::string(in, "selectedThemeName");
    state.selectedModeTo = strict_json::optionalString(in, "selectedModeTo");
    state.selectedModeLerp = strict_json::optionalNumber(in, "selectedModeLerp");
}

} // namespace kelvo
