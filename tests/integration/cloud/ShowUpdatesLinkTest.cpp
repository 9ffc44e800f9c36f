#include "../devcloud/DevCloudClient.h"

#include "Cloud/QtURLSession.h"
#include "support/AppModelRig.h"
#include "support/DevCloudProcess.h"
#include "support/QtEventLoop.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;

const std::string token = "kdt_show_updates";
const std::string secret = "admin-secret";

/// The model linked to a kelvo-devcloud on loopback, its push socket open; the admin API
/// pushes messages, injects faults and counts the requests the bridge made.
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
        model = makeModel();
        QObject::connect(model.get(), &AppModel::statusMessageChanged,
                         [this] { messages.push_back(model->statusMessage().toStdString()); });
        model->settings().saveAuthToken(token, serverURL);
        model->bootstrap();
        model->autoConnect();
        ASSERT_TRUE(test::pumpUntil(
            [&] { return model->connectionStatus() == ConnectionStatus::connected; }, 20s))
            << model->statusMessage().toStdString() << cloud->output();
        ASSERT_TRUE(test::pumpUntil([&] { return overview()["connected_bridges"] == 1; }));
    }

    json overview() { return client->send("GET", "control/state").json(); }
    int requests(const std::string& call) {
        return admin->send("GET", "api/admin/state").json()["requests"].value(call, 0);
    }
    void push(const json& message) {
        ASSERT_EQ(
            admin->send("POST", "api/admin/push", {}, QByteArray::fromStdString(message.dump()))
                .status,
            204);
    }
    void fault(const std::string& path, const json& fault) {
        json rule = fault;
        rule["path"] = path;
        ASSERT_EQ(
            admin->send("POST", "api/admin/faults", {}, QByteArray::fromStdString(rule.dump()))
                .status,
            200);
    }
    bool sawMessage(const std::string& text) const {
        return std::find(messages.begin(), messages.end(), text) != messages.end();
    }

    std::unique_ptr<test::DevCloudProcess> cloud;
    std::unique_ptr<test::DevCloudClient> client;
    std::unique_ptr<test::DevCloudClient> admin;
    std::unique_ptr<AppModel> model;
    std::vector<std::string> messages;
};

TEST_F(ShowUpdatesLinkTest, TheInterpretationReachesTheCloudOnConnectOnShiftsAndOnTheScreen) {
    ASSERT_TRUE(test::pumpUntil([&] { return !overview()["interpretation"].is_null(); }));
    const json published = overview()["interpretation"]["payload"];
    ASSERT_TRUE(published["tree"]["mode"].is_string()) << published.dump();

    // The screen shows the decoded tree only once it is open.
    EXPECT_FALSE(model->interpretationTree());
    model->setInterpretationScreenVisible(true);
    ASSERT_TRUE(model->interpretationTree());
    EXPECT_EQ(model->interpretationTree()->modeId, published["tree"]["mode"]);
    EXPECT_FALSE(model->interpretationTree()->groups.empty());

    const std::string publish = "POST api/runtime/interpretation-tree";
    const int before = requests(publish);
    model->shiftLightingInterpretation();
    EXPECT_TRUE(model->isShiftingInterpretation());
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isShiftingInterpretation(); }));
    EXPECT_EQ(requests(publish), before + 1);

    // A shift pressed in the browser is published back, so the editor sees the new deal.
    push({{"type", "shift_lighting_only"}, {"data", json::object()}});
    ASSERT_TRUE(test::pumpUntil([&] { return requests(publish) == before + 2; }));

    fault("api/runtime/interpretation-tree", {{"status", 500}});
    model->shiftLightingInterpretation();
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isShiftingInterpretation(); }));
    EXPECT_EQ(model->statusMessage(), "Couldn’t publish interpretation: Server returned HTTP 500");
}

