#include "Engine/OfflineCacheSeed.h"

#include "Cloud/OfflineShowCache.h"
#include "Engine/EngineHost.h"
#include "Show/BootstrapViewData.h"
#include "Show/ShowPatchBuilder.h"

#include <stdexcept>

namespace kelvo {

namespace {
std::string_view view(const QByteArray& bytes) {
    return std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size()));
}
} // namespace

void seedOfflineCache(const OfflineCacheSource& source, EngineHost& engine,
                      OfflineShowCache& cache) {
    nlohmann::json bootstrap;
    try {
        bootstrap = BootstrapViewData::parseDocument(view(source.bootstrap));
    } catch (const std::exception& error) {
        throw std::runtime_error(std::string("The bootstrap cannot be read: ") + error.what());
    }
    if (!bootstrap.is_object() || !bootstrap.contains("active_show") ||
        !bootstrap["active_show"].is_object())
        throw std::runtime_error("The bootstrap has no active show.");
    const nlohmann::json& activeShow = bootstrap["active_show"];
    const nlohmann::json controlState = bootstrap.value("control_state", nlohmann::json::object());

    engine.loadHarness(view(source.harnessJS));
    const std::optional<std::string> subset = engine.loadShow(activeShow, controlState);
    if (!subset || !engine.hasRealizedShow())
        throw std::runtime_error("The harness did not realise the active show.");

    OfflineWorkspaceUIState workspace;
    workspace.shows = BootstrapViewData::parsed::extractShowList(bootstrap);
    workspace.lightingModes = BootstrapViewData::parsed::extractLightingModes(bootstrap);
    const BridgeControlSelections selections =
        BootstrapViewData::parsed::extractControlSelections(bootstrap);
    workspace.selectedModeId = selections.modeId;
    workspace.selectedModeTo = selections.modeTo;
    workspace.selectedModeLerp = selections.modeLerp;
    workspace.selectedThemeName = selections.themeName;
    workspace.themes = BootstrapViewData::extractThemeOptions(view(source.config));
    const std::optional<ShowPatch> patch = ShowPatchBuilder::build(activeShow);
    if (patch)
        workspace.selectedShowId = patch->showId;

    cache.saveHarnessJS(source.harnessJS, source.manifest);
    cache.saveShowSnapshot(QByteArray::fromStdString(*subset));
    cache.saveWorkspaceUI(workspace);
    if (patch)
        cache.savePatch(*patch);
}

} // namespace kelvo
