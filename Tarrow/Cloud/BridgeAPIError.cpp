#include "Cloud/BridgeAPIError.h"

namespace kelvo {

std::string BridgeAPIError::description(Kind kind, int statusCode) {
    switch (kind) {
    case Kind::httpError:
        return "Server returned HTTP " + std::to_string(statusCode);
    case Kind::invalidResponse:
        return "Invalid response from server";
    case Kind::pairingExpired:
        return "Pairing code expired";
    case Kind::pairingUnknown:
        return "Pairing code unknown";
    case Kind::missingDeviceToken:
        return "Server did not return a device token";
    }
    return {};
}

} // namespace kelvo
