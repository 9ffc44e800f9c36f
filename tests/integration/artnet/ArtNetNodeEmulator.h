#pragma once

#include "DMX/ArtNetPacketBuilder.h"

#include <arpa/inet.h>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kelvo::test {

/// An Art-Net node of our own making for what real nodes will not do on demand: it answers
/// each ArtPoll reaching its address with whatever reply the test sets (any bytes at all).
/// Only ever bound inside a network namespace the test created.
class ArtNetNodeEmulator {
public:
    explicit ArtNetNodeEmulator(const std::string& address, std::uint16_t port = 6454) {
        fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        // Beside discovery's socket on the wildcard address of the same port.
        ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(port);
        ::inet_pton(AF_INET, address.c_str(), &local.sin_addr);
        if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0)
            throw std::runtime_error("cannot bind the node emulator to " + address);
        thread_ = std::thread([this] { answer(); });
    }
    ~ArtNetNodeEmulator() {
        stop_ = true;
        thread_.join();
        ::close(fd_);
    }
    ArtNetNodeEmulator(const ArtNetNodeEmulator&) = delete;
    ArtNetNodeEmulator& operator=(const ArtNetNodeEmulator&) = delete;

    /// What each poll is answered with; empty answers nothing.
    void setReplies(std::vector<std::vector<std::uint8_t>> replies) {
        std::lock_guard guard(mutex_);
        replies_ = std::move(replies);
    }
    int polls() const { return polls_; }

private:
    void answer() {
        std::uint8_t buffer[2048];
        while (!stop_) {
            pollfd entry{fd_, POLLIN, 0};
            if (::poll(&entry, 1, 20) <= 0)
                continue;
            sockaddr_in from{};
            socklen_t length = sizeof from;
            const ssize_t got = ::recvfrom(fd_, buffer, sizeof buffer, 0,
                                           reinterpret_cast<sockaddr*>(&from), &length);
            if (got != 14 || std::memcmp(buffer, "Art-Net", 8) != 0 || buffer[9] != 0x20)
                continue;
            ++polls_;
            std::lock_guard guard(mutex_);
            for (const auto& reply : replies_)
                ::sendto(fd_, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&from),
                         length);
        }
    }

    int fd_ = -1;
    std::mutex mutex_;
    std::vector<std::vector<std::uint8_t>> replies_;
    std::atomic<int> polls_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

} // namespace kelvo::test
