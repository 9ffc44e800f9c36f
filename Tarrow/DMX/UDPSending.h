#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kelvo {

/// Hands one datagram towards host:port. Never blocks on the network and never reports
/// failure to the caller; transports record failures in their own status.
class UDPSending {
public:
    virtual ~UDPSending() = default;
    virtual void send(std::span<const std::uint8_t> datagram, const std::string& host,
                      std::uint16_t port) = 0;
};

} // namespace kelvo
