#include "Cloud/BridgeAPIClient.h"

#include "Cloud/BridgeAPIError.h"
#include "Cloud/FakeURLSession.h"
#include "support/QtEventLoop.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using test::FakeURLSession;
using test::finish;
using Headers = std::vector<std::pair<QByteArray, QByteArray>>;

class BridgeAPIClientTest : public ::testing::Test {
protected:
    void SetUp() override { test::qtApplication(); }

    void answer(int status, QByteArray body = "{}") {
        session->setResponder([=](const HTTPRequest&) { return HTTPResponse{status, body}; });
    }
    const HTTPRequest& sent() const { return session->requests.back(); }

    std::shared_ptr<FakeURLSession> session = std::make_shared<FakeURLSession>();
    BridgeAPIClient client{QUrl("http://127.0.0.1:4041/"), session};
    const std::string token = "tok-123";
};

TEST_F(BridgeAPIClientTest, EveryEndpointSendsItsExactRequest) {
    const std::pair<QByteArray, QByteArray> bearer{"Authorization", "Bearer tok-123"};
    const std::pair<QByteArray, QByteArray> json{"Content-Type", "application/json"};
    struct Case {
        std::function<void()> call;
        QString request; // method and path
        Headers headers;
        std::optional<QByteArray> body = std::nullopt;
    };
    const auto run = [](auto task) { finish(std::move(task)); };
    BridgeAPIClient& api = client;
    const std::string& t = token;
    const nlohmann::json mode = {{"mode", "party"}};
    const Case cases[] = {
        {[&] { run(api.fetchAPIVersion()); }, "GET /api/health", {}},
        {[&] { run(api.startPairing()); }, "POST /api/bridge/pairing/start", {json}, "{}"},
        {[&] { run(api.fetchSessionInfo(t)); }, "GET /api/auth/me", {bearer}},
        {[&] { run(api.fetchRuntimeBootstrap(t)); }, "GET /api/runtime/bootstrap", {bearer}},
        {[&] { run(api.fetchRuntimeActiveShow(t)); }, "GET /api/runtime/active-show", {bearer}},
        {[&] { run(api.fetchConfig(t)); }, "GET /api/config", {bearer}},
        {[&] { run(api.fetchShow("show-1", t)); }, "GET /api/shows/show-1", {bearer}},
        {[&] { run(api.activateShow("show-1", t)); }, "POST /api/shows/show-1/activate", {bearer}},
        {[&] { run(api.patchControlState(mode, t)); },
         "PATCH /api/control-state",
         {bearer, json},
         R"({"mode":"party"})"},
        {[&] { run(api.publishInterpretationTree("[1]", t)); },
         "POST /api/runtime/interpretation-tree",
         {bearer, json},
         "[1]"},
        {[&] { run(api.disconnect(t)); }, "POST /api/bridge/disconnect", {bearer}},
    };
    session->setResponder([](const HTTPRequest& request) {
        if (request.url.path() == "/api/health")
            return HTTPResponse{200, R"({"api_version":"a","app_download_url":"/d"})"};
        return HTTPResponse{200, R"({"code":"c","browser_url":"b","expires_at":"e"})"};
    });
    for (const Case& c : cases) {
        c.call();
        SCOPED_TRACE(c.request.toStdString());
        EXPECT_EQ(sent().method + " " + sent().url.toString().toUtf8(),
                  c.request.toUtf8().replace(" ", " http://127.0.0.1:4041"));
        EXPECT_EQ(sent().headers, c.headers);
        EXPECT_EQ(sent().body, c.body);
        // Only the version check has the short limit.
        EXPECT_EQ(sent().timeout, std::chrono::seconds(c.headers.empty() ? 5 : 60));
    }
}

