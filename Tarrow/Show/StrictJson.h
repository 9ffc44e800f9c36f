#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>

// Strict decoding of the files the bridge writes for itself: a required key must be present
// and of exactly the right type, an optional one may be missing or null.
namespace kelvo::strict_json {

[[noreturn]] void fail(const std::string& message);

const nlohmann::json& required(const nlohmann::json& object, const char* key);

std::string string(const nlohmann::json& object, const char* key);
bool boolean(const nlohmann::json& object, const char* key);
double number(const nlohmann::json& object, const char* key);
std::int64_t integer(const nlohmann::json& object, const char* key);

std::optional<std::string> optionalString(const nlohmann::json& object, const char* key);
std::optional<double> optionalNumber(const nlohmann::json& object, const char* key);

void putOptional(nlohmann::json& object, const char* key, const std::optional<std::string>& value);

} // namespace kelvo::strict_json
