#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// Shown beside a fixture whose address range collides with another on its universe.
inline constexpr const char* patchOverlapText =
    "Address range overlaps another fixture on this universe";

struct PatchFixture {
    std::string id;
    std::string name;
    std::string fixtureType; ///< the type label
    std::int64_t universe = 1;
    std::int64_t address = 1; ///< first DMX channel
    std::int64_t width = 1;   ///< channels occupied
    std::optional<std::string> groupName;
    bool isDisabled = false;
    bool overlaps = false;

    /// Address of the last channel occupied, saturating instead of overflowing.
    std::int64_t lastChannel() const;

    friend bool operator==(const PatchFixture&, const PatchFixture&) = default;
};

struct PatchGroup {
    std::optional<std::string> name; ///< absent: the fixtures without a group
    std::vector<PatchFixture> fixtures;

    friend bool operator==(const PatchGroup&, const PatchGroup&) = default;
};

struct ShowBlueprint {
    struct Marker {
        double x = 0;
        double y = 0;
        std::optional<std::string> groupName;

        friend bool operator==(const Marker&, const Marker&) = default;
    };

    double floorX = 0;
    double floorY = 0;
    double floorWidth = 1;
    double floorDepth = 1;
    std::vector<Marker> markers;

    friend bool operator==(const ShowBlueprint&, const ShowBlueprint&) = default;
};

/// Display-ready summary of which fixture sits on which universe and address.
struct ShowPatch {
    std::string showId;
    std::string showName;
    std::int64_t revision = 0;
    ShowBlueprint blueprint;
    std::vector<PatchGroup> groups;

    std::size_t fixtureCount() const;
    /// Fixtures flagged as overlapping (not pairs).
    std::size_t overlapCount() const;

    friend bool operator==(const ShowPatch&, const ShowPatch&) = default;
};

// camelCase JSON with the field names as keys; absent optionals are left out. Decoding is strict.
void to_json(nlohmann::json& out, const PatchFixture& fixture);
void from_json(const nlohmann::json& in, PatchFixture& fixture);
void to_json(nlohmann::json& out, const PatchGroup& group);
void from_json(const nlohmann::json& in, PatchGroup& group);
void to_json(nlohmann::json& out, const ShowBlueprint::Marker& marker);
void from_json(const nlohmann::json& in, ShowBlueprint::Marker& marker);
void to_json(nlohmann::json& out, const ShowBlueprint& blueprint);
void from_json(const nlohmann::json& in, ShowBlueprint& blueprint);
void to_json(nlohmann::json& out, const ShowPatch& patch);
void from_json(const nlohmann::json& in, ShowPatch& patch);

} // namespace kelvo
