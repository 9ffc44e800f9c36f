#include "Cloud/BridgeAPIError.h"
#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "support/AppModelRig.h"
#include "support/DevCloudProcess.h"
#include "support/FileBytes.h"
#include "support/HeadlessBrowser.h"
#include "support/QtEventLoop.h"
#include "support/RequiredTool.h"

#include <QElapsedTimer>
#include <QTcpServer>

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using namespace std::chrono_literals;

/// The bridge's model with the real HTTP transport, talking to a kelvo-devcloud on loopback.
class CloudLinkTest : public ::testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override { test::qtApplication(); }

    std::unique_ptr<test::DevCloudProcess> startCloud(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"--state", (dir / "cloud-state.json").string()});
        auto cloud =
            std::make_unique<test::DevCloudProcess>(KELVO_DEVCLOUD, options, dir / "cloud.log");
        return cloud;
    }

    std::unique_ptr<AppModel> makeLinkedModel(const std::string& server) {
        serverURL = QUrl(QString::fromStdString(server));
        http = std::make_shared<QtURLSession>();
        leaving = std::make_shared<ThreadedDisconnectNotifier>();
        auto model = makeModel();
        QObject::connect(model.get(), &AppModel::statusMessageChanged, [this, raw = model.get()] {
            messages.push_back(raw->statusMessage().toStdString());
        });
        QObject::connect(model.get(), &AppModel::pairingPageReady,
                         [this](const QUrl& page) { pairingPage = page; });
        return model;
    }

    bool sawMessage(const std::string& text) const {
        return std::find(messages.begin(), messages.end(), text) != messages.end();
    }

    std::vector<std::string> messages;
    QUrl pairingPage;
};

TEST_F(CloudLinkTest, ApprovedInTheBrowserTheBridgeLinksAndLightsTheDemoShow) {
    KELVO_REQUIRE_TOOL(test::HeadlessBrowser::available(), "chromium is not installed");
    auto cloud = startCloud();
    ASSERT_TRUE(cloud->running()) << cloud->output();
    auto model = makeLinkedModel(cloud->baseUrl());
    model->bootstrap();
    EXPECT_EQ(model->connectionStatus(), ConnectionStatus::disconnected) << "no token yet";

    model->startPairing();
    ASSERT_TRUE(test::pumpUntil([&] { return !pairingPage.isEmpty(); })) << cloud->output();
    EXPECT_EQ(model->statusMessage(), "Approve this bridge in your browser…");
    test::HeadlessBrowser browser(dir / "chromium-profile");
    ASSERT_TRUE(browser.attach());
    browser.open(pairingPage);
    ASSERT_TRUE(browser.waitUntil(QStringLiteral("!!document.getElementById('approve')")));
    browser.evaluate(QStringLiteral("document.getElementById('approve').click()"));

    ASSERT_TRUE(test::pumpUntil(
        [&] { return model->connectionStatus() == ConnectionStatus::connected; }, 20s))
        << model->statusMessage().toStdString();
    EXPECT_TRUE(sawMessage("Paired — fetching show…"));
    EXPECT_EQ(model->statusMessage(), "");
    // The token is kept under this server's own key.
    EXPECT_FALSE(QSettings(settingsPath(), QSettings::IniFormat)
                     .value(BridgeSettings::tokenKey(serverURL))
                     .toString()
                     .isEmpty());
    EXPECT_TRUE(model->settings().authToken(serverURL));

    // What the download caches is the unit tests' affair; here: the demo show is running.
    EXPECT_EQ(model->selectedShowId(), "show-demo");
    EXPECT_TRUE(test::pumpUntil([&] { return model->hasOfflineWorkspace(); }));
    backend->last->deliver(std::vector<float>(2 * 512, 0.25f));
    test::pumpFor(20ms);
    model->tick();
    EXPECT_EQ(model->dmxPreview().size(), 3u) << "the demo show lights its three universes";
}

TEST_F(CloudLinkTest, AnExpiredCodeEndsThePairingWithItsReason) {
    // The code lives 3 s: the poll at 4 s finds it expired (it is forgotten after 6 s).
    auto cloud = startCloud({"--pairing-ttl", "3"});
    ASSERT_TRUE(cloud->running()) << cloud->output();
    auto model = makeLinkedModel(cloud->baseUrl());
    model->startPairing();
    ASSERT_TRUE(test::pumpUntil(
        [&] { return model->statusMessage() == "Link failed: Pairing code expired"; }, 15s))
        << testing::PrintToString(messages) << cloud->output();
    EXPECT_EQ(model->connectionStatus(), ConnectionStatus::disconnected);
    EXPECT_FALSE(model->settings().authToken(serverURL));
}

TEST_F(CloudLinkTest, ARevokedTokenIsForgotten) {
    auto cloud = startCloud({"--revoked-token", "revoked-1"});
    ASSERT_TRUE(cloud->running()) << cloud->output();
    auto model = makeLinkedModel(cloud->baseUrl());
    model->settings().saveAuthToken("revoked-1", serverURL);
    model->autoConnect();
    ASSERT_TRUE(test::pumpUntil(
        [&] { return model->statusMessage() == "Session expired — link to cloud again."; }));
    EXPECT_FALSE(model->settings().authToken(serverURL));
}

TEST_F(CloudLinkTest, AutoConnectWaitsForACloudThatComesUpLater) {
    // A free loopback port nobody answers on yet.
    QTcpServer probe;
    ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    const int port = probe.serverPort();
    probe.close();
    auto model = makeLinkedModel("http://127.0.0.1:" + std::to_string(port));
    model->settings().saveAuthToken("dev-token", serverURL);
    model->autoConnect();
    EXPECT_EQ(model->connectionStatus(), ConnectionStatus::reconnecting);
    const std::string refused = "Couldn’t connect: Connection refused. Retrying in ";
    ASSERT_TRUE(test::pumpUntil([&] { return sawMessage(refused + "2s…"); }, 10s))
        << model->statusMessage().toStdString();

    auto cloud = std::make_unique<test::DevCloudProcess>(
        KELVO_DEVCLOUD,
        std::vector<std::string>{"--listen", "127.0.0.1:" + std::to_string(port), "--state",
                                 (dir / "cloud-state.json").string(), "--device-token",
                                 "dev-token"},
        dir / "cloud.log");
    ASSERT_TRUE(cloud->running()) << cloud->output();
    ASSERT_TRUE(test::pumpUntil(
        [&] { return model->connectionStatus() == ConnectionStatus::connected; }, 20s))
        << model->statusMessage().toStdString();
    const auto first = std::find(messages.begin(), messages.end(), refused + "1s…");
    const auto second = std::find(messages.begin(), messages.end(), refused + "2s…");
    EXPECT_LT(first, second);
    EXPECT_EQ(messages.back(), "");
}

TEST_F(CloudLinkTest, QuittingWhileTheCloudHangsWaitsAtMostTwoSeconds) {
    auto cloud =
        startCloud({"--device-token", "dev-token", "--fault", "api/bridge/disconnect:delay=20000"});
    ASSERT_TRUE(cloud->running()) << cloud->output();
    auto model = makeLinkedModel(cloud->baseUrl());
    model->settings().saveAuthToken("dev-token", serverURL);
    QElapsedTimer quit;
    quit.start();
    model->applicationWillTerminate();
    // A bound, not a speed goal: the wait gives up after 2 s however long the cloud takes.
    EXPECT_GE(quit.elapsed(), 1900);
    EXPECT_LT(quit.elapsed(), 4000);
}

} // namespace
} // namespace kelvo
