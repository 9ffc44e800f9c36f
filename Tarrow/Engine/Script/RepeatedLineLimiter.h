#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace kelvo::script {

/// Keeps a script that throws on every tick from flooding the journal: a line printed less than
/// `window` ago is held back and counted; when it is printed again it says how often it was held
/// back. A few lines are remembered at once, so errors that alternate are held back too.
class RepeatedLineLimiter {
public:
    using Duration = std::chrono::nanoseconds;
    static constexpr Duration defaultWindow = std::chrono::seconds(10);
    static constexpr std::size_t defaultRemembered = 16;

    explicit RepeatedLineLimiter(Duration window = defaultWindow,
                                 std::size_t remembered = defaultRemembered)
        : window_(window), remembered_(remembered) {}

    /// What to print for `line` at `now`, or nullopt to hold it back.
    std::optional<std::string> admit(const std::string& line, Duration now);

private:
    struct Printed {
        std::string line;
        Duration at;
        std::size_t heldBack = 0;
    };

    Duration window_;
    std::size_t remembered_;
    std::vector<Printed> printed_; // least recently printed first
};

} // namespace kelvo::script
