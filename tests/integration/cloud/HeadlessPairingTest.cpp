#include "support/ChildProcess.h"
#include "support/DevCloudProcess.h"
#include "support/FileBytes.h"
#include "support/HeadlessBrowser.h"
#include "support/QtEventLoop.h"
#include "support/RequiredTool.h"
#include "support/TemporaryDirectory.h"

#include <QSettings>

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

namespace kelvo {
namespace {

using namespace std::chrono_literals;

/// The headless program as an operator runs it on a venue server: the approval page is printed
/// on its own line, a click on it in a browser links the bridge, which downloads its show and
/// connects, and --sign-out forgets the link.
class HeadlessPairingTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::qtApplication();
        // The bridge keeps its settings and cache in this test's directory.
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((dir / "data").string()));
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((dir / "config").string()));
        // No audio server: the lights run on without input, which is all pairing needs.
        qputenv("PULSE_SERVER", QByteArray::fromStdString("unix:" + (dir / "none").string()));
    }

    pid_t startBridge(std::vector<std::string> options) {
        options.insert(options.begin(), KELVO_BRIDGE);
        return test::spawnWithOutput(KELVO_BRIDGE, options, output);
    }

    std::string storedToken(const std::string& server) {
        QSettings settings(QString::fromStdString((dir / "config/Kelvo/KelvoBridge.conf").string()),
                           QSettings::IniFormat);
        return settings.value(QString::fromStdString("kelvo.bridge.device_token." + server))
            .toString()
            .toStdString();
    }

    test::TemporaryDirectory dir;
    std::string output = (dir / "bridge.log").string();
};

TEST_F(HeadlessPairingTest, ABrowserApprovesThePrintedPageThenTheBridgeConnectsAndSignOutForgets) {
    KELVO_REQUIRE_TOOL(test::HeadlessBrowser::available(), "chromium is not installed");
    test::DevCloudProcess cloud(KELVO_DEVCLOUD, {"--state", (dir / "cloud.json").string()},
                                dir / "cloud.log");
    ASSERT_TRUE(cloud.running()) << cloud.output();
    const pid_t bridge = startBridge({"--headless", "--server", cloud.baseUrl(), "--pair",
                                      "--artnet", "off", "--enttec", "off", "--run-seconds", "10"});
    const std::regex page("Open this page on any device to approve the bridge:\n(" +
                          cloud.baseUrl() + "/pair\\?code=[A-Z0-9-]+)\n");
    std::smatch printed;
    std::string text;
    ASSERT_TRUE(test::pumpUntil(
        [&] { return std::regex_search(text = test::readText(output), printed, page); }, 10s))
        << text;

    test::HeadlessBrowser browser(dir / "chromium-profile");
    ASSERT_TRUE(browser.attach()) << test::readText(dir / "chromium-profile.log");
    browser.open(QUrl(QString::fromStdString(printed[1].str())));
    ASSERT_TRUE(browser.waitUntil(QStringLiteral("!!document.getElementById('approve')")));
    browser.evaluate(QStringLiteral("document.getElementById('approve').click()"));
    ASSERT_TRUE(browser.waitUntil(QStringLiteral("!!document.getElementById('result')")));
    EXPECT_EQ(browser.evaluate(QStringLiteral("document.getElementById('result').textContent")),
              QStringLiteral("The bridge is linked. You can close this page."));

    EXPECT_EQ(test::waitForExit(bridge), 0);
    text = test::readText(output);
    EXPECT_NE(text.find("· cloud connected"), std::string::npos) << text;
    EXPECT_TRUE(std::filesystem::exists(dir / "data/KelvoBridge/engine.js")) << "downloaded";
    EXPECT_FALSE(storedToken(cloud.baseUrl()).empty());
    EXPECT_EQ(text.find(storedToken(cloud.baseUrl())), std::string::npos)
        << "the token never reaches the output";

    EXPECT_EQ(test::waitForExit(startBridge({"--server", cloud.baseUrl(), "--sign-out"})), 0);
    EXPECT_NE(test::readText(output).find("Signed out of " + cloud.baseUrl()), std::string::npos)
        << test::readText(output);
    EXPECT_TRUE(storedToken(cloud.baseUrl()).empty());
}

} // namespace
} // namespace kelvo
