#include "Show/ShowPatchBuilder.h"

#include "Show/JsonValueReaders.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace kelvo::ShowPatchBuilder {

using json_read::jsonDouble;
using json_read::jsonInteger;
using json_read::jsonString;
using json_read::member;

namespace {

struct FloorPoint {
    double x = 0;
    double y = 0;
};

/// Lowest and highest value seen on one axis.
struct Extent {
    double low = 0;
    double high = 0;
    bool any = false;

    void add(double value) {
        low = any ? std::min(low, value) : value;
        high = any ? std::max(high, value) : value;
        any = true;
    }
    // Halves first so that extreme coordinates cannot overflow to infinity.
    double centre() const { return low / 2 + high / 2; }
    double span() const {
        const double span = high - low;
        return std::isfinite(span) ? span : 0;
    }
};

constexpr double minimumFloorSize = 1.0;

double floorSize(std::optional<double> given, const Extent& fixtures) {
    // Without a size from the floor object the floor spans the fixtures, so the blueprint
    // still shows every one of them.
    const double size = given.value_or(fixtures.span());
    return std::isfinite(size) && size > minimumFloorSize ? size : minimumFloorSize;
}

ShowBlueprint blueprintFor(const nlohmann::json& snapshot,
                           const std::vector<PatchFixture>& fixtures,
                           const std::vector<FloorPoint>& positions,
                           const std::vector<PatchGroup>& groups) {
    Extent allX, allY;
    for (const auto& p : positions) {
        allX.add(p.x);
        allY.add(p.y);
    }

    const nlohmann::json* floor = nullptr;
    if (const auto* objects = member(snapshot, "scene_objects"); objects && objects->is_array()) {
        for (const auto& object : *objects) {
            if (object.is_object() && jsonString(member(object, "kind")) == "floor") {
                floor = &object;
                break;
            }
        }
    }

    ShowBlueprint blueprint;
    if (floor) {
        blueprint.floorX = jsonDouble(member(*floor, "x")).value_or(0);
        blueprint.floorY = jsonDouble(member(*floor, "y")).value_or(0);
        blueprint.floorWidth = floorSize(jsonDouble(member(*floor, "floor_width")), allX);
        blueprint.floorDepth = floorSize(jsonDouble(member(*floor, "floor_depth")), allY);
    } else {
        // No floor object: the floor is the rectangle around the fixtures.
        blueprint.floorX = allX.low;
        blueprint.floorY = allY.low;
        blueprint.floorWidth = floorSize(std::nullopt, allX);
        blueprint.floorDepth = floorSize(std::nullopt, allY);
    }

    // One marker per named group, in group order, at the centre of the rectangle around its
    // fixtures. The ungrouped fixtures are no unit on stage and get none.
    std::map<std::string_view, std::pair<Extent, Extent>> extents;
    for (std::size_t i = 0; i < fixtures.size(); ++i) {
        if (!fixtures[i].groupName)
            continue;
        auto& [xs, ys] = extents[*fixtures[i].groupName];
        xs.add(positions[i].x);
        ys.add(positions[i].y);
    }
    for (const auto& patchGroup : groups) {
        if (!patchGroup.name)
            continue;
        const auto& [xs, ys] = extents[*patchGroup.name];
        blueprint.markers.push_back({xs.centre(), ys.centre(), patchGroup.name});
    }
    return blueprint;
}

} // namespace

std::string typeLabel(const nlohmann::json* definition, std::string_view fixtureType) {
    if (definition) {
        if (auto label = jsonString(member(*definition, "label")); label && !label->empty())
            return *label;
    }
    if (!fixtureType.empty())
        return std::string(fixtureType);
    return missingTypeLabel;
}

std::int64_t dmxWidth(std::string_view fixtureType, const nlohmann::json& row,
                      const nlohmann::json* definition) {
    std::optional<std::int64_t> width;
    if (fixtureType == manualDimmerType) {
        if (const auto* options = member(row, "options"); options && options->is_object())
            width = jsonInteger(member(*options, "width"));
    } else if (definition) {
        width = jsonInteger(member(*definition, "dmx_address_width"));
    }
    return std::max<std::int64_t>(width.value_or(1), 1);
}

