#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace kelvo::json_read {

/// The member `key` of `object`, or nullptr when `object` is not an object or lacks the key.
const nlohmann::json* member(const nlohmann::json& object, const char* key);
const nlohmann::json* member(const nlohmann::json& object, const std::string& key);

/// A JSON number as a double. Booleans count as numbers (true is 1); strings never do.
std::optional<double> jsonDouble(const nlohmann::json* value);

/// An integral number: JSON integers, floats with no fractional part that fit, and booleans.
/// 3.5, "3", NaN and out-of-range values give no value.
std::optional<std::int64_t> jsonInteger(const nlohmann::json* value);

/// A number truncated toward zero, saturating at the int64 range (3.9 → 3, -3.9 → -3).
std::optional<std::int64_t> jsonTruncatedInteger(const nlohmann::json* value);

/// A number clamped to 0…1: absent, non-numeric, NaN, infinite or negative give 0.
double unitAmount(const nlohmann::json* value);

std::optional<std::string> jsonString(const nlohmann::json* value);
std::optional<bool> jsonBool(const nlohmann::json* value);

/// Trimmed of Unicode whitespace and line breaks.
std::string trimmed(const std::string& text);

} // namespace kelvo::json_read
