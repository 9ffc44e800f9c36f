#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <thread>
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

/// A DMX USB Pro on a pseudo-terminal that answers Get Widget Parameters (label 3) unless
/// told to stay silent.
class SimulatedEnttecWidget {
public:
    explicit SimulatedEnttecWidget(bool answers = true)
        : answers_(answers), reader_([this] { run(); }) {}
    ~SimulatedEnttecWidget() {
        stop_ = true;
        reader_.join();
    }

    const std::string& devicePath() const { return pty_.devicePath(); }
    int parameterRequests() const { return requests_; }

private:
    void run() {
        // Get Widget Parameters with no user configuration asked for.
        const std::vector<std::uint8_t> request{0x7E, 0x03, 0x02, 0x00, 0x00, 0x00, 0xE7};
        // Firmware 1.44, break 9, mark-after-break 1, 40 packets a second.
        const std::uint8_t reply[] = {0x7E, 0x03, 0x05, 0x00, 0x2C, 0x01, 9, 1, 40, 0xE7};
        std::vector<std::uint8_t> stream;
        while (!stop_) {
            const std::vector<std::uint8_t> chunk = pty_.readSome(20);
            stream.insert(stream.end(), chunk.begin(), chunk.end());
            const auto found =
                std::search(stream.begin(), stream.end(), request.begin(), request.end());
            if (found == stream.end())
                continue;
            ++requests_;
            if (answers_)
                (void)::write(pty_.controllerDescriptor(), reply, sizeof reply);
            stream.erase(stream.begin(), found + std::ssize(request));
        }
    }

    PseudoTerminal pty_;
    const bool answers_;
    std::atomic<bool> stop_ = false;
    std::atomic<int> requests_ = 0;
    std::thread reader_; // last: starts once everything above exists
};

} // namespace kelvo::test
