#include "DevCloudClient.h"

#include "support/DevCloudProcess.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using test::DevCloudClient;
using test::DevCloudProcess;
using test::HttpResult;

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
    // Each call with a valid token, what it answers and, when refused, the reason given.
    struct Call {
        QByteArray method;
        std::string path;
        QByteArray body;
        int status;
        std::string error = {};
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
        {"PATCH", "api/control-state", "[1]", 400, "the control state must be a JSON object"},
        {"PATCH", "api/control-state", "{", 400, "the body is not JSON"},
        {"PATCH", "api/control-state", R"({"volume":1})", 400, "unknown control-state key volume"},
        {"POST", "api/shows/show-retired/activate", {}, 404, "no such show"},
        {"GET", "api/bridge/pairing/status", {}, 400, "the query needs the pairing code: ?code=…"},
        {"DELETE", "api/config", {}, 405, "method not allowed on this path"},
    };
    for (const Call& call : calls) {
        SCOPED_TRACE(call.path + " " + call.body.toStdString());
        const HttpResult result = send(call.method, call.path, validToken, call.body);
        EXPECT_EQ(result.status, call.status);
        if (!call.error.empty()) {
            EXPECT_EQ(result.json()["error"], call.error);
            continue;
        }
        EXPECT_EQ(send(call.method, call.path, "", call.body).status, 401);
        EXPECT_EQ(send(call.method, call.path, "kdt_nobody", call.body).status, 401);
        EXPECT_EQ(send(call.method, call.path, revokedToken, call.body).status, 403);
    }
    const std::string socketPath = "ws/show-updates?role=runtime&token=";
    EXPECT_EQ(client->upgradeStatus(socketPath + "kdt_nobody"), 401);
    EXPECT_EQ(client->upgradeStatus(socketPath + revokedToken), 403);
    EXPECT_EQ(client->upgradeStatus(socketPath + validToken), 101);
    // The unauthenticated parts.
    EXPECT_EQ(send("GET", "api/health", "").json()["api_version"], "devcloud");
    EXPECT_EQ(send("GET", "bridge-harness/v1/manifest.json", "").json()["harnessMajor"], 1);
    EXPECT_EQ(send("GET", "bridge-harness/v1/engine.js", "").status, 200);
    EXPECT_EQ(send("GET", "bridge-harness/v1/..%2Fmanifest.json", "").status, 404);
}

TEST_F(DevCloudServer, StateSurvivesARestartAndCommandLineFaultsFailChosenPaths) {
    start({"--auto-approve"});
    const std::string code = send("POST", "api/bridge/pairing/start", "", "{}").json()["code"];
    const std::string paired =
        send("GET", "api/bridge/pairing/status?code=" + code, "").json()["device_token"];
    ASSERT_EQ(
        send("PATCH", "api/control-state", paired, R"({"mode":"chase","mode_lerp":0.25})").status,
        200);
    ASSERT_EQ(send("POST", "api/shows/show-warehouse/activate", paired).status, 200);
    cloud.reset();

    // Faults on chosen paths: exact or by prefix, for a number of calls or for good. (Tests of
    // the bridge add delays through the admin calls.)
    start({"--fault", "api/config:status=503,times=1", "--fault", "api/shows/*:drop"});
    const auto bootstrap = send("GET", "api/runtime/bootstrap", paired).json();
    EXPECT_EQ(bootstrap["control_state"]["mode"], "chase");
    EXPECT_EQ(bootstrap["control_state"]["mode_lerp"], 0.25);
    EXPECT_EQ(bootstrap["active_show"]["summary"]["id"], "show-warehouse");
    EXPECT_EQ(bootstrap["shows"][1]["active"], true);
    EXPECT_EQ(send("GET", "api/config").status, 503);
    EXPECT_EQ(send("GET", "api/config").status, 200);
    EXPECT_EQ(send("GET", "api/shows/show-demo").error, QNetworkReply::RemoteHostClosedError);
    EXPECT_EQ(send("GET", "api/runtime/active-show").status, 200);
}

TEST_F(DevCloudServer, RefusesToListenBeyondLoopbackAndExplainsBadOptions) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--listen", "0.0.0.0:0"}, "refusing to listen on"},
        {{"--listen", "10.1.2.3:4041"}, "refusing to listen on"},
        {{"--listen", "not-an-address"}, "--listen needs HOST:PORT"},
        {{"--fault", "api/config:status=600"}, "bad fault \"status=600\""},
        {{"--fault", "api/config:times=2"}, "a fault needs delay=MS, drop or status=CODE"},
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

} // namespace
} // namespace kelvo
