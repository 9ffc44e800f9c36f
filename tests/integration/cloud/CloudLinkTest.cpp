#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <QElapsedTimer>
#include <QTcpServer>

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using namespace std::chrono_literals;

/// The bridge's model with the real HTTP transport and the real leave notice. Pairing and the
/// download end to end are the headless program's test; the session rules are CloudSession's.
class CloudLinkTest : public ::testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override { test::qtApplication(); }

    std::unique_ptr<AppModel> linkedModel(quint16 port) {
        serverURL = QUrl(QStringLiteral("http://127.0.0.1:%1").arg(port));
        http = std::make_shared<QtURLSession>();
        leaving = std::make_shared<ThreadedDisconnectNotifier>();
        auto model = makeModel();
        model->settings().saveAuthToken("dev-token", serverURL);
        return model;
    }
};

TEST_F(CloudLinkTest, ARefusedConnectionSaysSoAndQuittingWaitsAtMostTwoSecondsOnASilentCloud) {
    QTcpServer nobody; // a free loopback port nobody answers on
    ASSERT_TRUE(nobody.listen(QHostAddress::LocalHost, 0));
    const quint16 closedPort = nobody.serverPort();
    nobody.close();
    auto refused = linkedModel(closedPort);
    refused->autoConnect();
    EXPECT_EQ(refused->connectionStatus(), ConnectionStatus::reconnecting);
    ASSERT_TRUE(test::pumpUntil(
        [&] {
            return refused->statusMessage() ==
                   "Couldn’t connect: Connection refused. Retrying in 1s…";
        },
        10s))
        << refused->statusMessage().toStdString();

    // Accepts the connection and never answers.
    QTcpServer silent;
    ASSERT_TRUE(silent.listen(QHostAddress::LocalHost, 0));
    auto model = linkedModel(silent.serverPort());
    QElapsedTimer quit;
    quit.start();
    model->applicationWillTerminate();
    // A bound, not a speed goal: the wait gives up after 2 s however long the cloud takes.
    EXPECT_GE(quit.elapsed(), 1900);
    EXPECT_LT(quit.elapsed(), 4000);
}

} // namespace
} // namespace kelvo
