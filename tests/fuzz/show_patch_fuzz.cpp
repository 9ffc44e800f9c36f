// Hostile show snapshots: the patch builder must not crash, its counts must agree with its
// groups, and every patch must survive its own JSON form.
#include "Show/ShowPatchBuilder.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kelvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    nlohmann::json snapshot;
    try {
        snapshot = nlohmann::json::parse(bytes);
    } catch (const nlohmann::json::exception&) { // the parser's own error
        return 0;
    }
    const auto patch = ShowPatchBuilder::build(snapshot);
    if (!patch)
        return 0;
    if (patch->overlapCount() > patch->fixtureCount())
        std::abort();
    if (!(patch->blueprint.floorWidth >= 1) || !(patch->blueprint.floorDepth >= 1))
        std::abort();
    for (const auto& group : patch->groups)
        for (const auto& fixture : group.fixtures)
            if (fixture.universe < 1 || fixture.address < 1 || fixture.width < 1 ||
                fixture.groupName != group.name)
                std::abort();
    const nlohmann::json encoded = *patch;
    if (encoded.get<ShowPatch>() != *patch)
        std::abort();
    return 0;
}
