#include "DMX/IPv4HostLookup.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netdb.h>
#include <sys/socket.h>
#include <system_error>

namespace kelvo {

std::optional<in_addr> parseIPv4Address(const std::string& host) {
    in_addr address{};
    if (::inet_pton(AF_INET, host.c_str(), &address) != 1)
        return std::nullopt;
    return address;
}

IPv4HostLookup lookUpIPv4Host(const std::string& host) {
    if (const auto address = parseIPv4Address(host))
        return {address, {}};
    in6_addr ipv6{};
    if (::inet_pton(AF_INET6, host.c_str(), &ipv6) == 1)
        return {std::nullopt, "Art-Net needs an IPv4 address; " + host + " is IPv6."};
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int code = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (code != 0) {
        const std::string why =
            code == EAI_SYSTEM ? std::system_category().message(errno) : ::gai_strerror(code);
        return {std::nullopt, host + ": " + why};
    }
    const in_addr address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
    ::freeaddrinfo(found);
    return {address, {}};
}

} // namespace kelvo
