#pragma once

#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace kelvo::test {

/// A UDP socket bound to a loopback address, for catching what the transport sends.
class LoopbackReceiver {
public:
    explicit LoopbackReceiver(const char* address = "127.0.0.1", std::uint16_t port = 0)
        : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in local{AF_INET, htons(port), {}, {}};
        socklen_t length = sizeof local;
        if (::inet_pton(AF_INET, address, &local.sin_addr) != 1 ||
            ::bind(fd_, reinterpret_cast<sockaddr*>(&local), length) != 0 ||
            ::getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &length) != 0)
            throw std::runtime_error("cannot bind a loopback receiver");
        port_ = ntohs(local.sin_port);
    }
    ~LoopbackReceiver() { ::close(fd_); }
    LoopbackReceiver(const LoopbackReceiver&) = delete;
    LoopbackReceiver& operator=(const LoopbackReceiver&) = delete;

    std::uint16_t port() const { return port_; }

    /// The next datagram, or nothing within `timeoutMs`.
    std::optional<std::vector<std::uint8_t>> receive(int timeoutMs = 2000) {
        pollfd entry{fd_, POLLIN, 0};
        if (::poll(&entry, 1, timeoutMs) <= 0)
            return std::nullopt;
        std::vector<std::uint8_t> datagram(2048);
        const ssize_t got = ::recv(fd_, datagram.data(), datagram.size(), 0);
        return got < 0 ? std::nullopt
                       : std::optional(std::vector(datagram.begin(), datagram.begin() + got));
    }

private:
    int fd_;
    std::uint16_t port_ = 0;
};

/// A loopback port that nothing listens on (bound once, then released).
inline std::uint16_t closedLoopbackPort() {
    return LoopbackReceiver().port();
}

} // namespace kelvo::test
