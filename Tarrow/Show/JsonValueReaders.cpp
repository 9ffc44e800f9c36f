#include "Show/JsonValueReaders.h"

#include <QString>

#include <cmath>

namespace kelvo::json_read {

namespace {
// 2^63 as a double: the first value past the int64 range.
constexpr double twoTo63 = 9223372036854775808.0;
} // namespace

const nlohmann::json* member(const nlohmann::json& object, const char* key) {
    if (!object.is_object())
        return nullptr;
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

const nlohmann::json* member(const nlohmann::json& object, const std::string& key) {
    if (!object.is_object())
        return nullptr;
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

std::optional<double> jsonDouble(const nlohmann::json* value) {
    if (!value)
        return std::nullopt;
    if (value->is_boolean())
        return value->get<bool>() ? 1.0 : 0.0;
    if (value->is_number())
        return value->get<double>();
    return std::nullopt;
}

std::optional<std::int64_t> jsonInteger(const nlohmann::json* value) {
    if (!value)
        return std::nullopt;
    if (value->is_boolean())
        return value->get<bool>() ? 1 : 0;
    if (value->is_number_unsigned()) {
        const auto unsignedValue = value->get<std::uint64_t>();
        if (unsignedValue > static_cast<std::uint64_t>(INT64_MAX))
            return std::nullopt;
        return static_cast<std::int64_t>(unsignedValue);
    }
    if (value->is_number_integer())
        return value->get<std::int64_t>();
    if (value->is_number_float()) {
        const double number = value->get<double>();
        if (!std::isfinite(number) || std::trunc(number) != number || number < -twoTo63 ||
            number >= twoTo63)
            return std::nullopt;
        return static_cast<std::int64_t>(number);
    }
    return std::nullopt;
}

std::optional<std::int64_t> jsonTruncatedInteger(const nlohmann::json* value) {
    if (const auto exact = jsonInteger(value))
        return exact;
    const auto number = jsonDouble(value);
    if (!number || std::isnan(*number))
        return std::nullopt;
    if (*number >= twoTo63)
        return INT64_MAX;
    if (*number < -twoTo63)
        return INT64_MIN;
    return static_cast<std::int64_t>(std::trunc(*number));
}

double unitAmount(const nlohmann::json* value) {
    const auto number = jsonDouble(value);
    if (!number || !std::isfinite(*number) || *number < 0)
        return 0;
    return *number > 1 ? 1 : *number;
}

std::optional<std::string> jsonString(const nlohmann::json* value) {
    if (!value || !value->is_string())
        return std::nullopt;
    return value->get<std::string>();
}

std::optional<bool> jsonBool(const nlohmann::json* value) {
    if (!value || !value->is_boolean())
        return std::nullopt;
    return value->get<bool>();
}

std::string trimmed(const std::string& text) {
    // QString::trimmed covers the Unicode space separators and line breaks (U+0085, U+2028…).
    return QString::fromStdString(text).trimmed().toStdString();
}

} // namespace kelvo::json_read
