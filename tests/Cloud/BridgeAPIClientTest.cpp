#include "Cloud/BridgeAPIClient.h"

#include "Cloud/BridgeAPIError.h"
#include "Cloud/BridgeServerConfig.h"
#include "Cloud/FakeURLSession.h"
#include "support/QtEventLoop.h"

#include <QUrlQuery>

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
    const Headers bearer = {{"Authorization", "Bearer tok-123"}};
    const Headers bearerJSON = {{"Authorization", "Bearer tok-123"},
                                {"Content-Type", "application/json"}};
    struct Case {
        std::function<void()> call;
        QByteArray method;
        QString url;
        Headers headers = {};
        std::optional<QByteArray> body = std::nullopt;
        int timeoutSeconds = 60;
    };
    const auto run = [](auto task) { finish(std::move(task)); };
    const Case cases[] = {
        {[&] { run(client.fetchAPIVersion()); },
         "GET",
         "http://127.0.0.1:4041/api/health",
         {},
         std::nullopt,
         5},
        {[&] { run(client.startPairing()); },
         "POST",
         "http://127.0.0.1:4041/api/bridge/pairing/start",
         {{"Content-Type", "application/json"}},
         "{}"},
        {[&] { run(client.fetchSessionInfo(token)); }, "GET", "http://127.0.0.1:4041/api/auth/me",
         bearer},
        {[&] { run(client.fetchRuntimeBootstrap(token)); }, "GET",
         "http://127.0.0.1:4041/api/runtime/bootstrap", bearer},
        {[&] { run(client.fetchRuntimeActiveShow(token)); }, "GET",
         "http://127.0.0.1:4041/api/runtime/active-show", bearer},
        {[&] { run(client.fetchConfig(token)); }, "GET", "http://127.0.0.1:4041/api/config",
         bearer},
        {[&] { run(client.fetchShow("show-1", token)); }, "GET",
         "http://127.0.0.1:4041/api/shows/show-1", bearer},
        {[&] { run(client.activateShow("show-1", token)); }, "POST",
         "http://127.0.0.1:4041/api/shows/show-1/activate", bearer},
        {[&] {
             run(client.patchControlState({{"mode", "party"}}, token));
         },
         "PATCH", "http://127.0.0.1:4041/api/control-state", bearerJSON, R"({"mode":"party"})"},
        {[&] { run(client.publishInterpretationTree("[1, 2]", token)); }, "POST",
         "http://127.0.0.1:4041/api/runtime/interpretation-tree", bearerJSON, "[1, 2]"},
        {[&] { run(client.disconnect(token)); }, "POST",
         "http://127.0.0.1:4041/api/bridge/disconnect", bearer},
    };
    session->setResponder([](const HTTPRequest& request) {
        if (request.url.path() == "/api/health")
            return HTTPResponse{200, R"({"api_version":"a","app_download_url":"/d"})"};
        return HTTPResponse{200, R"({"code":"c","browser_url":"b","expires_at":"e"})"};
    });
    for (const Case& c : cases) {
        c.call();
        SCOPED_TRACE(c.url.toStdString());
        EXPECT_EQ(sent().method, c.method);
        EXPECT_EQ(sent().url.toString(), c.url);
        EXPECT_EQ(sent().headers, c.headers);
        EXPECT_EQ(sent().body, c.body);
        EXPECT_EQ(sent().timeout, std::chrono::seconds(c.timeoutSeconds));
    }
}

TEST_F(BridgeAPIClientTest, EndpointJoiningAndPairingQueryEscaping) {
    const BridgeAPIClient slashes(QUrl("http://127.0.0.1:4041///"), session);
    EXPECT_EQ(slashes.endpoint(u"/api/config")->toString(), "http://127.0.0.1:4041/api/config");
    const BridgeAPIClient sub(QUrl("https://10.0.0.5/sub/"), session);
    EXPECT_EQ(sub.endpoint(u"api/health")->toString(), "https://10.0.0.5/sub/api/health");

    answer(200, R"({"status":"pending"})");
    finish(client.pollPairingStatus("a b+c&d=é"));
    EXPECT_EQ(sent().url.toEncoded(),
              "http://127.0.0.1:4041/api/bridge/pairing/status?code=a%20b%2Bc%26d%3D%C3%A9");
    EXPECT_EQ(QUrlQuery(sent().url).queryItemValue("code", QUrl::FullyDecoded), "a b+c&d=é");
}

