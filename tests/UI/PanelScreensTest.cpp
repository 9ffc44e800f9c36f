#include "UI/DashboardRig.h"

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
        pumpUntil([&] { return dashboard.item(rootObjectName) != nullptr; });
        pumpFor(std::chrono::milliseconds(50));
        return dashboard.item(rootObjectName);
    }
    /// A left click at `where` (0…1 of its size) in the item.
    void click(const char* objectName, QPointF where = {0.5, 0.5}) {
        QQuickItem* item = dashboard.item(objectName);
        ASSERT_NE(item, nullptr) << objectName;
        const QPointF local(item->width() * where.x(), item->height() * where.y());
        QTest::mouseClick(dashboard.window(), Qt::LeftButton, {},
                          item->mapToScene(local).toPoint());
        pumpFor(std::chrono::milliseconds(20));
    }
    QString text(const char* objectName) {
        QQuickItem* found = dashboard.item(objectName);
        return found ? found->property("text").toString() : QStringLiteral("<missing>");
    }

    DashboardRig dashboard;
};

int visibleItemsNamed(QQuickItem* from, QStringView name) {
    if (!from->isVisible())
        return 0;
    int count = from->objectName() == name ? 1 : 0;
    for (QQuickItem* child : from->childItems())
        count += visibleItemsNamed(child, name);
    return count;
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
        int overlapMarks;
    } screens[] = {{"Live", "liveScreen", "live.png", 0},
                   {"Connections", "connectionsScreen", "connections.png", 0},
                   {"Desk", "deskScreen", "desk.png", 0},
                   {"Stage", "stageScreen", "stage.png", 2},
                   {"Interpretation", "interpretationScreen", "interpretation.png", 0}};
    dashboard.model().tick(); // something in the DMX preview
    for (const auto& s : screens) {
        SCOPED_TRACE(s.screen);
        ASSERT_NE(showScreen(s.screen, s.root), nullptr);
        EXPECT_EQ(visibleItemsNamed(dashboard.window()->contentItem(), u"patchOverlapMark"),
                  s.overlapMarks);
        const QImage shot = dashboard.window()->grabWindow();
        EXPECT_EQ(shot.size(), QSize(1280, 800) * dashboard.window()->devicePixelRatio());
        EXPECT_TRUE(shot.save(QString::fromStdString((dir / s.file).string())));
    }
}

TEST_F(PanelScreensTest, FadersDriveTheDeskUniverseOnTheWire) {
    AppModel& model = dashboard.model();
    model.replaceRoutes({{1, UniverseRoute::Destination::artnet(3)}});
    model.setArtNetEnabled(true);
    ASSERT_NE(showScreen("Desk", "deskScreen"), nullptr);
    click("deskLive");
    ASSERT_TRUE(model.deskLive());
    EXPECT_EQ(text("deskRouteLine"), "Live · virtual universe 1 → Art-Net 3");
    click("deskFader1", {0.5, 0.0}); // the top of the travel: full
    click("deskFader3", {0.5, 1.0}); // the bottom: off

    model.tick();
    ASSERT_FALSE(dashboard.rig.transport->sent.empty());
    const auto& packet = dashboard.rig.transport->sent.back().datagram;
    ASSERT_EQ(packet.size(), 18u + 512u);
    EXPECT_EQ(packet[14], 3) << "Art-Net universe 3";
    EXPECT_GE(packet[18], 250);
    EXPECT_EQ(packet[20], 0);

    click("deskBlackout");
    model.tick();
    EXPECT_EQ(dashboard.rig.transport->sent.back().datagram[18], 0) << "blackout";
}

TEST_F(PanelScreensTest, RouteEditorEditsAreSavedAndBadOnesChangeNothing) {
    AppModel& model = dashboard.model();
    model.replaceRoutes({{1, UniverseRoute::Destination::enttec()}});
    ASSERT_NE(showScreen("Desk", "deskScreen"), nullptr);
    click("routeAdd");
    ASSERT_EQ(model.routes().size(), 2u);
    EXPECT_EQ(model.routes()[1], (UniverseRoute{2, UniverseRoute::Destination::unmapped()}));
    const std::tuple<qint64, const char*, qint64> calls[] = {
        {2, "artnet", 7}, {1, "artnet", 40000}, {0, "enttec", 0}, {1, "dmx", 0}};
    for (const auto& [universe, destination, artnet] : calls)
        QMetaObject::invokeMethod(&model, "setRoute", Q_ARG(qint64, universe),
                                  Q_ARG(QString, destination), Q_ARG(qint64, artnet));
    pumpFor(std::chrono::milliseconds(20));
    click("routeRemove1");
    const std::vector<UniverseRoute> expected = {{2, UniverseRoute::Destination::artnet(7)}};
    EXPECT_EQ(model.routes(), expected);
    EXPECT_EQ(model.outputSettingsStore().loadRoutes(), expected);
}

} // namespace
} // namespace kelvo::test
