// Hostile bootstrap and configuration documents: every extractor must either return or throw
// one of its two documented errors, never crash.
#include "Show/BootstrapViewData.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kelvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    nlohmann::json document;
    try {
        document = BootstrapViewData::parseDocument(bytes);
    } catch (const nlohmann::json::exception&) { // the parser's own error
        return 0;
    } catch (const BootstrapViewDataError&) {
        return 0;
    }

    namespace parsed = BootstrapViewData::parsed;
    const auto shows = parsed::extractShowList(document);
    for (const auto& show : shows)
        if (show.archived)
            std::abort();
    const auto marked = ShowList::markingActive(shows, shows.empty() ? "" : shows.front().id);
    if (marked.size() != shows.size())
        std::abort();

    const auto modes = parsed::extractLightingModes(document);
    for (std::size_t i = 1; i < modes.size(); ++i)
        if (modes[i - 1].orderIndex > modes[i].orderIndex)
            std::abort();
    for (const auto& mode : modes) {
        // A blank label falls back to the key, which may itself be empty.
        if ((mode.label.empty() && !mode.key.empty()) || mode.category.empty())
            std::abort();
        nlohmann::json encoded = mode;
        if (encoded.get<LightingModeOption>() != mode)
            std::abort();
    }

    const auto selections = parsed::extractControlSelections(document);
    if (!(selections.modeLerp >= 0 && selections.modeLerp <= 1) || selections.modeId.empty() ||
        selections.themeName.empty())
        std::abort();

    (void)parsed::extractShowRevisions(document);

    for (const auto& theme : parsed::extractThemeOptions(document)) {
        if (theme.name.empty())
            std::abort();
        for (const auto& palette : theme.palettes)
            if (palette.size() < 3)
                std::abort();
        (void)theme.enginePayload().dump();
    }
    return 0;
}
