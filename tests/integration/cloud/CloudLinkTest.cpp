#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "support/AppModelRig.h"
#include "support/DevCloudProcess.h"
#include "support/QtEventLoop.h"

#include <QElapsedTimer>
#include <QTcpServer>

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using namespace std::chrono_literals;

/// The bridge's model with the real HTTP transport, talking to a kelvo-devcloud on loopback.
/// Pairing end to end is the headless program's test; the session rules are CloudSession's.
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
        return model;
    }

    bool sawMessage(const std::string& text) const {
        return std::find(messages.begin(), messages.end(), text) != messages.end();
    }

    std::vector<std::string> messages;
};

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
