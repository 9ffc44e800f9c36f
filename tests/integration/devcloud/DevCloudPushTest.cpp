#include "DevCloudClient.h"

#include "support/DevCloudProcess.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <memory>

namespace kelvo {
namespace {

using json = nlohmann::json;
using test::HttpResult;

const std::string token = "kdt_push_test";
const std::string secret = "admin-secret";

/// A cloud with one bridge's socket open and its greeting received.
class DevCloudPush : public testing::Test {
protected:
    void SetUp() override {
        cloud = std::make_unique<test::DevCloudProcess>(
            KELVO_DEVCLOUD,
            std::vector<std::string>{"--state", dir / "state.json", "--device-token", token,
                                     "--admin-secret", secret},
            dir / "cloud.log");
        ASSERT_TRUE(cloud->running()) << cloud->output();
        client = std::make_unique<test::DevCloudClient>(cloud->baseUrl());
        admin = std::make_unique<test::DevCloudClient>(cloud->baseUrl(), secret);
        bridge = std::make_unique<test::ShowUpdatesListener>(cloud->baseUrl(), token);
        ASSERT_TRUE(bridge->waitOpen());
        ASSERT_TRUE(bridge->waitFor("control_state"));
    }

    /// A control-page call, sent as the page sends it.
    int page(const std::string& action, const std::string& body) {
        return client->send("POST", "control/" + action, {}, QByteArray::fromStdString(body))
            .status;
    }

    test::TemporaryDirectory dir;
    std::unique_ptr<test::DevCloudProcess> cloud;
    std::unique_ptr<test::DevCloudClient> client;
    std::unique_ptr<test::DevCloudClient> admin;
    std::unique_ptr<test::ShowUpdatesListener> bridge;
};

TEST_F(DevCloudPush, EveryControlPageChangeReachesTheBridge) {
    struct Case {
        std::string action;
        std::string body;
        std::string type;
        std::function<void(const json& data)> check;
    };
    const std::vector<Case> cases{
        {"control-state", R"({"mode":"cycle","mode_to":"party","mode_lerp":0.4})", "control_state",
         [](const json& data) {
             EXPECT_EQ(data["mode"], "cycle");
             EXPECT_EQ(data["mode_to"], "party");
             EXPECT_EQ(data["mode_lerp"], 0.4);
         }},
        {"control-state", R"({"theme_name":"Ocean","manual_dimmer":0.5})", "control_state",
         [](const json& data) {
             EXPECT_EQ(data["theme_name"], "Ocean");
             EXPECT_EQ(data["mode"], "cycle");
         }},
        {"force-drop", R"({"active":true})", "force_drop",
         [](const json& data) {
             EXPECT_EQ(data, json({{"active", true}}));
         }},
        {"shift", R"({"what":"lighting"})", "shift_lighting_only", nullptr},
        {"shift", R"({"what":"color_scheme"})", "shift_color_scheme", nullptr},
        {"rename", R"({"show_id":"show-demo","name":"Late Set"})", "show_changed",
         [](const json& data) {
             EXPECT_EQ(data, json({{"revision", 4}}));
         }},
        {"push", R"({"type":"show_snapshot"})", "show_snapshot",
         [](const json& data) { EXPECT_EQ(data["summary"]["name"], "Late Set"); }},
        {"push", R"({"type":"shared_catalog_changed"})", "shared_catalog_changed", nullptr},
        {"activate", R"({"show_id":"show-warehouse"})", "bootstrap",
         [](const json& data) {
             EXPECT_EQ(data["active_show"]["summary"]["id"], "show-warehouse");
             EXPECT_EQ(data["shows"][1]["active"], true);
             EXPECT_EQ(data["control_state"]["theme_name"], "Ocean");
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.action + " " + c.body);
        const size_t seen = bridge->messages.size();
        ASSERT_EQ(page(c.action, c.body), 204);
        const auto pushed = bridge->waitFor(c.type, seen);
        ASSERT_TRUE(pushed);
        if (c.check)
            c.check((*pushed)["data"]);
    }
    // The REST endpoints read what the page changed.
    const json bootstrap = client->send("GET", "api/runtime/bootstrap", token).json();
    EXPECT_EQ(bootstrap["control_state"]["mode_to"], "party");
    EXPECT_EQ(bootstrap["active_show"]["summary"]["id"], "show-warehouse");
    EXPECT_EQ(client->send("GET", "api/shows/show-demo", token).json()["revision"], 4);
}

TEST_F(DevCloudPush, ThePageShowsWhatTheBridgePublished) {
    const std::string tree =
        R"({"tree":{"mode":"party","children":[{"kind":"group","label":"Pars","children":[]}]}})";
    ASSERT_EQ(client
                  ->send("POST", "api/runtime/interpretation-tree", token,
                         QByteArray::fromStdString(tree))
                  .status,
              204);
    const json overview = client->send("GET", "control/state").json();
    EXPECT_EQ(overview["interpretation"]["payload"], json::parse(tree));
    EXPECT_EQ(overview["interpretation"]["device_name"], "Bridge 1");
    EXPECT_EQ(overview["connected_bridges"], 1);
    // Plain form posts from other sites are refused.
    EXPECT_EQ(client->send("POST", "control/force-drop", {}, "active=1").status, 400);
}

TEST_F(DevCloudPush, AdminCallsShapeWhatTheBridgeMeets) {
    EXPECT_EQ(client->send("GET", "api/admin/state").status, 401);

    ASSERT_EQ(admin->send("POST", "api/admin/push", {}, R"({"text":"[]"})").status, 204);
    ASSERT_TRUE(test::pumpUntil([&] { return bridge->messages.back() == "[]"; }));

    ASSERT_EQ(
        admin->send("POST", "api/admin/faults", {}, R"({"path":"api/config","delay_ms":3000})")
            .status,
        200);
    EXPECT_EQ(client->send("GET", "api/config", token, {}, 300).error,
              QNetworkReply::OperationCanceledError);
    ASSERT_EQ(admin->send("DELETE", "api/admin/faults").status, 204);
    EXPECT_EQ(client->send("GET", "api/config", token).status, 200);
    EXPECT_EQ(admin->send("GET", "api/admin/state").json()["requests"]["GET api/config"], 2);

    bool closed = false;
    QObject::connect(&bridge->socket(), &QWebSocket::disconnected, [&] { closed = true; });
    ASSERT_EQ(
        admin->send("POST", "api/admin/revoke", {}, json({{"token", token}}).dump().c_str()).status,
        204);
    EXPECT_TRUE(test::pumpUntil([&] { return closed; }));
    EXPECT_EQ(client->send("GET", "api/auth/me", token).status, 403);
}

} // namespace
} // namespace kelvo
