#include "Show/ShowPatch.h"

#include "Show/StrictJson.h"

#include <algorithm>

namespace kelvo {

std::int64_t PatchFixture::lastChannel() const {
    const std::int64_t span = std::max<std::int64_t>(width, 1) - 1;
    return address > INT64_MAX - span ? INT64_MAX : address + span;
}

std::size_t ShowPatch::fixtureCount() const {
    std::size_t count = 0;
    for (const auto& group : groups)
        count += group.fixtures.size();
    return count;
}

std::size_t ShowPatch::overlapCount() const {
    std::size_t count = 0;
    for (const auto& group : groups)
        count +=
            static_cast<std::size_t>(std::count_if(group.fixtures.begin(), group.fixtures.end(),
                                                   [](const auto& f) { return f.overlaps; }));
    return count;
}

void to_json(nlohmann::json& out, const PatchFixture& fixture) {
    out = {{"id", fixture.id},
           {"name", fixture.name},
           {"fixtureType", fixture.fixtureType},
           {"universe", fixture.universe},
           {"address", fixture.address},
           {"width", fixture.width},
           {"isDisabled", fixture.isDisabled},
           {"overlaps", fixture.overlaps}};
    strict_json::putOptional(out, "groupName", fixture.groupName);
}

void from_json(const nlohmann::json& in, PatchFixture& fixture) {
    fixture.id = strict_json::string(in, "id");
    fixture.name = strict_json::string(in, "name");
    fixture.fixtureType = strict_json::string(in, "fixtureType");
    fixture.universe = strict_json::integer(in, "universe");
    fixture.address = strict_json::integer(in, "address");
    fixture.width = strict_json::integer(in, "width");
    fixture.groupName = strict_json::optionalString(in, "groupName");
    fixture.isDisabled = strict_json::boolean(in, "isDisabled");
    fixture.overlaps = strict_json::boolean(in, "overlaps");
}

void to_json(nlohmann::json& out, const PatchGroup& group) {
    out = {{"fixtures", group.fixtures}};
    strict_json::putOptional(out, "name", group.name);
}

void from_json(const nlohmann::json& in, PatchGroup& group) {
    group.name = strict_json::optionalString(in, "name");
    group.fixtures = strict_json::required(in, "fixtures").get<std::vector<PatchFixture>>();
}

void to_json(nlohmann::json& out, const ShowBlueprint::Marker& marker) {
    out = {{"x", marker.x}, {"y", marker.y}};
    strict_json::putOptional(out, "groupName", marker.groupName);
}

void from_json(const nlohmann::json& in, ShowBlueprint::Marker& marker) {
    marker.x = strict_json::number(in, "x");
    marker.y = strict_json::number(in, "y");
    marker.groupName = strict_json::optionalString(in, "groupName");
}

void to_json(nlohmann::json& out, const ShowBlueprint& blueprint) {
    out = {{"floorX", blueprint.floorX},
           {"floorY", blueprint.floorY},
           {"floorWidth", blueprint.floorWidth},
           {"floorDepth", blueprint.floorDepth},
           {"markers", blueprint.markers}};
}

void from_json(const nlohmann::json& in, ShowBlueprint& blueprint) {
    blueprint.floorX = strict_json::number(in, "floorX");
    blueprint.floorY = strict_json::number(in, "floorY");
    blueprint.floorWidth = strict_json::number(in, "floorWidth");
    blueprint.floorDepth = strict_json::number(in, "floorDepth");
    blueprint.markers =
        strict_json::required(in, "markers").get<std::vector<ShowBlueprint::Marker>>();
}

void to_json(nlohmann::json& out, const ShowPatch& patch) {
    out = {{"showId", patch.showId},
           {"showName", patch.showName},
           {"revision", patch.revision},
           {"blueprint", patch.blueprint},
           {"groups", patch.groups}};
}

void from_json(const nlohmann::json& in, ShowPatch& patch) {
    patch.showId = strict_json::string(in, "showId");
    patch.showName = strict_json::string(in, "showName");
    patch.revision = strict_json::integer(in, "revision");
    patch.blueprint = strict_json::required(in, "blueprint").get<ShowBlueprint>();
    patch.groups = strict_json::required(in, "groups").get<std::vector<PatchGroup>>();
}

} // namespace kelvo