TEST_F(ShowUpdatesLinkTest, ABurstOfShowChangesGivesOneReload) {
    const std::string reload = "GET api/runtime/active-show";
    ASSERT_EQ(requests(reload), 0);
    // Sent together: the three notices reach the bridge within a few milliseconds.
    QNetworkAccessManager network;
    std::vector<std::unique_ptr<QNetworkReply>> replies;
    for (int revision = 1; revision <= 3; ++revision) {
        QNetworkRequest request(QUrl(QString::fromStdString(cloud->baseUrl() + "/api/admin/push")));
        request.setRawHeader("X-Kelvo-Admin", QByteArray::fromStdString(secret));
        request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
        replies.emplace_back(network.post(
            request,
            QByteArray::fromStdString(
                json{{"type", "show_changed"}, {"data", {{"revision", revision}}}}.dump())));
    }
    ASSERT_TRUE(test::pumpUntil([&] {
        return std::all_of(replies.begin(), replies.end(),
                           [](const auto& reply) { return reply->isFinished(); });
    }));
    ASSERT_TRUE(test::pumpUntil([&] { return requests(reload) >= 1; }));
    test::pumpFor(500ms);
    EXPECT_EQ(requests(reload), 1);
    EXPECT_EQ(model->showUpdatesChannel()->pendingShowChangedRevision(), 3);
}

TEST_F(ShowUpdatesLinkTest, AReloadThatReturnsAfterALocalShowSwitchIsDiscarded) {
    // The bridge runs the warehouse show while the cloud still has the demo show active.
    const json warehouse = client->send("GET", "api/shows/show-warehouse", token).json();
    push({{"type", "show_snapshot"}, {"data", warehouse}});
    ASSERT_TRUE(test::pumpUntil([&] { return model->selectedShowId() == "show-warehouse"; }));

    // A reload starts, and answers (with the demo show) only after the operator has picked
    // the warehouse show here, whose activation is slower still.
    fault("api/runtime/active-show", {{"delay_ms", 1500}});
    fault("api/shows/show-warehouse/activate", {{"delay_ms", 3000}});
    push({{"type", "show_changed"}, {"data", json::object()}});
    ASSERT_TRUE(test::pumpUntil([&] { return requests("GET api/runtime/active-show") == 1; }));
    model->selectShow(QStringLiteral("show-warehouse"));
    EXPECT_TRUE(model->isSwitchingShow());
    EXPECT_EQ(model->pendingShowSwitchId(), "show-warehouse");

    ASSERT_TRUE(test::pumpUntil([&] {
        return cloud->output().find("GET /api/runtime/active-show -> 200") != std::string::npos;
    }));
    test::pumpFor(200ms);
    EXPECT_EQ(model->selectedShowId(), "show-warehouse") << "the late reload was applied";
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isSwitchingShow(); }, 10s));
    EXPECT_EQ(model->selectedShowId(), "show-warehouse");
}

TEST_F(ShowUpdatesLinkTest, SelectShowActivatesItAndTheBridgeFollows) {
    ASSERT_EQ(model->selectedShowId(), "show-demo");
    model->selectShow(QStringLiteral("show-warehouse"));
    EXPECT_TRUE(model->isSwitchingShow());
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isSwitchingShow(); }));
    EXPECT_FALSE(model->pendingShowSwitchId());
    EXPECT_EQ(overview()["active_show_id"], "show-warehouse");
    EXPECT_EQ(model->selectedShowId(), "show-warehouse");
    const auto active = std::find_if(model->shows().begin(), model->shows().end(),
                                     [](const ShowOption& show) { return show.active; });
    ASSERT_NE(active, model->shows().end());
    EXPECT_EQ(active->id, "show-warehouse");
    ASSERT_TRUE(test::pumpUntil(
        [&] { return model->showPatch() && model->showPatch()->showId == "show-warehouse"; }));
    // The cloud's push brings the show itself to the engine.
    EXPECT_TRUE(model->engine().hasRealizedShow());

    model->selectShow(QStringLiteral("show-nowhere"));
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isSwitchingShow(); }));
    EXPECT_EQ(model->statusMessage(), "Couldn’t switch show: Server returned HTTP 404");
    EXPECT_FALSE(model->pendingShowSwitchId());
    EXPECT_EQ(model->selectedShowId(), "show-warehouse");
}

TEST_F(ShowUpdatesLinkTest, ASocketTheServerClosesIsReopenedASecondLater) {
    QElapsedTimer sinceClose;
    ASSERT_EQ(admin->send("POST", "api/admin/close-sockets").status, 204);
    sinceClose.start();
    ASSERT_TRUE(test::pumpUntil([&] { return overview()["connected_bridges"] == 0; }));
    ASSERT_TRUE(test::pumpUntil([&] { return overview()["connected_bridges"] == 1; }, 10s));
    // A lower bound only: the retry waits its second, however loaded the machine.
    EXPECT_GE(sinceClose.elapsed(), 900);
    EXPECT_EQ(model->connectionStatus(), ConnectionStatus::connected);
}

} // namespace
} // namespace kelvo
