#include "Cloud/AppUpdateNotice.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

const QUrl server("http://127.0.0.1:4041/");

std::optional<QString> shown(const std::optional<QUrl>& url) {
    return url ? std::optional(url->toString()) : std::nullopt;
}

TEST(AppUpdateNotice, BannerRuleAndDownloadAddressTables) {
    const std::tuple<const char*, std::optional<std::string>, const char*, bool> cases[] = {
        {"abc", "ABC ", "abc", false},     // case and blanks ignored: current
        {"r2", "r1", "r0", false},         // the server is between releases
        {"r1", std::nullopt, "r0", false}, // published unknown
        {"r1", "r1", "", false},           // this build's revision unknown
        {" R1\n", "r1", "r0", true},
    };
    for (const auto& [deployed, published, local, banner] : cases) {
        const BridgeAPIVersionResponse versions{.apiVersion = deployed,
                                                .publishedAPIVersion = published,
                                                .appDownloadURL = "/downloads/bridge.zip"};
        EXPECT_EQ(shown(AppUpdateNotice::downloadURL(versions, local, server)),
                  banner ? std::optional<QString>("http://127.0.0.1:4041/downloads/bridge.zip")
                         : std::nullopt)
            << deployed;
    }

    const std::pair<QString, std::optional<QString>> addresses[] = {
        {"/downloads/bridge.zip", "http://127.0.0.1:4041/downloads/bridge.zip"},
        {" https://dl.example/b.zip ", "https://dl.example/b.zip"},
        {"ftp://dl.example/b.zip", "http://127.0.0.1:4041/ftp://dl.example/b.zip"},
        {"  \n", std::nullopt},
    };
    for (const auto& [raw, expected] : addresses)
        EXPECT_EQ(shown(AppUpdateNotice::resolveDownloadURL(raw, server)), expected)
            << raw.toStdString();
    EXPECT_FALSE(AppUpdateNotice::sparkleFeedIsConfigured(QString(" \n")));
    EXPECT_TRUE(AppUpdateNotice::sparkleFeedIsConfigured(QString("https://feed.example/a.xml")));
}

} // namespace
} // namespace kelvo
