#include "PseudoTerminal.h"

#include <cerrno>
#include <chrono>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <unistd.h>

namespace kelvo::testing_support {

PseudoTerminal::PseudoTerminal() {
    char name[256] = {};
    if (::openpty(&controller_, &device_, name, nullptr, nullptr) != 0)
        throw std::runtime_error("openpty failed");
    path_ = name;
}

PseudoTerminal::~PseudoTerminal() {
    closeController();
    if (device_ >= 0)
        ::close(device_);
}

std::vector<std::uint8_t> PseudoTerminal::read(std::size_t count) {
    std::vector<std::uint8_t> bytes;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (bytes.size() < count && std::chrono::steady_clock::now() < deadline) {
        pollfd entry{controller_, POLLIN, 0};
        if (::poll(&entry, 1, 100) <= 0)
            continue;
        std::uint8_t chunk[4096];
        const ssize_t got =
            ::read(controller_, chunk, std::min(sizeof chunk, count - bytes.size()));
        if (got <= 0)
            break;
        bytes.insert(bytes.end(), chunk, chunk + got);
    }
    return bytes;
}

void PseudoTerminal::closeController() {
    if (controller_ >= 0)
        ::close(controller_);
    controller_ = -1;
}

} // namespace kelvo::testing_support
