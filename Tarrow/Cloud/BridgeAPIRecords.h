#pragma once

#include <QByteArrayView>

#include <optional>
#include <string>

namespace kelvo {

// Answers of the cloud's REST endpoints. `decode` reads exactly the listed snake_case keys;
// a required key that is missing or of another type throws ResponseDecodingError, as does a body
// that is not a JSON object. Optional keys that are absent or null read as absent.

struct PairingStartResponse {
    std::string code = {};       ///< "code": what is polled
    std::string browserUrl = {}; ///< "browser_url": the approval page
    std::string expiresAt = {};  ///< "expires_at", as the server formats it

    static PairingStartResponse decode(QByteArrayView body);
    friend bool operator==(const PairingStartResponse&, const PairingStartResponse&) = default;
};

struct PairingStatusResponse {
    std::string status = {};                               ///< "status"
    std::optional<std::string> deviceToken = std::nullopt; ///< "device_token"
    std::optional<std::string> orgId = std::nullopt;       ///< "org_id"
    std::optional<std::string> showId = std::nullopt;      ///< "show_id"

    static PairingStatusResponse decode(QByteArrayView body);
    friend bool operator==(const PairingStatusResponse&, const PairingStatusResponse&) = default;
};

struct BridgeAPIVersionResponse {
    std::string apiVersion = {};                                   ///< "api_version"
    std::optional<std::string> publishedAPIVersion = std::nullopt; ///< "published_api_version"
    std::string appDownloadURL = {};                               ///< "app_download_url"

    static BridgeAPIVersionResponse decode(QByteArrayView body);
    friend bool operator==(const BridgeAPIVersionResponse&,
                           const BridgeAPIVersionResponse&) = default;
};

/// The account the bridge is linked to, as the cloud panel shows it; every field may be absent.
struct BridgeSessionInfo {
    std::optional<std::string> displayName = std::nullopt; ///< "display_name"
    std::optional<std::string> orgId = std::nullopt;       ///< "org_id"
    std::optional<std::string> orgName = std::nullopt;     ///< "org_name"
    std::optional<std::string> accountName = std::nullopt; ///< "account_name"
    std::optional<std::string> deviceName = std::nullopt;  ///< "device_name"
    std::optional<bool> isBridge = std::nullopt;           ///< "is_bridge"

    static BridgeSessionInfo decode(QByteArrayView body);
    friend bool operator==(const BridgeSessionInfo&, const BridgeSessionInfo&) = default;
};

} // namespace kelvo
