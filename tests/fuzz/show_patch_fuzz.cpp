// Hostile show snapshots: the patch builder must not crash, its counts must agree with its
// groups, and every patch must survive its own JSON form.
#include "FuzzTarget.h"
#include "Show/ShowPatchBuilder.h"

KELVO_FUZZ_TARGET(input) {
    const nlohmann::json snapshot = nlohmann::json::parse(input, nullptr, false);
    if (snapshot.is_discarded())
        return;
    const auto patch = ShowPatchBuilder::build(snapshot);
    if (!patch)
        return;
    require(patch->overlapCount() <= patch->fixtureCount());
    require(patch->blueprint.floorWidth >= 1 && patch->blueprint.floorDepth >= 1);
    for (const auto& group : patch->groups)
        for (const auto& fixture : group.fixtures)
            require(fixture.universe >= 1 && fixture.address >= 1 && fixture.width >= 1 &&
                    fixture.groupName == group.name);
    require(nlohmann::json(*patch).get<ShowPatch>() == *patch);
}
