#pragma once

#include "Cloud/BridgeServerConfig.h"
#include "DMX/UniverseRoute.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// What the command line asks of this run. Output settings given here are persisted under the
/// same settings keys the dashboard writes, so a headless venue machine is configured once.
struct LaunchOptions {
    /// The longest run a timer can count (its milliseconds are a 32-bit number): 23 days.
    static constexpr double maximumRunSeconds = 2'000'000;

    bool headless = false;
    std::optional<std::string> audioFile;
    /// The cloud server the arguments choose (`BridgeServerConfig::resolve`).
    std::string serverURL = BridgeServerConfig::productionURLText;
    std::optional<bool> artnetEnabled;
    std::optional<std::string> artnetHost;
    std::optional<bool> enttecEnabled;
    std::optional<std::vector<UniverseRoute>> routes;
    std::optional<std::string> audioDeviceUID;
    bool recordOnStart = false;
    std::optional<double> runSeconds; ///< quit after this long (demos, benchmarks, tests)
    bool pairOnStart = false;         ///< start pairing at launch and print the approval page
    bool signOut = false;             ///< forget this server's device token and exit

    friend bool operator==(const LaunchOptions&, const LaunchOptions&) = default;
};

struct LaunchParseResult {
    enum class Action { run, showHelp, showVersion, fail };
    Action action = Action::run;
    LaunchOptions options;
    std::string message; ///< help text, version line or the error
};

/// Parses the arguments (the first is the program path).
LaunchParseResult parseLaunchArguments(const std::vector<std::string>& arguments);

/// "1=enttec", "2=artnet:0", "3=unmapped"; nullopt when malformed.
std::optional<UniverseRoute> parseRouteArgument(const std::string& text);

} // namespace kelvo
