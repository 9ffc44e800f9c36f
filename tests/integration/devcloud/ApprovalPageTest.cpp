#include "DevCloudClient.h"

#include "support/DevCloudProcess.h"
#include "support/HeadlessBrowser.h"
#include "support/RequiredTool.h"
#include "support/TemporaryDirectory.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>

namespace kelvo {
namespace {

TEST(ApprovalPage, ABrowserClickOnApproveCompletesThePairing) {
    KELVO_REQUIRE_TOOL(test::HeadlessBrowser::available(), "chromium is not installed");
    test::TemporaryDirectory dir;
    test::DevCloudProcess cloud(KELVO_DEVCLOUD, {"--state", dir / "state.json"}, dir / "cloud.log");
    ASSERT_TRUE(cloud.running()) << cloud.output();
    test::DevCloudClient bridge(cloud.baseUrl());
    const auto started = bridge.send("POST", "api/bridge/pairing/start", {}, "{}").json();
    const std::string code = started["code"];

    test::HeadlessBrowser browser(dir / "chromium-profile");
    ASSERT_TRUE(browser.running());
    ASSERT_TRUE(browser.attach()) << test::readText(dir.path().string() + "/chromium-profile.log");
    browser.open(QUrl(QString::fromStdString(started["browser_url"].get<std::string>())));
    ASSERT_TRUE(browser.waitUntil(QStringLiteral("!!document.getElementById('approve')")));
    EXPECT_EQ(bridge.send("GET", "api/bridge/pairing/status?code=" + code).json()["status"],
              "pending");

    browser.evaluate(QStringLiteral("document.getElementById('approve').click()"));
    ASSERT_TRUE(browser.waitUntil(QStringLiteral("!!document.getElementById('result')")));
    EXPECT_EQ(browser.evaluate(QStringLiteral("document.getElementById('result').textContent")),
              QStringLiteral("The bridge is linked. You can close this page."));
    const auto status = bridge.send("GET", "api/bridge/pairing/status?code=" + code).json();
    ASSERT_EQ(status["status"], "complete");
    EXPECT_EQ(bridge.send("GET", "api/auth/me", status["device_token"]).status, 200);
}

} // namespace
} // namespace kelvo
