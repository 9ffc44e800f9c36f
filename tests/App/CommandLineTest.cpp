#include "App/CommandLine.h"
#include "Cloud/BuildRevision.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace kelvo {
namespace {

using Action = LaunchParseResult::Action;
using D = UniverseRoute::Destination;
using testing::HasSubstr;

/// The arguments of one command line, split at spaces.
LaunchParseResult parse(const std::string& line) {
    std::vector<std::string> arguments = {"/usr/bin/kelvo-bridge"};
    std::istringstream words(line);
    for (std::string word; words >> word;)
        arguments.push_back(word);
    return parseLaunchArguments(arguments);
}

TEST(LaunchArguments, HeadlessVenueConfiguration) {
    EXPECT_EQ(parse("").options, LaunchOptions{}) << "nothing: the dashboard with defaults";
    const auto result = parse("--headless --audio-file /tmp/track.wav --artnet on --artnet-host "
                              "10.0.0.5 --enttec off --route 1=artnet:0 --route 2=enttec --route "
                              "3=unmapped --audio-device usb-mixer --record --run-seconds 2.5 "
                              "--local");
    ASSERT_EQ(result.action, Action::run) << result.message;
    const LaunchOptions expected{
        .headless = true,
        .audioFile = "/tmp/track.wav",
        .serverURL = "http://127.0.0.1:4041",
        .artnetEnabled = true,
        .artnetHost = "10.0.0.5",
        .enttecEnabled = false,
        .routes =
            std::vector<UniverseRoute>{{1, D::artnet(0)}, {2, D::enttec()}, {3, D::unmapped()}},
        .audioDeviceUID = "usb-mixer",
        .recordOnStart = true,
        .runSeconds = 2.5};
    EXPECT_EQ(result.options, expected);
    // The server choice never fails the launch: an option after --server stays an option.
    EXPECT_EQ(parse("--local --server http://10.0.0.5:4041").options.serverURL,
              "http://10.0.0.5:4041");
    EXPECT_TRUE(parse("--server --headless").options.headless);
}

TEST(LaunchArguments, HelpVersionAndBadInputThatSaysWhatIsWrong) {
    EXPECT_THAT(parse("--help").message, HasSubstr("--artnet-host HOST"));
    EXPECT_EQ(parse("--headless --version").message,
              "Kelvo Bridge 0.1.0, " + buildRevisionDescription());
    const std::pair<std::string, std::string> cases[] = {
        {"--bogus", "Unknown option \"--bogus\"."},
        {"--artnet", "--artnet needs on or off."},
        {"--audio-file", "--audio-file needs the path"},
        {"--route 0=enttec", "Cannot read the route \"0=enttec\""},
        {"--route 1=artnet:40000", "Cannot read the route"},
        {"--route 1enttec", "Cannot read the route"},
        {"--run-seconds -1", "--run-seconds needs a positive number"},
        {"--run-seconds inf", "at most 2000000"},
        {"--run-seconds 3000000", "at most 2000000"},
    };
    for (const auto& [line, expected] : cases) {
        const auto result = parse(line);
        EXPECT_EQ(result.action, Action::fail) << line;
        EXPECT_THAT(result.message, HasSubstr(expected));
        EXPECT_THAT(result.message, HasSubstr("--help"));
    }
}

} // namespace
} // namespace kelvo
