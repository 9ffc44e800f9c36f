#include "UI/DashboardRig.h"
#include "UI/DashboardTexts.h"

#include <gtest/gtest.h>

#include <QTest>

#include <filesystem>
#include <mutex>

namespace kelvo::test {
namespace {

// QML binding and script errors, which otherwise only scroll past in the log.
std::mutex qmlErrorsLock;
QStringList qmlErrors;
QtMessageHandler previousHandler = nullptr;
void collectQmlErrors(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    if (type != QtDebugMsg && type != QtInfoMsg && text.contains(u".qml")) {
        std::scoped_lock lock(qmlErrorsLock);
        qmlErrors.append(text);
    }
    if (previousHandler)
        previousHandler(type, context, text);
}

class PanelScreensTest : public ::testing::Test {
protected:
    void SetUp() override {
        previousHandler = qInstallMessageHandler(collectQmlErrors);
        dashboard.seedWorkspace();
        dashboard.open();
        ASSERT_TRUE(dashboard.shown);
        dashboard.window()->resize(1280, 800);
    }
    void TearDown() override {
        qInstallMessageHandler(previousHandler);
        std::scoped_lock lock(qmlErrorsLock);
        EXPECT_TRUE(qmlErrors.isEmpty()) << qmlErrors.join(u'\n').toStdString();
        qmlErrors.clear();
    }

    QQuickItem* showScreen(const char* name, const char* rootObjectName) {
        dashboard.window()->setProperty("currentScreen", QString::fromLatin1(name));
        QQuickItem* root = nullptr;
        pumpUntil(
            [&] {
                root = dashboard.item(rootObjectName);
                return root != nullptr;
            },
            std::chrono::seconds(5));
        pumpFor(std::chrono::milliseconds(50));
        return root;
    }
    /// A left click in the middle of the item, or at `where` (0…1 of its size).
    void click(QQuickItem* item, QPointF where = {0.5, 0.5}) {
        ASSERT_NE(item, nullptr);
        const QPointF local(item->width() * where.x(), item->height() * where.y());
        QTest::mouseClick(dashboard.window(), Qt::LeftButton, {},
                          item->mapToScene(local).toPoint());
        pumpFor(std::chrono::milliseconds(20));
    }
    bool visible(const char* objectName) {
        QQuickItem* found = dashboard.item(objectName);
        return found && found->isVisible();
    }
    QString text(const char* objectName) {
        QQuickItem* found = dashboard.item(objectName);
        return found ? found->property("text").toString() : QStringLiteral("<missing>");
    }

