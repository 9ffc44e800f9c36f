#include "Cloud/AppUpdateNotice.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

const QUrl server("http://127.0.0.1:4041/");

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
        EXPECT_EQ(AppUpdateNotice::downloadURL(versions, local, server).has_value(), banner)
            << deployed;
    }

    const std::pair<QString, std::optional<QUrl>> addresses[] = {
        {"/downloads/bridge.zip", QUrl("http://127.0.0.1:4041/downloads/bridge.zip")},
        {" https://dl.example/b.zip ", QUrl("https://dl.example/b.zip")},
        {"ftp://dl.example/b.zip", QUrl("http://127.0.0.1:4041/ftp://dl.example/b.zip")},
        {"  \n", std::nullopt},
    };
    for (const auto& [raw, expected] : addresses)
        EXPECT_EQ(AppUpdateNotice::resolveDownloadURL(raw, server), expected) << raw.toStdString();
    EXPECT_FALSE(AppUpdateNotice::sparkleFeedIsConfigured(QString(" \n")));
    EXPECT_TRUE(AppUpdateNotice::sparkleFeedIsConfigured(QString("https://feed.example/a.xml")));
}

} // namespace
} // namespace kelvo
