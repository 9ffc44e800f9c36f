#include "Show/StrictJson.h"

#include <cmath>

namespace kelvo::strict_json {

void fail(const std::string& message) {
    throw nlohmann::json::type_error::create(302, message, nullptr);
}

const nlohmann::json& required(const nlohmann::json& object, const char* key) {
    if (!object.is_object())
        fail(std::string("expected an object holding \"") + key + "\"");
    const auto it = object.find(key);
    if (it == object.end())
        fail(std::string("no value for key \"") + key + "\"");
    return *it;
}

std::string string(const nlohmann::json& object, const char* key) {
    const auto& value = required(object, key);
    if (!value.is_string())
        fail(std::string("expected text for key \"") + key + "\"");
    return value.get<std::string>();
}

bool boolean(const nlohmann::json& object, const char* key) {
    const auto& value = required(object, key);
    if (!value.is_boolean())
        fail(std::string("expected a boolean for key \"") + key + "\"");
    return value.get<bool>();
}

double number(const nlohmann::json& object, const char* key) {
    const auto& value = required(object, key);
    if (!value.is_number())
        fail(std::string("expected a number for key \"") + key + "\"");
    return value.get<double>();
}

std::int64_t integer(const nlohmann::json& object, const char* key) {
    const auto& value = required(object, key);
    if (value.is_number_unsigned() && value.get<std::uint64_t>() <= INT64_MAX)
        return static_cast<std::int64_t>(value.get<std::uint64_t>());
    if (value.is_number_integer() && !value.is_number_unsigned())
        return value.get<std::int64_t>();
    if (value.is_number_float()) {
        const double v = value.get<double>();
        if (std::trunc(v) == v && v >= -9223372036854775808.0 && v < 9223372036854775808.0)
            return static_cast<std::int64_t>(v);
    }
    fail(std::string("expected an integer for key \"") + key + "\"");
}

std::optional<std::string> optionalString(const nlohmann::json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null())
        return std::nullopt;
    return string(object, key);
}

std::optional<double> optionalNumber(const nlohmann::json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null())
        return std::nullopt;
    return number(object, key);
}

void putOptional(nlohmann::json& object, const char* key, const std::optional<std::string>& value) {
    if (value)
        object[key] = *value;
}

} // namespace kelvo::strict_json
