#include "DevCloudClient.h"

#include "support/DevCloudProcess.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using test::DevCloudClient;
using test::DevCloudProcess;
using test::HttpResult;
using json = nlohmann::json;

const std::string validToken = "kdt_test_valid";
const std::string revokedToken = "kdt_test_revoked";

class DevCloudServer : public testing::Test {
protected:
    /// Starts the server with a state file in the test's directory and the two test tokens.
    void start(std::vector<std::string> options = {}) {
        options.insert(options.end(), {"--state", state, "--device-token", validToken,
                                       "--revoked-token", revokedToken});
        cloud = std::make_unique<DevCloudProcess>(KELVO_DEVCLOUD, options, dir / "cloud.log");
        ASSERT_TRUE(cloud->running()) << cloud->output();
        client = std::make_unique<DevCloudClient>(cloud->baseUrl());
    }

    HttpResult send(const QByteArray& method, const std::string& path,
                    const std::string& token = validToken, const QByteArray& body = {}) {
        return client->send(method, path, token, body);
    }

    test::TemporaryDirectory dir;
    std::string state = dir / "state.json";
    std::unique_ptr<DevCloudProcess> cloud;
    std::unique_ptr<DevCloudClient> client;
};

TEST_F(DevCloudServer, EveryBridgeEndpointChecksTheBearerTokenAndExplainsRefusals) {
    start();
    // Each call with a valid token and its answer; the accepted ones then without a good token.
    struct Call {
        QByteArray method;
        std::string path;
        QByteArray body;
        int status;
    };
    const std::vector<Call> calls{
        {"GET", "api/auth/me", {}, 200},
        {"GET", "api/runtime/bootstrap", {}, 200},
        {"GET", "api/runtime/active-show", {}, 200},
        {"GET", "api/config", {}, 200},
        {"GET", "api/shows/show-demo", {}, 200},
        {"POST", "api/shows/show-demo/activate", {}, 200},
        {"PATCH", "api/control-state", R"({"theme_name":"Ocean"})", 200},
        {"POST", "api/runtime/interpretation-tree", R"({"tree":{"mode":"x","children":[]}})", 204},
        {"POST", "api/bridge/disconnect", {}, 204},
        {"PATCH", "api/control-state", "[1]", 400},
        {"PATCH", "api/control-state", R"({"volume":1})", 400},
        {"POST", "api/shows/show-retired/activate", {}, 404},
        {"GET", "api/bridge/pairing/status", {}, 400},
    };
    for (const Call& call : calls) {
        SCOPED_TRACE(call.path + " " + call.body.toStdString());
        EXPECT_EQ(send(call.method, call.path, validToken, call.body).status, call.status);
        if (call.status >= 400)
            continue;
        EXPECT_EQ(send(call.method, call.path, "", call.body).status, 401);
        EXPECT_EQ(send(call.method, call.path, "kdt_nobody", call.body).status, 401);
        EXPECT_EQ(send(call.method, call.path, revokedToken, call.body).status, 403);
    }
    for (const auto& [refused, code] :
         {std::pair<std::string, const char*>{"kdt_nobody", "401"}, {revokedToken, "403"}}) {
        test::ShowUpdatesListener socket(cloud->baseUrl(), refused);
        EXPECT_TRUE(test::pumpUntil([&, code = code] {
            return socket.socket.errorString().contains(QString("status code: ") + code);
        })) << code;
    }
    // The harness files, served without a token, stay inside their folder.
    EXPECT_EQ(send("GET", "bridge-harness/v1/..%2Fmanifest.json", "").status, 404);
}

TEST_F(DevCloudServer, RefusesToListenBeyondLoopbackAndExplainsBadOptions) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--listen", "0.0.0.0:0"}, "refusing to listen on"},
        {{"--listen", "10.1.2.3:4041"}, "refusing to listen on"},
        {{"--listen", "not-an-address"}, "--listen needs HOST:PORT"},
        {{"--fault", "api/config:status=600"}, "bad fault \"status=600\""},
    };
    for (const auto& [options, explanation] : cases) {
        SCOPED_TRACE(options[1]);
        std::vector<std::string> arguments{KELVO_DEVCLOUD, "--state", state};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const pid_t pid = test::spawnWithOutput(KELVO_DEVCLOUD, arguments, dir / "refused.log");
        EXPECT_EQ(test::waitForExit(pid), 2);
        const std::string output = test::readText(dir / "refused.log");
        EXPECT_NE(output.find(explanation), std::string::npos) << output;
    }
}

/// Two bridges' sockets open on one cloud: what the control page and the REST API change
/// reaches both.
TEST_F(DevCloudServer, ControlPageAndRestChangesReachEveryBridge) {
    start();
    test::ShowUpdatesListener first(cloud->baseUrl(), validToken);
    test::ShowUpdatesListener second(cloud->baseUrl(), validToken);
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
        {"rename", R"({"show_id":"show-demo","name":"Late"})", "show_changed", {{"/revision", 4}}},
        {"push", R"({"type":"show_snapshot"})", "show_snapshot", {{"/summary/name", "Late"}}},
        {"activate",
         R"({"show_id":"show-warehouse"})",
         "bootstrap",
         {{"/active_show/summary/id", "show-warehouse"}, {"/control_state/theme_name", "Ocean"}}},
    };
    for (const auto& [action, body, type, expected] : cases) {
        SCOPED_TRACE(action + " " + body);
        const size_t seen = first.messages.size();
        ASSERT_EQ(send("POST", "control/" + action, "", body.c_str()).status, 204);
        const auto pushed = first.waitFor(type, seen);
        ASSERT_TRUE(pushed);
        const json data = (*pushed)["data"].flatten();
        for (const auto& [pointer, value] : expected.items())
            EXPECT_EQ(data.value(pointer, json()), value) << pointer;
    }
    // The REST side's own changes reach every bridge.
    const size_t seen = second.messages.size();
    ASSERT_EQ(send("PATCH", "api/control-state", validToken, R"({"mode":"strobe"})").status, 200);
    for (auto* bridge : {&first, &second})
        EXPECT_EQ(bridge->waitFor("control_state", seen).value_or(json())["data"]["mode"],
                  "strobe");
}

} // namespace
} // namespace kelvo
