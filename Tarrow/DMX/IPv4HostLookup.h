#pragma once

#include <netinet/in.h>
#include <optional>
#include <string>

namespace kelvo {

/// The IPv4 address of an Art-Net host, or why there is none. Art-Net is IPv4 only.
struct IPv4HostLookup {
    std::optional<in_addr> address;
    std::string error; ///< when there is no address
};

/// A dotted-quad address, read without any lookup.
std::optional<in_addr> parseIPv4Address(const std::string& host);

/// Asks the system resolver for IPv4 addresses only, so "localhost" is 127.0.0.1 even where
/// /etc/hosts lists ::1 first. Blocks for as long as the resolver takes: never on the main
/// thread.
IPv4HostLookup lookUpIPv4Host(const std::string& host);

} // namespace kelvo
