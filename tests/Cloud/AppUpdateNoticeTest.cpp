#include "Cloud/AppUpdateNotice.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

TEST(AppUpdateNotice, BannerRuleTable) {
    const QUrl server("http://127.0.0.1:4041/");
    struct Case {
        const char* deployed;
        std::optional<std::string> published;
        const char* local;
        std::optional<QString> banner;
    };
    const Case cases[] = {
        {"abc", "ABC ", "abc", std::nullopt},     // case and blanks ignored: current
        {"r2", "r1", "r0", std::nullopt},         // the server is between releases
        {"r1", std::nullopt, "r0", std::nullopt}, // published unknown
        {"r1", "r1", "", std::nullopt},           // this build's revision unknown
        {" R1\n", "r1", "r0", "http://127.0.0.1:4041/downloads/bridge.zip"},
    };
    for (const Case& c : cases) {
        const BridgeAPIVersionResponse versions{.apiVersion = c.deployed,
                                                .publishedAPIVersion = c.published,
                                                .appDownloadURL = "/downloads/bridge.zip"};
        const auto url = AppUpdateNotice::downloadURL(versions, c.local, server);
        EXPECT_EQ(url ? std::optional(url->toString()) : std::nullopt, c.banner) << c.deployed;
    }
}

TEST(AppUpdateNotice, DownloadAddressResolution) {
    const QUrl server("http://127.0.0.1:4041/");
    const std::pair<QString, std::optional<QString>> cases[] = {
        {"/downloads/bridge.zip", "http://127.0.0.1:4041/downloads/bridge.zip"},
        {" https://dl.example/b.zip ", "https://dl.example/b.zip"},
        {"ftp://dl.example/b.zip", "http://127.0.0.1:4041/ftp://dl.example/b.zip"},
        {"  \n", std::nullopt},
    };
    for (const auto& [raw, expected] : cases) {
        const auto url = AppUpdateNotice::resolveDownloadURL(raw, server);
        EXPECT_EQ(url ? std::optional(url->toString()) : std::nullopt, expected)
            << raw.toStdString();
    }
    EXPECT_FALSE(AppUpdateNotice::sparkleFeedIsConfigured(QString(" \n")));
    EXPECT_TRUE(AppUpdateNotice::sparkleFeedIsConfigured(QString("https://feed.example/a.xml")));
}

} // namespace
} // namespace kelvo
