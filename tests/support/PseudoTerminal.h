#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace kelvo::testing_support {

/// A pseudo-terminal standing in for the widget: the bridge opens `devicePath()`, the test
/// reads what arrives on the controller side.
class PseudoTerminal {
public:
    PseudoTerminal();
    ~PseudoTerminal();
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    const std::string& devicePath() const { return path_; }
    int controllerDescriptor() const { return controller_; }

    /// Reads exactly `count` bytes, waiting at most two seconds; fewer on timeout.
    std::vector<std::uint8_t> read(std::size_t count);
    /// What one read returns once bytes are there (waiting at most two seconds).
    std::vector<std::uint8_t> readSome();
    /// Hangs up: later writes on the device side fail.
    void closeController();

private:
    int controller_ = -1;
    int device_ = -1; // held so the device side keeps its settings between opens
    std::string path_;
};

inline PseudoTerminal::PseudoTerminal() {
    char name[256] = {};
    if (::openpty(&controller_, &device_, name, nullptr, nullptr) != 0)
        throw std::runtime_error("openpty failed");
    path_ = name;
}

inline PseudoTerminal::~PseudoTerminal() {
    closeController();
    if (device_ >= 0)
        ::close(device_);
}

inline std::vector<std::uint8_t> PseudoTerminal::read(std::size_t count) {
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

inline std::vector<std::uint8_t> PseudoTerminal::readSome() {
    pollfd entry{controller_, POLLIN, 0};
    std::vector<std::uint8_t> bytes(4096);
    const ssize_t got = ::poll(&entry, 1, 2000) > 0 ? ::read(controller_, bytes.data(), 4096) : 0;
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
}

inline void PseudoTerminal::closeController() {
    if (controller_ >= 0)
        ::close(controller_);
    controller_ = -1;
}

} // namespace kelvo::testing_support
