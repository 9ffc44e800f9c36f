#include "Cloud/FakeURLSession.h"
#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

/// The model on the recording harness with a cached show that carries an interpretation, and a
/// cloud transport that answers every request at once.
class AppModelInterpretationTest : public testing::Test, protected test::AppModelRig {
protected:
    void SetUp() override {
        test::qtApplication();
        seedCache(false);
        makeCache()->saveShowSnapshot(R"({"name": "Cached", "result": {"dmx": {"1": [1]}},
            "interpretationTree": {"mode": "party", "children": [{"kind": "group",
            "label": "Pars", "children": [{"kind": "interpreter", "label": "Chase",
            "fixtures": ["p1"]}]}]}})");
        serverURL = QUrl("http://127.0.0.1:9");
        http = session;
        model = makeModel();
        model->bootstrap();
        QObject::connect(model.get(), &AppModel::interpretationTreeChanged,
                         [this] { ++treeNotifications; });
    }

    void push(const char* message) { model->showUpdatesChannel()->handleFrame(message); }
    std::vector<nlohmann::json> forcedDrops() {
        return test::loggedCalls(model->engine(), "setForcedDrop");
    }

    std::shared_ptr<test::FakeURLSession> session = std::make_shared<test::FakeURLSession>();
    std::unique_ptr<AppModel> model;
    int treeNotifications = 0;
};

// Publishing and the screen's tree against a real cloud are tests/integration/cloud's; here,
// what the bridge does unlinked, the redraws, and the venue's hold.
TEST_F(
    AppModelInterpretationTest,
    AnUnlinkedBridgeShiftsAndDrawsTheTreeOnceNeitherPublishingNorSwitchingShowsAndKeepsTheVenuesHold) {
    model->setInterpretationScreenVisible(true);
    // Every payload differs (it carries a time), the tree does not: no redraw.
    for (int i = 0; i < 10; ++i)
        model->tick();
    EXPECT_EQ(treeNotifications, 1);
    EXPECT_EQ(model->property("interpretation").toMap().value("modeId"), "party");

    push(R"({"type":"shift_lighting_only"})");
    model->shiftLightingInterpretation();
    EXPECT_EQ(test::loggedCalls(model->engine(), "shiftLighting").size(), 2u);
    EXPECT_EQ(session->countPath(QStringLiteral("api/runtime/interpretation-tree")), 0u);

    model->selectShow(QStringLiteral("show-2"));
    EXPECT_EQ(model->statusMessage(),
              "Couldn’t switch show: this bridge is not linked to the cloud");
    EXPECT_FALSE(model->isSwitchingShow());

    // A cloud drop never overrides a hold at the venue.
    model->beginForcedDrop(DropHoldSource::keyboard);
    const std::size_t held = forcedDrops().size();
    push(R"({"type":"force_drop","data":{"active":false}})");
    EXPECT_EQ(forcedDrops().size(), held);
    model->endForcedDrop(DropHoldSource::keyboard);
    push(R"({"type":"force_drop","data":{"active":true}})");
    EXPECT_EQ(forcedDrops().back(), true);
}

TEST_F(AppModelInterpretationTest, AReloadOverlappingALocalShowPickNeverBringsTheOldShowBack) {
    model->settings().saveAuthToken("kdt", serverURL);
    const QString reload = QStringLiteral("api/runtime/active-show");
    const QByteArray oldShow = R"({"active_show": {"summary": {"id": "show-1"}, "result": {}}})";
    bool holdReload = true; // else the activation is held
    session->setResponder([&](const HTTPRequest& request) -> std::optional<HTTPResponse> {
        if (request.url.path().endsWith(reload))
            return holdReload ? std::nullopt : std::optional(HTTPResponse{200, oldShow});
        if (request.url.path().endsWith("/activate") && !holdReload)
            return std::nullopt;
        return HTTPResponse{200, "{}"};
    });
    const auto reloadNumber = [&](std::size_t n) {
        push(R"({"type":"show_changed","data":{}})");
        return test::pumpUntil([&] { return session->countPath(reload) == n; });
    };
    // Asked before the pick, answered once the pick went through.
    ASSERT_TRUE(reloadNumber(1));
    model->selectShow(QStringLiteral("show-2"));
    ASSERT_TRUE(test::pumpUntil([&] { return !model->isSwitchingShow(); }));
    session->releaseHeld(HTTPResponse{200, oldShow});
    test::pumpFor(std::chrono::milliseconds(50));
    EXPECT_EQ(model->selectedShowId(), "show-2");
    // Asked during the pick, answered before the cloud confirmed it.
    holdReload = false;
    model->selectShow(QStringLiteral("show-3"));
    ASSERT_TRUE(reloadNumber(2));
    test::pumpFor(std::chrono::milliseconds(50));
    EXPECT_EQ(model->selectedShowId(), "show-2");
    session->releaseHeld(HTTPResponse{200, "{}"});
    ASSERT_TRUE(test::pumpUntil([&] { return model->selectedShowId() == "show-3"; }));
}

} // namespace
} // namespace kelvo
