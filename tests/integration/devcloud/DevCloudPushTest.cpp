#include "DevCloudClient.h"

#include "support/DevCloudProcess.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <memory>

namespace kelvo {
namespace {

using json = nlohmann::json;

const std::string token = "kdt_push_test";
const std::string secret = "admin-secret";

/// Two bridges' sockets open on one cloud: what the control page, the REST API and the admin
/// calls change reaches both.
TEST(DevCloudPush, ControlPageRestAndAdminChangesReachEveryBridge) {
    test::TemporaryDirectory dir;
    test::DevCloudProcess cloud(
        KELVO_DEVCLOUD,
        {"--state", dir / "state.json", "--device-token", token, "--admin-secret", secret},
        dir / "cloud.log");
    ASSERT_TRUE(cloud.running()) << cloud.output();
    test::DevCloudClient client(cloud.baseUrl());
    test::DevCloudClient admin(cloud.baseUrl(), secret);
    test::ShowUpdatesListener first(cloud.baseUrl(), token);
    test::ShowUpdatesListener second(cloud.baseUrl(), token);
    for (auto* bridge : {&first, &second}) // each socket starts with the current control state
        ASSERT_TRUE(bridge->waitOpen() && bridge->waitFor("control_state"));

    struct Case {
        std::string path;
        std::string body;
        std::string type;
        json expected; // data values by JSON pointer
    };
    const std::vector<Case> cases{
        {"control/control-state",
         R"({"mode":"cycle","mode_to":"party","mode_lerp":0.4})",
         "control_state",
         {{"/mode", "cycle"}, {"/mode_to", "party"}, {"/mode_lerp", 0.4}}},
        {"control/control-state",
         R"({"theme_name":"Ocean","manual_dimmer":0.5})",
         "control_state",
         {{"/theme_name", "Ocean"}, {"/mode", "cycle"}}},
        {"control/force-drop", R"({"active":true})", "force_drop", {{"/active", true}}},
        {"control/shift", R"({"what":"lighting"})", "shift_lighting_only", json::object()},
        {"control/shift", R"({"what":"color_scheme"})", "shift_color_scheme", json::object()},
        {"control/rename",
         R"({"show_id":"show-demo","name":"Late Set"})",
         "show_changed",
         {{"/revision", 4}}},
        {"control/push",
         R"({"type":"show_snapshot"})",
         "show_snapshot",
         {{"/summary/name", "Late Set"}}},
        {"control/push", R"({"type":"shared_catalog_changed"})", "shared_catalog_changed",
         json::object()},
        {"control/activate",
         R"({"show_id":"show-warehouse"})",
         "bootstrap",
         {{"/active_show/summary/id", "show-warehouse"},
          {"/shows/1/active", true},
          {"/control_state/theme_name", "Ocean"}}},
        {"api/admin/push", R"({"text":"[]"})", "", json::object()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path + " " + c.body);
        const size_t seen = first.messages.size();
        ASSERT_EQ(admin.send("POST", c.path, {}, QByteArray::fromStdString(c.body)).status, 204);
        if (c.type.empty()) { // sent as it is
            EXPECT_TRUE(test::pumpUntil([&] { return first.messages.back() == "[]"; }));
            continue;
        }
        const auto pushed = first.waitFor(c.type, seen);
        ASSERT_TRUE(pushed);
        const json data = (*pushed)["data"].flatten();
        for (const auto& [pointer, value] : c.expected.items())
            EXPECT_EQ(data.value(pointer, json()), value) << pointer;
    }
    // The REST side reads what the page changed, and its own changes reach every bridge.
    const json bootstrap = client.send("GET", "api/runtime/bootstrap", token).json();
    EXPECT_EQ(bootstrap["control_state"]["mode_to"], "party");
    EXPECT_EQ(bootstrap["active_show"]["summary"]["id"], "show-warehouse");
    EXPECT_EQ(client.send("GET", "api/shows/show-demo", token).json()["revision"], 4);
    const size_t seen = second.messages.size();
    ASSERT_EQ(client.send("PATCH", "api/control-state", token, R"({"mode":"strobe"})").status, 200);
    for (auto* bridge : {&first, &second})
        EXPECT_EQ(bridge->waitFor("control_state", seen).value_or(json())["data"]["mode"],
                  "strobe");

    // The page shows what the bridge published; plain form posts from other sites are refused.
    const std::string tree = R"({"tree":{"mode":"party","children":[]}})";
    ASSERT_EQ(client.send("POST", "api/runtime/interpretation-tree", token, tree.c_str()).status,
              204);
    const json overview = client.send("GET", "control/state").json();
    EXPECT_EQ(overview["interpretation"]["payload"], json::parse(tree));
    EXPECT_EQ(overview["interpretation"]["device_name"], "Bridge 1");
    EXPECT_EQ(overview["connected_bridges"], 2);
    EXPECT_EQ(client.send("POST", "control/force-drop", {}, "active=1").status, 400);

    // Admin calls need the secret; faults delay chosen paths; a revoked token loses its socket.
    EXPECT_EQ(client.send("GET", "api/admin/state").status, 401);
    ASSERT_EQ(admin.send("POST", "api/admin/faults", {}, R"({"path":"api/config","delay_ms":3000})")
                  .status,
              200);
    EXPECT_EQ(client.send("GET", "api/config", token, {}, 300).error,
              QNetworkReply::OperationCanceledError);
    ASSERT_EQ(admin.send("DELETE", "api/admin/faults").status, 204);
    EXPECT_EQ(client.send("GET", "api/config", token).status, 200);
    EXPECT_EQ(admin.send("GET", "api/admin/state").json()["requests"]["GET api/config"], 2);
    ASSERT_EQ(
        admin.send("POST", "api/admin/revoke", {}, json({{"token", token}}).dump().c_str()).status,
        204);
    EXPECT_TRUE(test::pumpUntil(
        [&] { return first.socket().state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_EQ(client.send("GET", "api/auth/me", token).status, 403);
}

} // namespace
} // namespace kelvo
