#include "Cloud/BridgeServerConfig.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

TEST(BridgeServerConfig, ResolveRuleTableAndShowEditorAddress) {
    const std::string production = BridgeServerConfig::productionURL().toString().toStdString();
    const std::string local = "http://127.0.0.1:4041";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, production},
        {{"--local"}, local},
        {{"--server", " \thttp://10.0.0.5:4041 \n", "--local"}, "http://10.0.0.5:4041"},
        {{"--local", "--server", "https://staging.example/sub/"}, "https://staging.example/sub/"},
        {{"--server", "not a url", "--local"}, local},
        {{"--server", "localhost:4041"}, production}, // a scheme but no host
        {{"--server", "/api/health"}, production},    // a path only
        {{"--server", "--local"}, local},             // "--local" is no address but counts
        {{"--server", "bogus", "--server", "http://b.example"}, production}, // the first decides
    };
    for (const auto& [options, expected] : cases) {
        std::vector<std::string> arguments = {"/usr/bin/kelvo-bridge"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        EXPECT_EQ(BridgeServerConfig::resolve(arguments).toString().toStdString(), expected)
            << ::testing::PrintToString(options);
    }
    EXPECT_EQ(BridgeServerConfig::resolve({"--local"}).toString().toStdString(), production)
        << "the first argument is the program path, never an option";

    EXPECT_EQ(BridgeServerConfig::showEditorURL(QUrl("http://127.0.0.1:4041"), "  "), std::nullopt);
    EXPECT_EQ(
        BridgeServerConfig::showEditorURL(QUrl("https://c.example/sub/"), " a b/c ")->toEncoded(),
        "https://c.example/sub/shows/a%20b%2Fc");
}

} // namespace
} // namespace kelvo
