#pragma once

#include "support/PseudoTerminal.h"

#include <atomic>
#include <thread>

namespace kelvo::test {

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
        std::vector<std::uint8_t> stream;
        while (!stop_) {
            pollfd entry{pty_.controllerDescriptor(), POLLIN, 0};
            if (::poll(&entry, 1, 20) <= 0)
                continue;
            std::uint8_t chunk[1024];
            const ssize_t got = ::read(pty_.controllerDescriptor(), chunk, sizeof chunk);
            if (got > 0)
                stream.insert(stream.end(), chunk, chunk + got);
            while (stream.size() >= 5 && stream[0] == 0x7E) {
                const std::size_t end = 4 + (stream[2] | (stream[3] << 8));
                if (stream.size() <= end)
                    break;
                if (stream[1] == 3)
                    answer();
                stream.erase(stream.begin(), stream.begin() + long(end) + 1);
            }
            if (!stream.empty() && stream[0] != 0x7E)
                stream.erase(stream.begin());
        }
    }

    void answer() {
        ++requests_;
        // Firmware 1.44, break 9, mark-after-break 1, 40 packets a second.
        const std::uint8_t reply[] = {0x7E, 0x03, 0x05, 0x00, 0x2C, 0x01, 9, 1, 40, 0xE7};
        if (answers_)
            (void)::write(pty_.controllerDescriptor(), reply, sizeof reply);
    }

    PseudoTerminal pty_;
    const bool answers_;
    std::atomic<bool> stop_ = false;
    std::atomic<int> requests_ = 0;
    std::thread reader_; // last: starts once everything above exists
};

} // namespace kelvo::test