    DashboardRig dashboard;
};

void visibleItemsNamed(QQuickItem* from, QStringView name, std::vector<QQuickItem*>& found) {
    if (!from->isVisible())
        return;
    if (from->objectName() == name)
        found.push_back(from);
    for (QQuickItem* child : from->childItems())
        visibleItemsNamed(child, name, found);
}

/// Two fixtures sharing channels 5…8 on universe 1, a third alone on universe 2.
ShowPatch overlappingPatch() {
    ShowPatch patch;
    patch.showId = "s1";
    patch.showName = "Club";
    patch.revision = 3;
    patch.blueprint = {0, 0, 10, 6, {{2, 1, "Wash"}, {8, 1, "Spots"}, {5, 5, "Floor"}}};
    patch.groups = {
        {"Wash",
         {{"a", "Wash L", "RGBW Par", 1, 1, 8, "Wash", false, true},
          {"b", "Wash R", "RGBW Par", 1, 5, 8, "Wash", false, true}}},
        {"Spots", {{"c", "Spot 1", "Moving head", 2, 1, 16, "Spots", false, false}}},
        {std::nullopt, {{"d", "Hazer", "Hazer", 2, 100, 2, std::nullopt, true, false}}}};
    return patch;
}

TEST_F(PanelScreensTest, EveryScreenLoadsAndLeavesAScreenshot) {
    dashboard.model().recordShowPatch(overlappingPatch());
    dashboard.model().setDeskLevels({1.0, 0.5, 0.25, 0, 0, 0, 0, 0.75});
    dashboard.model().setDeskLive(true);
    const std::filesystem::path dir =
        std::filesystem::path(KELVO_BINARY_DIR) / "artifacts" / "screenshots";
    std::filesystem::create_directories(dir);
    const struct {
        const char* screen;
        const char* root;
        const char* file;
    } screens[] = {{"Live", "liveScreen", "live.png"},
                   {"Connections", "connectionsScreen", "connections.png"},
                   {"Desk", "deskScreen", "desk.png"},
                   {"Stage", "stageScreen", "stage.png"},
                   {"Interpretation", "interpretationScreen", "interpretation.png"}};
    dashboard.model().tick(); // something in the DMX preview
    for (const auto& s : screens) {
        SCOPED_TRACE(s.screen);
        ASSERT_NE(showScreen(s.screen, s.root), nullptr);
        const QImage shot = dashboard.window()->grabWindow();
        ASSERT_FALSE(shot.isNull());
        EXPECT_EQ(shot.size(), QSize(1280, 800) * dashboard.window()->devicePixelRatio());
        EXPECT_TRUE(shot.save(QString::fromStdString((dir / s.file).string())));
    }
}

TEST_F(PanelScreensTest, FadersDriveTheDeskUniverseOnTheWire) {
    AppModel& model = dashboard.model();
    model.replaceRoutes({{1, UniverseRoute::Destination::artnet(3)}});
    model.setArtNetEnabled(true);
    ASSERT_NE(showScreen("Desk", "deskScreen"), nullptr);
    EXPECT_EQ(text("deskRouteLine"),
              "Idle · virtual universe 1 → Art-Net 3 (enable Live to take over)");

    click(dashboard.item("deskLive"));
    ASSERT_TRUE(model.deskLive());
    EXPECT_EQ(text("deskRouteLine"), "Live · virtual universe 1 → Art-Net 3");
    click(dashboard.item("deskFader1"), {0.5, 0.0}); // the top of the travel: full
    click(dashboard.item("deskFader3"), {0.5, 1.0}); // the bottom: off
    ASSERT_GE(model.deskLevels().size(), 3);
    EXPECT_GT(model.deskLevels()[0], 0.95);
    EXPECT_EQ(model.deskLevels()[2], 0.0);

    model.tick();
    ASSERT_FALSE(dashboard.rig.transport->sent.empty());
    const auto& packet = dashboard.rig.transport->sent.back();
    ASSERT_EQ(packet.datagram.size(), 18u + 512u);
    EXPECT_EQ(packet.datagram[14], 3) << "Art-Net universe 3";
    EXPECT_GE(packet.datagram[18], 250);
    EXPECT_EQ(packet.datagram[20], 0);

    click(dashboard.item("deskBlackout"));
    model.tick();
    EXPECT_EQ(dashboard.rig.transport->sent.back().datagram[18], 0) << "blackout";
}

TEST_F(PanelScreensTest, RouteEditorEditsAreSavedAndSurviveARestart) {
    AppModel& model = dashboard.model();
    model.replaceRoutes({{1, UniverseRoute::Destination::enttec()}});
    ASSERT_NE(showScreen("Desk", "deskScreen"), nullptr);
    click(dashboard.item("routeAdd"));
    ASSERT_EQ(model.routes().size(), 2u);
    EXPECT_EQ(model.routes()[1], (UniverseRoute{2, UniverseRoute::Destination::unmapped()}));

    // The editor's own calls, as its controls make them; bad ones change nothing.
    QMetaObject::invokeMethod(&model, "setRoute", Q_ARG(qint64, 2), Q_ARG(QString, "artnet"),
                              Q_ARG(qint64, 7));
    QMetaObject::invokeMethod(&model, "setRoute", Q_ARG(qint64, 1), Q_ARG(QString, "artnet"),
                              Q_ARG(qint64, 40000));
    QMetaObject::invokeMethod(&model, "setRoute", Q_ARG(qint64, 0), Q_ARG(QString, "enttec"),
                              Q_ARG(qint64, 0));
    QMetaObject::invokeMethod(&model, "setRoute", Q_ARG(qint64, 1), Q_ARG(QString, "dmx"),
                              Q_ARG(qint64, 0));
    pumpFor(std::chrono::milliseconds(20));
    EXPECT_TRUE(visible("routeArtNetUniverse2"));
    click(dashboard.item("routeRemove1"));
    const std::vector<UniverseRoute> expected = {{2, UniverseRoute::Destination::artnet(7)}};
    EXPECT_EQ(model.routes(), expected);
    EXPECT_EQ(model.outputSettingsStore().loadRoutes(), expected);
    EXPECT_EQ(dashboard.rig.makeModel()->outputSettingsStore().loadRoutes(), expected)
        << "read back at the next start";
}

TEST_F(PanelScreensTest, ArtNetTileFollowsTheDiagnosisAndItsFixButtonRepairs) {
    AppModel& model = dashboard.model();
    ASSERT_NE(showScreen("Connections", "connectionsScreen"), nullptr);
    EXPECT_EQ(text("artnetHealthDetail"), "Art-Net output is off. Nothing is being sent.");
    EXPECT_FALSE(visible("artnetFixButton"));

    model.replaceRoutes({{1, UniverseRoute::Destination::artnet(0)}});
    model.setArtNetHost("10.0.0.5");
    model.setArtNetAutoFix(false);
    click(dashboard.item("artnetSwitch"));
    ASSERT_TRUE(model.artnetEnabled());
    dashboard.rig.transportStatus.packetsSent += 120;
    dashboard.rig.discovery->state.heardAnyTraffic = true;
    dashboard.rig.discovery->state.nodes = ArtNetNodeList({artnetNode("10.0.0.9", {0}, {0})});
    model.refreshArtNetHealth();
    pumpFor(std::chrono::milliseconds(20));
    EXPECT_EQ(text("artnetHealthHeadline"), "10.0.0.5 not responding");
    EXPECT_EQ(text("artnetHealthDetail"), QString::fromStdString(model.artnetHealth().detail()));
    ASSERT_TRUE(visible("artnetFixButton"));
    EXPECT_EQ(text("artnetFixButton"), "Point Art-Net output at 10.0.0.9");

    click(dashboard.item("artnetFixButton"));
    EXPECT_EQ(model.artnetHost(), "10.0.0.9");
    EXPECT_EQ(text("artnetHost"), "10.0.0.9");
    EXPECT_EQ(text("artnetLastAutoFix"), "Point Art-Net output at 10.0.0.9");
}

TEST_F(PanelScreensTest, EnttecDescriptionFollowsItsSwitch) {
    ASSERT_NE(showScreen("Connections", "connectionsScreen"), nullptr);
    EXPECT_EQ(text("enttecDescription"), DashboardTexts::enttecOnDescription());
    click(dashboard.item("enttecSwitch"));
    EXPECT_FALSE(dashboard.model().enttecEnabled());
    EXPECT_EQ(text("enttecDescription"), "Enttec device scanning and serial output are disabled.");
}

TEST_F(PanelScreensTest, PatchMarksEveryOverlappingFixture) {
    dashboard.model().recordShowPatch(overlappingPatch());
    ASSERT_NE(showScreen("Stage", "stageScreen"), nullptr);
    std::vector<QQuickItem*> marks;
    visibleItemsNamed(dashboard.window()->contentItem(), u"patchOverlapMark", marks);
    ASSERT_EQ(marks.size(), 2u);
    for (QQuickItem* mark : marks)
        EXPECT_EQ(mark->property("text").toString(),
                  "⚠ Address range overlaps another fixture on this universe");
    EXPECT_EQ(text("patchSummary"), "4 fixtures · 2 overlapping");
}

} // namespace
} // namespace kelvo::test
