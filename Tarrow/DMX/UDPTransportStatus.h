#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kelvo {

/// What the health monitor reads from the Art-Net transport, copied whole under its lock.
struct UDPTransportStatus {
    bool isReady = false;
    std::string stateDescription = "idle";
    std::int64_t packetsSent = 0; ///< handed to a usable association; never reset
    std::int64_t sendFailures = 0;
    std::optional<std::string> lastError;
    std::int64_t recoveries = 0;       ///< rebuilds towards an unchanged host and port
    std::int64_t datagramsDropped = 0; ///< dropped because the send buffer was full

    friend bool operator==(const UDPTransportStatus&, const UDPTransportStatus&) = default;
};

} // namespace kelvo