TEST_F(BridgeAPIClientTest, StatusHandling) {
    answer(204, "");
    EXPECT_NO_THROW(finish(client.patchControlState({{"mode", "x"}}, token)));
    EXPECT_NO_THROW(finish(client.disconnect(token)));
    for (int status : {300, 401, 403, 500}) {
        answer(status, R"({"status":"complete"})");
        try {
            finish(client.disconnect(token));
            ADD_FAILURE() << status;
        } catch (const BridgeAPIError& error) {
            EXPECT_EQ(error.kind(), BridgeAPIError::Kind::httpError);
            EXPECT_EQ(error.what(), "Server returned HTTP " + std::to_string(status));
        }
    }
    session->setResponder([](const HTTPRequest&) { return HTTPResponse{std::nullopt, "{}"}; });
    EXPECT_THROW(finish(client.fetchConfig(token)), BridgeAPIError) << "not an HTTP answer";
    session->setResponder(
        [](const HTTPRequest&) -> std::optional<HTTPResponse> { throw TransportError("down"); });
    EXPECT_THROW(finish(client.fetchConfig(token)), TransportError) << "passed through";
    const BridgeAPIClient broken(QUrl("no scheme at all"), session);
    session->requests.clear();
    EXPECT_THROW(finish(broken.fetchConfig(token)), BridgeAPIError);
    EXPECT_TRUE(session->requests.empty()) << "an unusable address sends nothing";
}

TEST_F(BridgeAPIClientTest, ShowBodiesMustBeObjects) {
    for (const char* body : {"[]", "not json", ""}) {
        answer(200, body);
        try {
            finish(client.fetchShow("s", token));
            ADD_FAILURE() << body;
        } catch (const BridgeAPIError& error) {
            EXPECT_EQ(error.kind(), BridgeAPIError::Kind::invalidResponse) << body;
        }
    }
    answer(200, R"({"summary":{"id":"s"}})");
    EXPECT_EQ(finish(client.activateShow("s", token))["summary"]["id"], "s");
}

TEST_F(BridgeAPIClientTest, RecordsDecodeRequiredAndOptionalKeys) {
    answer(200, R"({"status":"complete","org_id":"o","show_id":null})");
    EXPECT_EQ(finish(client.pollPairingStatus("c")),
              (PairingStatusResponse{.status = "complete", .orgId = "o"}));
    answer(200, "{}");
    EXPECT_EQ(finish(client.fetchSessionInfo(token)), BridgeSessionInfo{});
    answer(200, R"({"display_name":"Ann","is_bridge":true,"device_name":"Rig"})");
    EXPECT_EQ(finish(client.fetchSessionInfo(token)),
              (BridgeSessionInfo{.displayName = "Ann", .deviceName = "Rig", .isBridge = true}));
    answer(200, R"({"api_version":"r2","app_download_url":"/dl"})");
    EXPECT_EQ(finish(client.fetchAPIVersion()),
              (BridgeAPIVersionResponse{.apiVersion = "r2", .appDownloadURL = "/dl"}));

    const std::pair<const char*, std::function<void()>> broken[] = {
        {R"({"code":"c","browser_url":"b"})", [&] { finish(client.startPairing()); }},
        {R"({"code":1,"browser_url":"b","expires_at":"e"})",
         [&] { finish(client.startPairing()); }},
        {R"({"device_token":"t"})", [&] { finish(client.pollPairingStatus("c")); }},
        {R"({"is_bridge":"yes"})", [&] { finish(client.fetchSessionInfo(token)); }},
        {R"([])", [&] { finish(client.fetchSessionInfo(token)); }},
        {R"({"api_version":"r"})", [&] { finish(client.fetchAPIVersion()); }},
    };
    for (const auto& [body, call] : broken) {
        answer(200, body);
        EXPECT_THROW(call(), ResponseDecodingError) << body;
    }
}

TEST_F(BridgeAPIClientTest, WebSocketAddress) {
    EXPECT_EQ(BridgeAPIClient(QUrl("https://10.0.0.5/sub/"), session)
                  .showUpdatesWebSocketURL("t&k")
                  .toEncoded(),
              "wss://10.0.0.5/sub/ws/show-updates?role=runtime&token=t%26k");
    EXPECT_EQ(client.showUpdatesWebSocketURL("tok").toEncoded(),
              "ws://127.0.0.1:4041/ws/show-updates?role=runtime&token=tok");
}

TEST(BridgeServerConfigEditor, ShowEditorAddress) {
    EXPECT_EQ(BridgeServerConfig::showEditorURL(QUrl("http://127.0.0.1:4041"), "  "), std::nullopt);
    EXPECT_EQ(
        BridgeServerConfig::showEditorURL(QUrl("https://c.example/sub/"), " a b/c ")->toEncoded(),
        "https://c.example/sub/shows/a%20b%2Fc");
}

} // namespace
} // namespace kelvo
