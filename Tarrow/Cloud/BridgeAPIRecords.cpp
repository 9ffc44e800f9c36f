#include "Cloud/BridgeAPIRecords.h"

#include "Cloud/BridgeAPIError.h"
#include "Show/UntrustedJSON.h"

#include <nlohmann/json.hpp>

namespace kelvo {

namespace {

using nlohmann::json;

json parseObject(QByteArrayView body) {
    json document = parseUntrustedJSON(std::string_view(body.data(), std::size_t(body.size())));
    if (document.is_discarded())
        throw ResponseDecodingError("The server’s answer is not valid JSON");
    if (!document.is_object())
        throw ResponseDecodingError("The server’s answer is not a JSON object");
    return document;
}

[[noreturn]] void wrongKey(const char* key, const char* problem) {
    throw ResponseDecodingError(std::string("The server’s answer ") + problem + " “" + key + "”");
}

std::string requiredString(const json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end())
        wrongKey(key, "lacks");
    if (!found->is_string())
        wrongKey(key, "has no text in");
    return found->get<std::string>();
}

std::optional<std::string> optionalString(const json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null())
        return std::nullopt;
    if (!found->is_string())
        wrongKey(key, "has no text in");
    return found->get<std::string>();
}

std::optional<bool> optionalBool(const json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null())
        return std::nullopt;
    if (!found->is_boolean())
        wrongKey(key, "has no true or false in");
    return found->get<bool>();
}

} // namespace

PairingStartResponse PairingStartResponse::decode(QByteArrayView body) {
    const json object = parseObject(body);
    return {.code = requiredString(object, "code"),
            .browserUrl = requiredString(object, "browser_url"),
            .expiresAt = requiredString(object, "expires_at")};
}

PairingStatusResponse PairingStatusResponse::decode(QByteArrayView body) {
    const json object = parseObject(body);
    return {.status = requiredString(object, "status"),
            .deviceToken = optionalString(object, "device_token"),
            .orgId = optionalString(object, "org_id"),
            .showId = optionalString(object, "show_id")};
}

BridgeAPIVersionResponse BridgeAPIVersionResponse::decode(QByteArrayView body) {
    const json object = parseObject(body);
    return {.apiVersion = requiredString(object, "api_version"),
            .publishedAPIVersion = optionalString(object, "published_api_version"),
            .appDownloadURL = requiredString(object, "app_download_url")};
}

BridgeSessionInfo BridgeSessionInfo::decode(QByteArrayView body) {
    const json object = parseObject(body);
    return {.displayName = optionalString(object, "display_name"),
            .orgId = optionalString(object, "org_id"),
            .orgName = optionalString(object, "org_name"),
            .accountName = optionalString(object, "account_name"),
            .deviceName = optionalString(object, "device_name"),
            .isBridge = optionalBool(object, "is_bridge")};
}

} // namespace kelvo
