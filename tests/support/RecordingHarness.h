#pragma once

#include "Engine/EngineHost.h"
#include "support/FileBytes.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace kelvo::test {

/// A script of tests/Engine/harnesses; recording.js logs every call the host makes into its
/// interpretation payload.
inline std::string testHarness(const std::string& name = "recording.js") {
    return readText(std::filesystem::path(KELVO_SOURCE_DIR) / "tests/Engine/harnesses" / name);
}

/// The arguments of every call named `name` in the recording harness's log, in call order.
inline std::vector<nlohmann::json> loggedCalls(EngineHost& host, const std::string& name) {
    std::vector<nlohmann::json> found;
    const auto payload = nlohmann::json::parse(host.interpretationPayload().value_or("{}"));
    for (const nlohmann::json& entry : payload.value("log", nlohmann::json::array()))
        if (entry[0] == name)
            found.push_back(entry[1]);
    return found;
}

} // namespace kelvo::test
