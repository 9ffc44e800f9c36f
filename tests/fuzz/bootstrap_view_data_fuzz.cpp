// Hostile bootstrap and configuration documents: every extractor must either return or throw
// one of its two documented errors, never crash.
#include "FuzzTarget.h"
#include "Show/BootstrapViewData.h"

KELVO_FUZZ_TARGET(input) {
    nlohmann::json document;
    try {
        document = BootstrapViewData::parseDocument(input);
    } catch (const nlohmann::json::exception&) { // the parser's own error
        return;
    } catch (const BootstrapViewDataError&) {
        return;
    }

    namespace parsed = BootstrapViewData::parsed;
    const auto shows = parsed::extractShowList(document);
    for (const auto& show : shows)
        require(!show.archived);
    require(ShowList::markingActive(shows, shows.empty() ? "" : shows.front().id).size() ==
            shows.size());

    const auto modes = parsed::extractLightingModes(document);
    for (std::size_t i = 1; i < modes.size(); ++i)
        require(modes[i - 1].orderIndex <= modes[i].orderIndex);
    for (const auto& mode : modes) {
        // A blank label falls back to the key, which may itself be empty.
        require((!mode.label.empty() || mode.key.empty()) && !mode.category.empty());
        require(nlohmann::json(mode).get<LightingModeOption>() == mode);
    }

    const auto selections = parsed::extractControlSelections(document);
    require(selections.modeLerp >= 0 && selections.modeLerp <= 1 && !selections.modeId.empty() &&
            !selections.themeName.empty());

    (void)parsed::extractShowRevisions(document);

    for (const auto& theme : parsed::extractThemeOptions(document)) {
        require(!theme.name.empty());
        for (const auto& palette : theme.palettes)
            require(palette.size() >= 3);
        (void)theme.enginePayload().dump();
    }
}
