#pragma once

#include <cstdint>
#include <string>
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

    /// Reads exactly `count` bytes, waiting at most two seconds; fewer on timeout.
    std::vector<std::uint8_t> read(std::size_t count);
    /// Hangs up: later writes on the device side fail.
    void closeController();

private:
    int controller_ = -1;
    int device_ = -1; // held so the device side keeps its settings between opens
    std::string path_;
};

} // namespace kelvo::testing_support
