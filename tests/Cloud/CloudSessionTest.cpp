#include "Cloud/CloudSession.h"

#include "Cloud/BridgeAPIError.h"
#include "Cloud/BridgeSettings.h"
#include "Cloud/CloudScheduler.h"
#include "Cloud/FakeURLSession.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using namespace std::chrono_literals;
using test::FakeURLSession;

const QUrl server("http://127.0.0.1:4041");

/// A clock that moves by each sleep's length. Sleeps wait for `wake()`, or pass at once with
/// `autoAdvance`.
struct ManualScheduler final : CloudScheduler {
    Clock::time_point now() const override { return now_; }

    QCoro::Task<> sleep(std::chrono::milliseconds duration, CancellationToken cancel) override {
        sleeps.push_back(duration);
        now_ += duration;
        if (autoAdvance)
            co_return;
        auto pending = std::make_shared<OneShotEvent>();
        pending_.push_back(pending);
        const auto subscription = cancel.onCancel([pending] { pending->fire(); });
        co_await *pending;
    }

    /// Ends the earliest sleep still waiting; false if none.
    bool wake() {
        std::erase_if(pending_, [](const auto& pending) { return pending->hasFired(); });
        if (!pending_.empty())
            pending_.front()->fire();
        return !pending_.empty();
    }

    std::vector<std::chrono::milliseconds> sleeps;
    bool autoAdvance = false;
    Clock::time_point now_{std::chrono::hours(1)};
    std::deque<std::shared_ptr<OneShotEvent>> pending_;
};

/// The cloud as the fake transport plays it; each path answers from its entry.
struct ScriptedCloud {
    std::optional<HTTPResponse> answer(const HTTPRequest& request) {
        const QString path = request.url.path();
        if (down)
            throw TransportError("Connection refused");
        if (path.endsWith("pairing/start"))
            return start;
        if (path.endsWith("pairing/status")) // the last one repeats
            return HTTPResponse{200, statuses[std::min(polls++, statuses.size() - 1)]};
        if (path.endsWith("runtime/bootstrap"))
            return bootstrap;
        return HTTPResponse{200, R"({"display_name":"Front of house"})"};
    }
    bool down = false;
    std::optional<HTTPResponse> start = HTTPResponse{
        200, R"({"code":"K-1","browser_url":"http://127.0.0.1:4041/pair/K-1","expires_at":"x"})"};
    std::size_t polls = 0;
    std::vector<QByteArray> statuses = {R"({"status":"pending"})",
                                        R"({"status":"complete","device_token":"dev-tok"})"};
    std::optional<HTTPResponse> bootstrap = HTTPResponse{200, "{}"};
};

class CloudSessionTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::qtApplication();
        http->setResponder([this](const HTTPRequest& request) { return cloud.answer(request); });
        CloudSessionEnvironment environment;
        environment.serverURL = server;
        environment.http = http;
        environment.tokens = &tokens;
        environment.scheduler = scheduler;
        environment.hasOfflineWorkspace = [this] { return offline; };
        environment.fetchShowAndHarness = [this](std::string token, CancellationToken cancel) {
            return download(BridgeAPIClient(server, http), std::move(token), std::move(cancel));
        };
        session = std::make_unique<CloudSession>(std::move(environment));
        QObject::connect(session.get(), &CloudSession::statusReported,
                         [this](const QString& text) { messages.push_back(text.toStdString()); });
        QObject::connect(session.get(), &CloudSession::pairingPageReady,
                         [this](const QUrl& url) { pages.push_back(url.toString()); });
        QObject::connect(session.get(), &CloudSession::signedOut, [this] { ++signOuts; });
    }

    static QCoro::Task<> download(BridgeAPIClient client, std::string token,
                                  CancellationToken cancel) {
        QCoro::Task<QByteArray> fetch = client.fetchRuntimeBootstrap(token, cancel);
        co_await std::move(fetch);
    }

    std::shared_ptr<FakeURLSession> http = std::make_shared<FakeURLSession>();
    std::shared_ptr<ManualScheduler> scheduler = std::make_shared<ManualScheduler>();
    QTemporaryDir temp;
    BridgeSettings tokens{
        std::make_unique<QSettings>(temp.filePath("s.conf"), QSettings::IniFormat),
        QUrl("https://cloud.example")};
    ScriptedCloud cloud;
    bool offline = true;
    std::vector<std::string> messages;
    std::vector<QString> pages;
    int signOuts = 0;
    std::unique_ptr<CloudSession> session;
};

TEST_F(CloudSessionTest, PairingStoresTheTokenAndConnects) {
    session->startPairing();
    EXPECT_EQ(session->connectionStatus(), ConnectionStatus::pairing);
    EXPECT_EQ(scheduler->sleeps, std::vector{2000ms}) << "one pending poll, then 2 s";
    ASSERT_TRUE(scheduler->wake());
    EXPECT_EQ(session->connectionStatus(), ConnectionStatus::connected);
    EXPECT_EQ(tokens.authToken(server), "dev-tok");
    EXPECT_EQ(pages, std::vector<QString>{"http://127.0.0.1:4041/pair/K-1"});
    EXPECT_EQ(messages, (std::vector<std::string>{"Approve this bridge in your browser to sync…",
                                                  "Approve this bridge in your browser…",
                                                  "Paired — fetching show…", ""}));
    EXPECT_EQ(session->sessionInfo()->displayName, "Front of house");
}

