#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// One automatic drop: when it was emitted and proposed, on the audio clock, and by what.
struct DropDetectedEvent {
    double emittedAt = 0;
    double proposalAt = 0;
    std::string source;
    friend bool operator==(const DropDetectedEvent&, const DropDetectedEvent&) = default;
};

// JSON object with the keys "emittedAt", "proposalAt" (numbers) and "source" (string). Decoding
// throws nlohmann::json::exception when a key is missing or has another type; other keys are
// ignored.
void to_json(nlohmann::json& out, const DropDetectedEvent& event);
void from_json(const nlohmann::json& in, DropDetectedEvent& event);

/// What the drop detector panel shows.
struct DropDiagnostics {
    std::string status;
    std::string architecture;
    double sampleRate = 0;
    double audioSeconds = 0;
    double processingSeconds = 0;
    double delaySeconds = 0;
    double maxDelaySeconds = 0;
    double backlogSeconds = 0;
    int discardedBlocks = 0;
    int eventCount = 0;
    std::vector<std::string> recentEvents;
    std::vector<DropDetectedEvent> events;
    std::optional<std::string> error;
    friend bool operator==(const DropDiagnostics&, const DropDiagnostics&) = default;
};

} // namespace kelvo
