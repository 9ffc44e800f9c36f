#include "App/CommandLine.h"
#include "Cloud/BuildRevision.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using Action = LaunchParseResult::Action;
using D = UniverseRoute::Destination;
using testing::HasSubstr;

LaunchParseResult parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "/usr/bin/kelvo-bridge");
    return parseLaunchArguments(arguments);
}

TEST(LaunchArguments, NothingMeansTheDashboardWithDefaults) {
    const auto result = parse({});
    EXPECT_EQ(result.action, Action::run);
    EXPECT_EQ(result.options, LaunchOptions{});
}

TEST(LaunchArguments, HeadlessVenueConfiguration) {
    const auto result = parse({"--headless",
                               "--audio-file",
                               "/tmp/track.wav",
                               "--artnet",
                               "on",
                               "--artnet-host",
                               "10.0.0.5",
                               "--enttec",
                               "off",
                               "--route",
                               "1=artnet:0",
                               "--route",
                               "2=enttec",
                               "--route",
                               "3=unmapped",
                               "--audio-device",
                               "alsa_input.usb-mixer",
                               "--record",
                               "--run-seconds",
                               "2.5",
                               "--local"});
    ASSERT_EQ(result.action, Action::run) << result.message;
    const LaunchOptions& o = result.options;
    EXPECT_TRUE(o.headless);
    EXPECT_EQ(o.audioFile, "/tmp/track.wav");
    EXPECT_EQ(o.artnetEnabled, true);
    EXPECT_EQ(o.artnetHost, "10.0.0.5");
    EXPECT_EQ(o.enttecEnabled, false);
    EXPECT_EQ(o.routes, (std::vector<UniverseRoute>{
                            {1, D::artnet(0)}, {2, D::enttec()}, {3, D::unmapped()}}));
    EXPECT_EQ(o.audioDeviceUID, "alsa_input.usb-mixer");
    EXPECT_TRUE(o.recordOnStart);
    EXPECT_EQ(o.runSeconds, 2.5);
    EXPECT_EQ(o.serverURL, "http://127.0.0.1:4041");
}

TEST(LaunchArguments, TheServerChoiceNeverFailsTheLaunch) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--local", "--server", " http://10.0.0.5:4041\n"}, "http://10.0.0.5:4041"},
        {{"--headless", "--server"}, "https://cloud.kelvo.app"},
        {{"--server", "--headless", "--local"}, "http://127.0.0.1:4041"},
        {{"--server", "no address"}, "https://cloud.kelvo.app"},
    };
    for (const auto& [arguments, server] : cases) {
        const auto result = parse(arguments);
        ASSERT_EQ(result.action, Action::run) << result.message;
        EXPECT_EQ(result.options.serverURL, server) << arguments.back();
    }
    EXPECT_TRUE(parse({"--server", "--headless", "--local"}).options.headless)
        << "an option after --server stays an option";
}

TEST(LaunchArguments, HelpAndVersion) {
    EXPECT_EQ(parse({"--help"}).action, Action::showHelp);
    EXPECT_THAT(parse({"--help"}).message, HasSubstr("--artnet-host HOST"));
    const auto version = parse({"--headless", "--version"});
    EXPECT_EQ(version.action, Action::showVersion);
    EXPECT_EQ(version.message, "Kelvo Bridge 0.1.0, " + buildRevisionDescription());
}

TEST(LaunchArguments, BadInputSaysWhatIsWrong) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--bogus"}, "Unknown option \"--bogus\"."},
        {{"--artnet"}, "--artnet needs on or off."},
        {{"--enttec", "maybe"}, "--enttec needs on or off."},
        {{"--audio-file"}, "--audio-file needs the path"},
        {{"--route", "0=enttec"}, "Cannot read the route \"0=enttec\""},
        {{"--route", "1=artnet:40000"}, "Cannot read the route"},
        {{"--route", "1=dmx"}, "Cannot read the route"},
        {{"--run-seconds", "-1"}, "--run-seconds needs a positive number"},
        {{"--run-seconds", "abc"}, "--run-seconds needs a positive number"},
    };
    for (const auto& [arguments, expected] : cases) {
        const auto result = parse(arguments);
        EXPECT_EQ(result.action, Action::fail) << arguments.front();
        EXPECT_THAT(result.message, HasSubstr(expected));
        EXPECT_THAT(result.message, HasSubstr("--help"));
    }
}

TEST(LaunchArguments, RouteForms) {
    EXPECT_EQ(parseRouteArgument("12=artnet:32767"), (UniverseRoute{12, D::artnet(32767)}));
    EXPECT_EQ(parseRouteArgument("=enttec"), std::nullopt);
    EXPECT_EQ(parseRouteArgument("1=artnet:"), std::nullopt);
    EXPECT_EQ(parseRouteArgument("1=artnet:-1"), std::nullopt);
    EXPECT_EQ(parseRouteArgument("x=enttec"), std::nullopt);
    EXPECT_EQ(parseRouteArgument("1enttec"), std::nullopt);
}

} // namespace
} // namespace kelvo