std::set<std::string> overlappingIds(const std::vector<PatchFixture>& fixtures) {
    // Disabled fixtures take part: a disabled fixture still hangs at its address and would
    // react to the channels of the fixture it collides with.
    std::map<std::int64_t, std::vector<const PatchFixture*>> byUniverse;
    for (const auto& fixture : fixtures)
        byUniverse[fixture.universe].push_back(&fixture);

    // One sweep by address: a fixture collides with an earlier one exactly when it starts
    // before the furthest channel reached so far, and the fixture reaching furthest is then
    // one it collides with. Fixtures stacked on one address stay linear.
    std::set<std::string> ids;
    for (auto& [universe, members] : byUniverse) {
        std::stable_sort(members.begin(), members.end(),
                         [](const auto* a, const auto* b) { return a->address < b->address; });
        const PatchFixture* furthest = nullptr;
        for (const PatchFixture* fixture : members) {
            if (furthest && fixture->address <= furthest->lastChannel()) {
                ids.insert(furthest->id);
                ids.insert(fixture->id);
            }
            if (!furthest || fixture->lastChannel() > furthest->lastChannel())
                furthest = fixture;
        }
    }
    return ids;
}

std::vector<PatchGroup> group(const std::vector<PatchFixture>& fixtures) {
    // Groups in the order they first appear in the show, the ungrouped fixtures last; inside
    // a group the fixtures run by universe and address, as a patch sheet reads.
    std::vector<PatchGroup> groups;
    std::map<std::string_view, std::size_t> groupIndex;
    std::optional<PatchGroup> ungrouped;
    for (const auto& fixture : fixtures) {
        if (!fixture.groupName) {
            if (!ungrouped)
                ungrouped.emplace();
            ungrouped->fixtures.push_back(fixture);
            continue;
        }
        const auto [found, added] = groupIndex.try_emplace(*fixture.groupName, groups.size());
        if (added)
            groups.push_back(PatchGroup{fixture.groupName, {}});
        groups[found->second].fixtures.push_back(fixture);
    }
    if (ungrouped)
        groups.push_back(std::move(*ungrouped));
    for (auto& patchGroup : groups) {
        std::stable_sort(patchGroup.fixtures.begin(), patchGroup.fixtures.end(),
                         [](const PatchFixture& a, const PatchFixture& b) {
                             return std::pair(a.universe, a.address) <
                                    std::pair(b.universe, b.address);
                         });
    }
    return groups;
}

std::optional<ShowPatch> build(const nlohmann::json& snapshot) {
    const auto* summary = member(snapshot, "summary");
    if (!summary || !summary->is_object())
        return std::nullopt;
    auto showId = jsonString(member(*summary, "id"));
    if (!showId)
        return std::nullopt;

    ShowPatch patch;
    patch.showId = std::move(*showId);
    patch.showName = jsonString(member(*summary, "name")).value_or("");
    patch.revision = jsonInteger(member(snapshot, "revision")).value_or(0);

    const auto* definitions = member(snapshot, "fixture_definitions");
    if (definitions && !definitions->is_object())
        definitions = nullptr;

    std::vector<PatchFixture> fixtures;
    std::vector<FloorPoint> positions;
    if (const auto* rows = member(snapshot, "fixtures"); rows && rows->is_array()) {
        for (const auto& row : *rows) {
            auto id = jsonString(member(row, "id"));
            if (!row.is_object() || !id)
                continue;
            PatchFixture fixture;
            fixture.id = std::move(*id);
            const std::string type = jsonString(member(row, "fixture_type")).value_or("");
            fixture.name = jsonString(member(row, "name")).value_or("");
            fixture.groupName = jsonString(member(row, "group_name"));
            if (fixture.groupName && fixture.groupName->empty())
                fixture.groupName.reset();

            const nlohmann::json* definition = definitions ? member(*definitions, type) : nullptr;
            if (definition && !definition->is_object())
                definition = nullptr;
            fixture.fixtureType = typeLabel(definition, type);

            const auto universe = jsonInteger(member(row, "universe"));
            fixture.universe = universe && *universe >= 2 ? *universe : 1;
            const auto address = jsonInteger(member(row, "address"));
            fixture.address = address && *address >= 2 ? *address : 1;
            fixture.width = dmxWidth(type, row, definition);
            fixture.isDisabled = json_read::jsonBool(member(row, "is_disabled")).value_or(false);

            fixtures.push_back(std::move(fixture));
            positions.push_back({jsonDouble(member(row, "x")).value_or(0),
                                 jsonDouble(member(row, "y")).value_or(0)});
        }
    }

    const auto overlapping = overlappingIds(fixtures);
    for (auto& fixture : fixtures)
        fixture.overlaps = overlapping.count(fixture.id) > 0;

    patch.groups = group(fixtures);
    patch.blueprint = blueprintFor(snapshot, fixtures, positions, patch.groups);
    return patch;
}

} // namespace kelvo::ShowPatchBuilder
