#pragma once

#include <stdexcept>
#include <string>

namespace kelvo {

/// The cloud link's own failures; `what()` is the operator-facing description.
class BridgeAPIError : public std::runtime_error {
public:
    enum class Kind {
        httpError,
        invalidResponse,
        pairingExpired,
        pairingUnknown,
        missingDeviceToken
    };

    static BridgeAPIError httpError(int statusCode) { return {Kind::httpError, statusCode}; }
    static BridgeAPIError invalidResponse() { return {Kind::invalidResponse}; }
    static BridgeAPIError pairingExpired() { return {Kind::pairingExpired}; }
    static BridgeAPIError pairingUnknown() { return {Kind::pairingUnknown}; }
    static BridgeAPIError missingDeviceToken() { return {Kind::missingDeviceToken}; }

    Kind kind() const { return kind_; }
    /// The HTTP status of `httpError`, else 0.
    int statusCode() const { return statusCode_; }
    bool isUnauthorized() const {
        return kind_ == Kind::httpError && (statusCode_ == 401 || statusCode_ == 403);
    }

    static std::string description(Kind kind, int statusCode = 0);

private:
    BridgeAPIError(Kind kind, int statusCode = 0)
        : std::runtime_error(description(kind, statusCode)), kind_(kind), statusCode_(statusCode) {}

    Kind kind_;
    int statusCode_;
};

/// A 2xx answer whose body is not the record the call expects; the text names what is wrong.
class ResponseDecodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace kelvo
