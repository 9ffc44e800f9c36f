#include "Engine/Script/RepeatedLineLimiter.h"

#include <algorithm>

namespace kelvo::script {

std::optional<std::string> RepeatedLineLimiter::admit(const std::string& line, Duration now) {
    const auto found = std::find_if(printed_.begin(), printed_.end(),
                                    [&](const Printed& entry) { return entry.line == line; });
    if (found != printed_.end() && now - found->at < window_) {
        ++found->heldBack;
        return std::nullopt;
    }
    std::string text = line;
    if (found != printed_.end()) {
        if (found->heldBack == 1)
            text += " (repeated once since last shown)";
        else if (found->heldBack > 1)
            text += " (repeated " + std::to_string(found->heldBack) + " times since last shown)";
        printed_.erase(found);
    } else if (printed_.size() >= remembered_ && !printed_.empty()) {
        printed_.erase(printed_.begin());
    }
    printed_.push_back({line, now, 0});
    return text;
}

} // namespace kelvo::script
