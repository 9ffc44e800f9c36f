#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace kelvo::test {

/// A pseudo-terminal standing in for the widget: the bridge opens `devicePath()`, the test
/// reads what arrives on the controller side.
class PseudoTerminal {
public:
    PseudoTerminal() {
        char name[256] = {};
        if (::openpty(&controller_, &device_, name, nullptr, nullptr) != 0)
            throw std::runtime_error("openpty failed");
        path_ = name;
    }
    ~PseudoTerminal() {
        closeController();
        ::close(device_);
    }
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    const std::string& devicePath() const { return path_; }
    int controllerDescriptor() const { return controller_; }

    /// Reads exactly `count` bytes, waiting at most two seconds; fewer on timeout.
    std::vector<std::uint8_t> read(std::size_t count) {
        std::vector<std::uint8_t> bytes;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        while (bytes.size() < count && std::chrono::steady_clock::now() < deadline) {
            const std::vector<std::uint8_t> chunk = readSome(100, count - bytes.size());
            bytes.insert(bytes.end(), chunk.begin(), chunk.end());
        }
        return bytes;
    }
    /// What one read returns once bytes are there, waiting at most `timeoutMs`.
    std::vector<std::uint8_t> readSome(int timeoutMs = 2000, std::size_t most = 4096) {
        pollfd entry{controller_, POLLIN, 0};
        std::vector<std::uint8_t> bytes(most);
        const ssize_t got =
            ::poll(&entry, 1, timeoutMs) > 0 ? ::read(controller_, bytes.data(), bytes.size()) : 0;
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return bytes;
    }
    /// Hangs up: later writes on the device side fail.
    void closeController() {
        if (controller_ >= 0)
            ::close(controller_);
        controller_ = -1;
    }

private:
    int controller_ = -1;
    int device_ = -1; // held so the device side keeps its settings between opens
    std::string path_;
};

} // namespace kelvo::test
