#pragma once

#include "Show/ShowPatch.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo::ShowPatchBuilder {

/// The patch of a show snapshot (the bootstrap's "active_show" or a show fetched by id);
/// absent when the snapshot has no "summary" object with a text "id".
std::optional<ShowPatch> build(const nlohmann::json& snapshot);

/// The definition's non-empty "label", else the type itself, else "—".
std::string typeLabel(const nlohmann::json* definition, std::string_view fixtureType);

/// Channels a fixture occupies: the manual dimmer's own options width, else the definition's
/// "dmx_address_width"; at least 1.
std::int64_t dmxWidth(std::string_view fixtureType, const nlohmann::json& row,
                      const nlohmann::json* definition);

/// Ids of every fixture whose address range collides with another on the same universe.
std::set<std::string> overlappingIds(const std::vector<PatchFixture>& fixtures);

/// Fixtures collected by group name.
std::vector<PatchGroup> group(const std::vector<PatchFixture>& fixtures);

inline constexpr const char* manualDimmerType = "pelorin/manual-dimmer@1ch";
inline constexpr const char* missingTypeLabel = "—";

} // namespace kelvo::ShowPatchBuilder