TEST_F(CloudSessionTest, PairingFailuresTellWhy) {
    const auto started = ScriptedCloud().start;
    const std::tuple<bool, QByteArray, std::optional<HTTPResponse>, std::string> cases[] = {
        {true, R"({"status":"pending"})", started,
         "Login failed: Pairing code expired. Still running from cache."},
        {false, R"({"status":"complete"})", started,
         "Link failed: Server did not return a device token"},
        {false, R"({"status":"unknown"})", started, "Link failed: Pairing code unknown"},
        {false, R"({"status":"expired"})", started, "Link failed: Pairing code expired"},
        {true, "", HTTPResponse{500, ""},
         "Login failed: Server returned HTTP 500. Still running from cache."},
    };
    scheduler->autoAdvance = true;
    for (const auto& [withCache, status, start, message] : cases) {
        offline = withCache;
        cloud.statuses = {status};
        cloud.polls = 0;
        cloud.start = start;
        http->requests.clear();
        session->startPairing();
        EXPECT_EQ(messages.back(), message);
        EXPECT_EQ(tokens.authToken(server), std::nullopt) << message;
    }
    // Pending throughout: polled every 2 s until the 600 s are up.
    EXPECT_EQ(http->countPath("pairing/status"), 0u) << "the start failed";
    cloud.statuses = {R"({"status":"pending"})"};
    cloud.start = started;
    session->startPairing();
    EXPECT_EQ(http->countPath("pairing/status"), 300u);
}

TEST_F(CloudSessionTest, StartingPairingAgainCancelsTheFirst) {
    cloud.start.reset(); // held until released
    session->startPairing();
    messages.clear();
    session->startPairing();
    EXPECT_EQ(messages.front(), "Login cancelled — still running from cache.");
    EXPECT_EQ(http->heldCount(), 1u) << "the first request was aborted";
    session->cancelPairing();
    EXPECT_EQ(http->heldCount(), 0u);
}

TEST_F(CloudSessionTest, AutoConnectRetriesOnItsScheduleUntilTheCloudAnswers) {
    tokens.saveAuthToken("dev-tok", server);
    cloud.down = true;
    session->autoConnect();
    EXPECT_EQ(session->connectionStatus(), ConnectionStatus::reconnecting);
    for (int i = 0; i < 7; ++i)
        ASSERT_TRUE(scheduler->wake());
    const std::string prefix = "Couldn’t reach cloud — running from cache. Retrying in ";
    std::vector<std::string> expected = {"Updating from cloud…"};
    for (const char* delay : {"1", "2", "4", "8", "16", "30", "30", "30"})
        expected.push_back(prefix + delay + "s…");
    EXPECT_EQ(messages, expected);

    offline = false;
    messages.clear();
    scheduler->wake();
    EXPECT_EQ(messages.back(), "Couldn’t connect: Connection refused. Retrying in 30s…");

    cloud.down = false;
    scheduler->wake();
    EXPECT_EQ(session->connectionStatus(), ConnectionStatus::connected);
    EXPECT_EQ(messages.back(), "");
}

TEST_F(CloudSessionTest, RefusedTokenIsForgotten) {
    const std::tuple<int, bool, const char*> cases[] = {
        {401, false, "Session expired — link to cloud again."},
        {403, true, "Session expired — log in from Connections to sync again."}};
    for (const auto& [status, withCache, text] : cases) {
        offline = withCache;
        tokens.saveAuthToken("old", server);
        cloud.bootstrap = HTTPResponse{status, ""};
        session->autoConnect();
        EXPECT_EQ(messages.back(), text);
        EXPECT_EQ(tokens.authToken(server), std::nullopt);
    }
    session->autoConnect();
    EXPECT_EQ(messages.back(), "You’re offline — log in from Connections when you can.");
}

TEST_F(CloudSessionTest, HeartbeatThenSignOutForgetsTheToken) {
    tokens.saveAuthToken("dev-tok", server);
    session->autoConnect();
    ASSERT_EQ(session->connectionStatus(), ConnectionStatus::connected);
    const std::size_t before = http->countPath("auth/me");
    ASSERT_TRUE(scheduler->wake());
    EXPECT_EQ(scheduler->sleeps.back(), 30s);
    EXPECT_EQ(http->countPath("auth/me"), before + 1) << "the heartbeat refreshes the session";

    session->reauthenticate();
    EXPECT_EQ(http->requests.back().url.path(), "/api/bridge/disconnect");
    EXPECT_EQ(http->requests.back().headers.front().second, "Bearer dev-tok");
    EXPECT_EQ(tokens.authToken(server), std::nullopt);
    EXPECT_EQ(session->connectionStatus(), ConnectionStatus::disconnected);
    EXPECT_FALSE(session->isHeartbeatRunning());
    EXPECT_EQ(signOuts, 1);
}

TEST_F(CloudSessionTest, GoingAwayMidFlowIsSafe) {
    tokens.saveAuthToken("dev-tok", server);
    cloud.bootstrap.reset(); // the download hangs
    session->autoConnect();
    session->startPairing();
    session.reset();
    test::pumpFor(20ms);
    EXPECT_EQ(http->heldCount(), 0u);
}

} // namespace
} // namespace kelvo
