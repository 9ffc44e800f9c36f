#pragma once

#include <QUrl>

#include <optional>
#include <string>

namespace kelvo {

/// Where the device tokens live, one per server (the user settings in production).
class DeviceTokenStore {
public:
    virtual ~DeviceTokenStore() = default;
    /// The server's token; empty counts as none.
    virtual std::optional<std::string> authToken(const QUrl& server) = 0;
    virtual void saveAuthToken(const std::string& token, const QUrl& server) = 0;
    virtual void clearAuthToken(const QUrl& server) = 0;
};

} // namespace kelvo
