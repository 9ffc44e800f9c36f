#pragma once

namespace kelvo {

/// How the bridge stands with the cloud.
enum class ConnectionStatus { disconnected, pairing, connected, reconnecting };

/// "disconnected", "pairing", "connected", "reconnecting".
constexpr const char* connectionStatusText(ConnectionStatus status) {
    switch (status) {
    case ConnectionStatus::disconnected:
        return "disconnected";
    case ConnectionStatus::pairing:
        return "pairing";
    case ConnectionStatus::connected:
        return "connected";
    case ConnectionStatus::reconnecting:
        return "reconnecting";
    }
    return "";
}

} // namespace kelvo
