#include "Cloud/BridgeServerConfig.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

TEST(BridgeServerConfig, ResolveRuleTable) {
    const std::string production = "https://cloud.kelvo.app";
    const std::string local = "http://127.0.0.1:4041";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, production},
        {{"--local"}, local},
        {{"--server"}, production},
        {{"--server", " \thttp://10.0.0.5:4041 \n", "--local"}, "http://10.0.0.5:4041"},
        {{"--local", "--server", "https://staging.example/sub/"}, "https://staging.example/sub/"},
        {{"--server", "not a url", "--local"}, local},
        {{"--server", "localhost:4041"}, production}, // a scheme but no host
        {{"--server", "/api/health"}, production},    // a path only
        {{"--server", "--local"}, local},             // "--local" is no address but counts
        {{"--server", "http://a.example", "--server", "http://b.example"}, "http://a.example"},
        {{"--server", "bogus", "--server", "http://b.example"}, production}, // the first decides
    };
    for (const auto& [options, expected] : cases) {
        std::vector<std::string> arguments = {"/usr/bin/kelvo-bridge"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        std::string shown;
        for (const std::string& option : options)
            shown += "[" + option + "] ";
        EXPECT_EQ(BridgeServerConfig::resolve(arguments).toString().toStdString(), expected)
            << shown;
    }
    EXPECT_EQ(BridgeServerConfig::resolve({"--local"}), BridgeServerConfig::productionURL())
        << "the first argument is the program path, never an option";
    EXPECT_EQ(BridgeServerConfig::resolve({}), BridgeServerConfig::productionURL());
    EXPECT_EQ(BridgeServerConfig::productionURL().scheme(), "https");
}

} // namespace
} // namespace kelvo