TEST_F(BridgeAPIClientTest, EndpointJoiningAndQueryEscaping) {
    const BridgeAPIClient slashes(QUrl("http://127.0.0.1:4041///"), session);
    EXPECT_EQ(slashes.endpoint(u"/api/config")->toString(), "http://127.0.0.1:4041/api/config");
    const BridgeAPIClient sub(QUrl("https://10.0.0.5/sub/"), session);
    EXPECT_EQ(sub.endpoint(u"api/health")->toString(), "https://10.0.0.5/sub/api/health");

    answer(200, R"({"status":"pending"})");
    finish(client.pollPairingStatus("a b+c&d=é"));
    EXPECT_EQ(sent().url.toEncoded(),
              "http://127.0.0.1:4041/api/bridge/pairing/status?code=a%20b%2Bc%26d%3D%C3%A9");
    EXPECT_EQ(sub.showUpdatesWebSocketURL("t&k").toEncoded(),
              "wss://10.0.0.5/sub/ws/show-updates?role=runtime&token=t%26k");
    EXPECT_EQ(client.showUpdatesWebSocketURL("tok").toEncoded(),
              "ws://127.0.0.1:4041/ws/show-updates?role=runtime&token=tok");
}

TEST_F(BridgeAPIClientTest, StatusHandling) {
    const auto failure = [](const std::function<void()>& call) -> std::string {
        try {
            call();
        } catch (const BridgeAPIError& error) {
            return error.what();
        }
        return "none";
    };
    const std::string invalid = "Invalid response from server";
    answer(204, "");
    EXPECT_EQ(failure([&] { finish(client.patchControlState({{"mode", "x"}}, token)); }), "none");
    for (int status : {300, 401, 403, 500}) {
        answer(status, R"({"status":"complete"})");
        EXPECT_EQ(failure([&] { finish(client.disconnect(token)); }),
                  "Server returned HTTP " + std::to_string(status));
    }
    // Show bodies are passed on whole, but must be objects.
    const std::string tooDeep =
        "{\"a\":" + std::string(100000, '[') + std::string(100000, ']') + "}";
    for (const std::string& body :
         {std::string("[]"), std::string("not json"), std::string(), tooDeep}) {
        answer(200, QByteArray::fromStdString(body));
        EXPECT_EQ(failure([&] { finish(client.fetchShow("s", token)); }), invalid) << body;
    }
    session->setResponder([](const HTTPRequest&) { return HTTPResponse{std::nullopt, "{}"}; });
    EXPECT_EQ(failure([&] { finish(client.fetchConfig(token)); }), invalid) << "no HTTP answer";
    const BridgeAPIClient broken(QUrl("no scheme at all"), session);
    session->requests.clear();
    EXPECT_EQ(failure([&] { finish(broken.fetchConfig(token)); }), invalid);
    EXPECT_TRUE(session->requests.empty()) << "an unusable address sends nothing";
}

TEST_F(BridgeAPIClientTest, RecordsDecodeRequiredAndOptionalKeys) {
    answer(200, R"({"status":"complete","org_id":"o","show_id":null})");
    EXPECT_EQ(finish(client.pollPairingStatus("c")),
              (PairingStatusResponse{.status = "complete", .orgId = "o"}));
    answer(200, R"({"display_name":"Ann","is_bridge":true,"device_name":"Rig"})");
    EXPECT_EQ(finish(client.fetchSessionInfo(token)),
              (BridgeSessionInfo{.displayName = "Ann", .deviceName = "Rig", .isBridge = true}));

    const std::pair<const char*, std::function<void()>> broken[] = {
        {R"({"code":"c","browser_url":"b"})", [&] { finish(client.startPairing()); }},
        {R"({"device_token":"t"})", [&] { finish(client.pollPairingStatus("c")); }},
        {R"({"is_bridge":"yes"})", [&] { finish(client.fetchSessionInfo(token)); }},
        {R"({"api_version":"r"})", [&] { finish(client.fetchAPIVersion()); }},
    };
    for (const auto& [body, call] : broken) {
        answer(200, body);
        EXPECT_THROW(call(), ResponseDecodingError) << body;
    }
}

} // namespace
} // namespace kelvo
