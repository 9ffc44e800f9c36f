#include "DevCloudClient.h"

#include "support/DevCloudProcess.h"
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

const char* const chromium = "/usr/bin/chromium";

/// A headless Chromium driven over its DevTools socket, as a person's browser would be.
class HeadlessBrowser {
public:
    explicit HeadlessBrowser(const std::filesystem::path& profile) : profile_(profile) {
        pid_ = test::spawnWithOutput(
            chromium,
            {chromium, "--headless", "--no-sandbox", "--disable-gpu",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--no-first-run", "--user-data-dir=" + profile.string(),
             "--remote-debugging-address=127.0.0.1", "--remote-debugging-port=0", "about:blank"},
            profile.string() + ".log");
    }
    ~HeadlessBrowser() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            test::waitForExit(pid_);
        }
    }

    /// Connects to the first page's DevTools socket.
    bool attach() {
        int port = 0;
        test::pumpUntil([&] {
            std::ifstream file(profile_ / "DevToolsActivePort");
            return bool(file >> port);
        });
        if (port == 0)
            return false;
        test::DevCloudClient devtools("http://127.0.0.1:" + std::to_string(port));
        std::string url;
        test::pumpUntil([&] {
            const auto targets = devtools.send("GET", "json/list");
            if (targets.status != 200)
                return false;
            for (const auto& target : targets.json())
                if (target.value("type", "") == "page")
                    url = target.value("webSocketDebuggerUrl", "");
            return !url.empty();
        });
        if (url.empty())
            return false;
        QObject::connect(&socket_, &QWebSocket::textMessageReceived, [this](const QString& text) {
            const QJsonObject message = QJsonDocument::fromJson(text.toUtf8()).object();
            if (message.contains(QStringLiteral("id")))
                answers_[message[QStringLiteral("id")].toInt()] = message;
        });
        socket_.open(QUrl(QString::fromStdString(url)));
        return test::pumpUntil([&] { return socket_.state() == QAbstractSocket::ConnectedState; });
    }

    QJsonObject call(const QString& method, const QJsonObject& params) {
        const int id = ++lastId_;
        socket_.sendTextMessage(QString::fromUtf8(
            QJsonDocument(QJsonObject{{"id", id}, {"method", method}, {"params", params}})
                .toJson(QJsonDocument::Compact)));
        test::pumpUntil([&] { return answers_.contains(id); });
        return answers_[id];
    }

    /// The value of a JavaScript expression in the page, as text.
    QString evaluate(const QString& expression) {
        return call(QStringLiteral("Runtime.evaluate"),
                    {{"expression", expression}, {"returnByValue", true}})["result"]
            .toObject()["result"]
            .toObject()["value"]
            .toVariant()
            .toString();
    }

    /// Waits until `expression` evaluates to "true".
    bool waitUntil(const QString& expression) {
        return test::pumpUntil([&] { return evaluate(expression) == QLatin1String("true"); });
    }

    bool running() const { return pid_ > 0; }

private:
    std::filesystem::path profile_;
    pid_t pid_ = -1;
    QWebSocket socket_;
    std::map<int, QJsonObject> answers_;
    int lastId_ = 0;
};

TEST(ApprovalPage, ABrowserClickOnApproveCompletesThePairing) {
    KELVO_REQUIRE_TOOL(std::filesystem::exists(chromium), "chromium is not installed");
    test::TemporaryDirectory dir;
    test::DevCloudProcess cloud(KELVO_DEVCLOUD, {"--state", dir / "state.json"}, dir / "cloud.log");
    ASSERT_TRUE(cloud.running()) << cloud.output();
    test::DevCloudClient bridge(cloud.baseUrl());
    const auto started = bridge.send("POST", "api/bridge/pairing/start", {}, "{}").json();
    const std::string code = started["code"];

    HeadlessBrowser browser(dir / "chromium-profile");
    ASSERT_TRUE(browser.running());
    ASSERT_TRUE(browser.attach()) << test::readText(dir.path().string() + "/chromium-profile.log");
    browser.call(QStringLiteral("Page.navigate"),
                 {{"url", QString::fromStdString(started["browser_url"].get<std::string>())}});
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
