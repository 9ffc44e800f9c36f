#include "App/CommandLine.h"

#include "App/ApplicationInfo.h"
#include "Cloud/BuildRevision.h"

#include <charconv>
#include <sstream>

namespace kelvo {

namespace {

constexpr const char* usage = R"(Usage: kelvo-bridge [options]

Listens to the music, runs the lighting engine and drives Art-Net and an Enttec USB DMX Pro.

Options:
  --headless               run without a window; print one status line a second
  --audio-file PATH        play a WAV or FLAC file in real time as the audio input (loops)
  --audio-device UID       use this audio input (a PulseAudio source name)
  --server URL             talk to this cloud server (wins over --local)
  --local                  talk to the development cloud at http://127.0.0.1:4041
  --pair                   link this bridge to the cloud: prints the page to approve it on
                           (open it on any device), then connects and downloads the show
  --sign-out               forget this bridge's link to the cloud server and exit
  --artnet on|off          Art-Net output on or off (saved)
  --artnet-host HOST       send ArtDmx to this IPv4 address or host name (saved)
  --enttec on|off          Enttec USB DMX Pro output on or off (saved)
  --route V=DEST           route virtual universe V to DEST: artnet:U, enttec or unmapped;
                           repeat for each universe; replaces the saved table (saved)
  --record                 start recording the input to the Downloads folder at once
  --run-seconds SECONDS    quit after this many seconds
  --help                   show this text
  --version                show the version
)";

std::optional<bool> parseSwitch(const std::string& text) {
    if (text == "on" || text == "true" || text == "1" || text == "yes")
        return true;
    if (text == "off" || text == "false" || text == "0" || text == "no")
        return false;
    return std::nullopt;
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty())
        return std::nullopt;
    return value;
}

} // namespace

std::optional<UniverseRoute> parseRouteArgument(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos)
        return std::nullopt;
    const auto universe = parseInteger(std::string_view(text).substr(0, equals));
    if (!universe || *universe < 1)
        return std::nullopt;
    const std::string destination = text.substr(equals + 1);
    if (destination == "enttec")
        return UniverseRoute{*universe, UniverseRoute::Destination::enttec()};
    if (destination == "unmapped")
        return UniverseRoute{*universe, UniverseRoute::Destination::unmapped()};
    if (destination.starts_with("artnet:")) {
        const auto artnet = parseInteger(std::string_view(destination).substr(7));
        if (artnet && *artnet >= 0 && *artnet <= 32767)
            return UniverseRoute{*universe, UniverseRoute::Destination::artnet(*artnet)};
    }
    return std::nullopt;
}

LaunchParseResult parseLaunchArguments(const std::vector<std::string>& arguments) {
    LaunchParseResult result;
    LaunchOptions& options = result.options;
    const auto fail = [&result](const std::string& message) {
        result.action = LaunchParseResult::Action::fail;
        result.message = message + "\nRun kelvo-bridge --help for the options.";
        return result;
    };
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const auto value = [&](std::string& out) {
            if (i + 1 >= arguments.size())
                return false;
            out = arguments[++i];
            return true;
        };
        std::string text;
        if (argument == "--help" || argument == "-h") {
            result.action = LaunchParseResult::Action::showHelp;
            result.message = usage;
            return result;
        } else if (argument == "--version") {
            result.action = LaunchParseResult::Action::showVersion;
            result.message = std::string(applicationName) + " " + applicationVersion + ", " +
                             buildRevisionDescription();
            return result;
        } else if (argument == "--headless") {
            options.headless = true;
        } else if (argument == "--local") {
            // The server is chosen from the whole argument list below.
        } else if (argument == "--pair") {
            options.pairOnStart = true;
        } else if (argument == "--sign-out") {
            options.signOut = true;
        } else if (argument == "--record") {
            options.recordOnStart = true;
        } else if (argument == "--audio-file") {
            if (!value(text) || text.empty())
                return fail("--audio-file needs the path of a WAV or FLAC file.");
            options.audioFile = text;
        } else if (argument == "--audio-device") {
            if (!value(text) || text.empty())
                return fail("--audio-device needs a device UID (a PulseAudio source name).");
            options.audioDeviceUID = text;
        } else if (argument == "--server") {
            // Takes the next argument unless it is an option; an unusable address falls back
            // silently to --local or production.
            if (i + 1 < arguments.size() && !arguments[i + 1].starts_with("--"))
                ++i;
        } else if (argument == "--artnet" || argument == "--enttec") {
            const bool artnet = argument == "--artnet";
            if (!value(text) || !parseSwitch(text))
                return fail(argument + " needs on or off.");
            (artnet ? options.artnetEnabled : options.enttecEnabled) = parseSwitch(text);
        } else if (argument == "--artnet-host") {
            if (!value(text) || text.empty())
                return fail("--artnet-host needs an IPv4 address or host name.");
            options.artnetHost = text;
        } else if (argument == "--route") {
            if (!value(text))
                return fail("--route needs V=artnet:U, V=enttec or V=unmapped.");
            const auto route = parseRouteArgument(text);
            if (!route)
                return fail("Cannot read the route \"" + text +
                            "\": use V=artnet:U (U 0…32767), V=enttec or V=unmapped, V from 1.");
            if (!options.routes)
                options.routes.emplace();
            options.routes->push_back(*route);
        } else if (argument == "--run-seconds") {
            double seconds = 0;
            if (!value(text))
                return fail("--run-seconds needs a number of seconds.");
            const auto [end, error] =
                std::from_chars(text.data(), text.data() + text.size(), seconds);
            if (error != std::errc() || end != text.data() + text.size() || !(seconds > 0) ||
                !(seconds <= LaunchOptions::maximumRunSeconds))
                return fail(
                    "--run-seconds needs a positive number of seconds, at most " +
                    std::to_string(static_cast<long long>(LaunchOptions::maximumRunSeconds)) + ".");
            options.runSeconds = seconds;
        } else {
            return fail("Unknown option \"" + argument + "\".");
        }
    }
    options.serverURL = BridgeServerConfig::resolve(arguments).toString().toStdString();
    return result;
}

} // namespace kelvo
