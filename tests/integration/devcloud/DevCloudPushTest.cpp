#include "DevCloudClient.h"

#include "support/DevCloudProcess.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using json = nlohmann::json;

const std::string token = "kdt_push_test";

/// Two bridges' sockets open on one cloud: what the control page and the REST API change
/// reaches both.
TEST(DevCloudPush, ControlPageAndRestChangesReachEveryBridge) {
    test::TemporaryDirectory dir;
    test::DevCloudProcess cloud(
        KELVO_DEVCLOUD,
        {"--state", dir / "state.json", "--device-token", token, "--admin-secret", "secret"},
        dir / "cloud.log");
    ASSERT_TRUE(cloud.running()) << cloud.output();
    test::DevCloudClient client(cloud.baseUrl());
    test::ShowUpdatesListener first(cloud.baseUrl(), token);
    test::ShowUpdatesListener second(cloud.baseUrl(), token);
    for (auto* bridge : {&first, &second}) // each socket starts with the current control state
        ASSERT_TRUE(bridge->waitFor("control_state"));

    // A control-page call, what it pushes, and some of the data it carries (by JSON pointer).
    const std::tuple<std::string, std::string, std::string, json> cases[] = {
        {"control-state",
         R"({"mode":"cycle","mode_lerp":0.4})",
         "control_state",
         {{"/mode", "cycle"}, {"/mode_lerp", 0.4}}},
        {"control-state", R"({"theme_name":"Ocean"})", "control_state", {{"/mode", "cycle"}}},
        {"force-drop", R"({"active":true})", "force_drop", {{"/active", true}}},
        {"shift", R"({"what":"lighting"})", "shift_lighting_only", json::object()},
        {"shift", R"({"what":"color_scheme"})", "shift_color_scheme", json::object()},
        {"rename", R"({"show_id":"show-demo","name":"Late"})", "show_changed", {{"/revision", 4}}},
        {"push", R"({"type":"show_snapshot"})", "show_snapshot", {{"/summary/name", "Late"}}},
        {"push", R"({"type":"shared_catalog_changed"})", "shared_catalog_changed", json::object()},
        {"activate",
         R"({"show_id":"show-warehouse"})",
         "bootstrap",
         {{"/active_show/summary/id", "show-warehouse"}, {"/control_state/theme_name", "Ocean"}}},
    };
    for (const auto& [action, body, type, expected] : cases) {
        SCOPED_TRACE(action + " " + body);
        const size_t seen = first.messages.size();
        ASSERT_EQ(client.send("POST", "control/" + action, {}, body.c_str()).status, 204);
        const auto pushed = first.waitFor(type, seen);
        ASSERT_TRUE(pushed);
        const json data = (*pushed)["data"].flatten();
        for (const auto& [pointer, value] : expected.items())
            EXPECT_EQ(data.value(pointer, json()), value) << pointer;
    }
    // The REST side reads what the page changed, and its own changes reach every bridge.
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
    EXPECT_EQ(overview["connected_bridges"], 2);
    EXPECT_EQ(client.send("POST", "control/force-drop", {}, "active=1").status, 400);

    // Admin calls need the secret; a revoked token loses its socket and its access.
    EXPECT_EQ(client.send("GET", "api/admin/state").status, 401);
    test::DevCloudClient admin(cloud.baseUrl(), "secret");
    ASSERT_EQ(
        admin.send("POST", "api/admin/revoke", {}, json({{"token", token}}).dump().c_str()).status,
        204);
    EXPECT_TRUE(
        test::pumpUntil([&] { return first.socket.state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_EQ(client.send("GET", "api/auth/me", token).status, 403);
}

} // namespace
} // namespace kelvo
