#include "../devcloud/DevCloudClient.h"

#include "Cloud/DisconnectNotifier.h"
#include "Cloud/QtURLSession.h"
#include "support/AppModelRig.h"
#include "support/DevCloudProcess.h"
#include "support/QtEventLoop.h"

#include <QElapsedTimer>

#include <filesystem>

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;

const std::string token = "kdt_show_updates";
const std::string secret = "admin-secret";

/// The model with the real HTTP transport and leave notice, linked to a kelvo-devcloud on
/// loopback, its push socket open; the admin API pushes messages, injects faults and counts the
/// requests the bridge made. Pairing and the download end to end are the headless program's test;
/// the session rules are CloudSession's, debouncing and reopening the socket the channel's.
class ShowUpdatesLinkTest : public ::testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override {
        test::qtApplication();
        cloud = std::make_unique<test::DevCloudProcess>(
            KELVO_DEVCLOUD,
            std::vector<std::string>{"--state", dir / "cloud-state.json", "--device-token", token,
                                     "--admin-secret", secret},
            dir / "cloud.log");
        ASSERT_TRUE(cloud->running()) << cloud->output();
        client = std::make_unique<test::DevCloudClient>(cloud->baseUrl());
        admin = std::make_unique<test::DevCloudClient>(cloud->baseUrl(), secret);

        serverURL = QUrl(QString::fromStdString(cloud->baseUrl()));
        http = std::make_shared<QtURLSession>();
        leaving = std::make_shared<ThreadedDisconnectNotifier>();
        model = makeModel();
        model->settings().saveAuthToken(token, serverURL);
        model->bootstrap();
        model->autoConnect();
        ASSERT_TRUE(test::pumpUntil(
            [&] { return model->connectionStatus() == ConnectionStatus::connected; }, 20s))
            << model->statusMessage().toStdString() << cloud->output();
        ASSERT_TRUE(test::pumpUntil([&] { return overview()["connected_bridges"] == 1; }));
    }

    json overview() { return client->send("GET", "control/state").json(); }
    void adminPost(const std::string& path, const json& body, int status) {
        ASSERT_EQ(admin->send("POST", path, {}, QByteArray::fromStdString(body.dump())).status,
                  status);
    }

    std::unique_ptr<test::DevCloudProcess> cloud;
    std::unique_ptr<test::DevCloudClient> client;
    std::unique_ptr<test::DevCloudClient> admin;
    std::unique_ptr<AppModel> model;
};

TEST_F(ShowUpdatesLinkTest, APickedShowIsActivatedAndAReloadStartedBeforeThePickIsDiscarded) {
    // The bridge runs the warehouse show while the cloud still has the demo show active.
    const json warehouse = client->send("GET", "api/shows/show-warehouse", token).json();
    adminPost("api/admin/push", {{"type", "show_snapshot"}, {"data", warehouse}}, 204);
    ASSERT_TRUE(test::pumpUntil([&] { return model->selectedShowId() == "show-warehouse"; }));

    // A reload starts, and answers (with the demo show) only after the operator has picked
    // the warehouse show here, whose activation is slower still.
    adminPost("api/admin/faults", {{"path", "api/runtime/active-show"}, {"delay_ms", 1500}}, 200);
    adminPost("api/admin/faults",
              {{"path", "api/shows/show-warehouse/activate"}, {"delay_ms", 3000}}, 200);
    adminPost("api/admin/push", {{"type", "show_changed"}, {"data", json::object()}}, 204);
    ASSERT_TRUE(test::pumpUntil([&] {
        return admin->send("GET", "api/admin/state")
                   .json()["requests"]
                   .value("GET api/runtime/active-show", 0) == 1;
    }));
    model->selectShow(QStringLiteral("show-warehouse"));

    ASSERT_TRUE(test::pumpUntil([&] {
        return cloud->output().find("GET /api/runtime/active-show -> 200") != std::string::npos;
    }));
    test::pumpFor(200ms);
    EXPECT_EQ(model->selectedShowId(), "show-warehouse") << "the late reload was applied";
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isSwitchingShow(); }, 10s));
    EXPECT_EQ(overview()["active_show_id"], "show-warehouse");

    model->selectShow(QStringLiteral("show-nowhere"));
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isSwitchingShow(); }));
    EXPECT_EQ(model->statusMessage(), "Couldn’t switch show: Server returned HTTP 404");
    EXPECT_EQ(model->selectedShowId(), "show-warehouse");
}

TEST_F(ShowUpdatesLinkTest, QuittingWaitsAtMostTwoSecondsThenARefusedConnectionSaysSo) {
    adminPost("api/admin/faults", {{"path", "api/bridge/disconnect"}, {"delay_ms", 6000}}, 200);
    QElapsedTimer quit;
    quit.start();
    model->applicationWillTerminate();
    // A bound, not a speed goal: the leave notice gives up after 2 s however long the cloud takes.
    EXPECT_GE(quit.elapsed(), 1900);
    EXPECT_LT(quit.elapsed(), 4000);

    cloud.reset(); // nobody answers on its port now, and no cache to fall back on
    std::filesystem::remove_all(dir / "cache");
    auto refused = makeModel();
    refused->autoConnect();
    EXPECT_TRUE(test::pumpUntil(
        [&] {
            return refused->statusMessage() ==
                   "Couldn’t connect: Connection refused. Retrying in 1s…";
        },
        10s))
        << refused->statusMessage().toStdString();
}

} // namespace
} // namespace kelvo
