#pragma once

#include <nlohmann/json.hpp>

#include <string_view>

namespace kelvo {

/// Real documents nest a handful of levels. Deeper ones are refused before parsing: copying or
/// printing them recurses once per level and would overflow the stack.
inline constexpr int kMaxJSONNestingDepth = 256;

/// True when `bytes` open more than `kMaxJSONNestingDepth` arrays and objects at once (brackets
/// inside strings don't count).
bool jsonNestsTooDeep(std::string_view bytes);

/// `bytes` from the network parsed; a discarded value when they are not JSON or nest deeper
/// than `kMaxJSONNestingDepth`.
nlohmann::json parseUntrustedJSON(std::string_view bytes);

} // namespace kelvo
