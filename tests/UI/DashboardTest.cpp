#include "UI/DashboardRig.h"

#include <gtest/gtest.h>

#include <QKeyEvent>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <cstdlib>
#include <filesystem>

namespace kelvo::test {
namespace {

// QML binding and script errors, which otherwise only scroll past in the log.
QStringList qmlErrors;
QtMessageHandler previousHandler = nullptr;
void collectQmlErrors(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    if (type != QtDebugMsg && type != QtInfoMsg && text.contains(u".qml"))
        qmlErrors.append(text); // on the main thread, where QML runs
    if (previousHandler)
        previousHandler(type, context, text);
}

class DashboardTest : public ::testing::Test {
protected:
    void SetUp() override {
        previousHandler = qInstallMessageHandler(collectQmlErrors);
        dashboard.seedWorkspace();
        dashboard.open();
        ASSERT_TRUE(dashboard.shown);
        dashboard.window()->resize(1280, 800);
        // A late activation would release a held key mid-test.
        dashboard.window()->requestActivate();
        ASSERT_TRUE(
            pumpUntil([&] { return QGuiApplication::focusWindow() == dashboard.window(); }));
    }
    void TearDown() override {
        qInstallMessageHandler(previousHandler);
        EXPECT_TRUE(qmlErrors.isEmpty()) << qmlErrors.join(u'\n').toStdString();
        qmlErrors.clear();
    }

    /// The screen's root item ("Desk" has "deskScreen") once it shows, or null.
    QQuickItem* showScreen(const char* name) {
        dashboard.window()->setProperty("currentScreen", QString::fromLatin1(name));
        const QByteArray root = QByteArray(name).left(1).toLower() + (name + 1) + "Screen";
        pumpUntil([&] { return dashboard.item(root) != nullptr; });
        pumpFor(std::chrono::milliseconds(50));
        return dashboard.item(root);
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
    /// A key as the platform delivers it to the window: with its native scan code.
    void sendKey(QEvent::Type type, quint32 scanCode, Qt::Key key, bool autoRepeat = false) {
        QKeyEvent event(type, key, Qt::NoModifier, scanCode, 0, 0, QString(), autoRepeat);
        QCoreApplication::sendEvent(dashboard.window(), &event);
    }
    bool held() { return dashboard.model().isDropHeld(); }

    DashboardRig dashboard;
};

TEST_F(DashboardTest, EveryScreenLoadsAndLeavesAScreenshot) {
    ShowPatch patch; // two fixtures sharing channels 5…8
    patch.showId = "s1";
    patch.showName = "Club";
    patch.blueprint = {0, 0, 10, 6, {{2, 1, "Wash"}, {8, 1, "Spots"}}};
    patch.groups = {{"Wash",
                     {{"a", "Wash L", "RGBW Par", 1, 1, 8, "Wash", false, true},
                      {"b", "Wash R", "RGBW Par", 1, 5, 8, "Wash", false, true}}}};
    dashboard.model().recordShowPatch(patch);
    dashboard.model().setDeskLevels({1.0, 0.5, 0.25, 0, 0, 0, 0, 0.75});
    dashboard.model().setDeskLive(true);
    dashboard.model().tick(); // something in the DMX preview
    const auto dir = std::filesystem::path(KELVO_BINARY_DIR) / "artifacts" / "screenshots";
    std::filesystem::create_directories(dir);
    for (const char* screen : {"Live", "Connections", "Desk", "Stage", "Interpretation"}) {
        SCOPED_TRACE(screen);
        ASSERT_NE(showScreen(screen), nullptr);
        const QImage shot = dashboard.window()->grabWindow();
        EXPECT_EQ(shot.size(), QSize(1280, 800) * dashboard.window()->devicePixelRatio());
        const QString file = QString::fromLatin1(screen).toLower() + ".png";
        EXPECT_TRUE(shot.save(QString::fromStdString(dir.string()) + "/" + file));
    }
}

TEST_F(DashboardTest, FadersDriveTheDeskUniverseOnTheWire) {
    AppModel& model = dashboard.model();
    model.replaceRoutes({{1, UniverseRoute::Destination::artnet(3)}});
    model.setArtNetEnabled(true);
    ASSERT_NE(showScreen("Desk"), nullptr);
    click("deskLive");
    click("deskFader1", {0.5, 0.0}); // the top of the travel: full
    click("deskFader3", {0.5, 1.0}); // the bottom: off
    model.tick();
    ASSERT_FALSE(dashboard.rig.transport->sent.empty());
    const auto& packet = dashboard.rig.transport->sent.back().datagram;
    EXPECT_EQ(packet[14], 3) << "Art-Net universe 3";
    EXPECT_GE(packet[18], 250);
    EXPECT_EQ(packet[20], 0);
    click("deskBlackout");
    model.tick();
    EXPECT_EQ(dashboard.rig.transport->sent.back().datagram[18], 0) << "blackout";
}

TEST_F(DashboardTest, TheDropIsHeldByTheTileOrByKeysUnlessTyping) {
    QQuickItem* hold = dashboard.item("holdToForceDrop");
    ASSERT_NE(hold, nullptr);
    const QPoint centre = hold->mapToScene({hold->width() / 2, hold->height() / 2}).toPoint();
    QTest::mousePress(dashboard.window(), Qt::LeftButton, Qt::NoModifier, centre);
    EXPECT_TRUE(held());
    QTest::mouseRelease(dashboard.window(), Qt::LeftButton, Qt::NoModifier, centre);
    EXPECT_FALSE(held());

    // The key in the J position on any layout (here a Z) holds; key repeat's release/press
    // pairs must not make the hold flicker.
    sendKey(QEvent::KeyPress, DropKeyboardHold::keyJ, Qt::Key_Z);
    EXPECT_TRUE(held());
    QSignalSpy heldChanges(&dashboard.model(), &AppModel::isDropHeldChanged);
    sendKey(QEvent::KeyRelease, DropKeyboardHold::keyJ, Qt::Key_Z, true);
    sendKey(QEvent::KeyPress, DropKeyboardHold::keyJ, Qt::Key_Z, true);
    EXPECT_EQ(heldChanges.count(), 0);
    sendKey(QEvent::KeyRelease, DropKeyboardHold::keyJ, Qt::Key_Z);
    EXPECT_FALSE(held());

    // A focused text field gets its letters.
    ASSERT_NE(showScreen("Connections"), nullptr);
    QQuickItem* field = dashboard.item("artnetHost");
    ASSERT_NE(field, nullptr);
    field->forceActiveFocus();
    QTest::keyClick(dashboard.window(), Qt::Key_G, Qt::NoModifier);
    sendKey(QEvent::KeyPress, DropKeyboardHold::keyI, Qt::Key_I);
    EXPECT_FALSE(held());
    EXPECT_TRUE(field->property("text").toString().contains(u'g'));

    // The tile's screen switched away while it is pressed: no release comes, the hold ends.
    ASSERT_NE(showScreen("Live"), nullptr);
    hold = dashboard.item("holdToForceDrop");
    ASSERT_NE(hold, nullptr);
    QTest::mousePress(dashboard.window(), Qt::LeftButton, Qt::NoModifier, centre);
    ASSERT_TRUE(held());
    ASSERT_NE(showScreen("Desk"), nullptr);
    EXPECT_FALSE(held());
    QTest::mouseRelease(dashboard.window(), Qt::LeftButton, Qt::NoModifier, centre);
}

TEST_F(DashboardTest, TheHostFieldAndTheDiagnosticsMenuFollowTheModel) {
    ASSERT_NE(showScreen("Connections"), nullptr);
    QQuickItem* field = dashboard.item("artnetHost");
    ASSERT_NE(field, nullptr);
    // A blank host is not taken, and the field says so; a later change still shows.
    dashboard.model().setArtNetHost("10.0.0.7");
    field->setProperty("text", QString());
    QMetaObject::invokeMethod(field, "editingFinished");
    EXPECT_EQ(field->property("text").toString(), "10.0.0.7");
    dashboard.model().setArtNetHost("10.0.0.9");
    EXPECT_EQ(field->property("text").toString(), "10.0.0.9");

    // The menu's Drop Diagnostics shows its panel from any screen, on Live.
    ASSERT_NE(showScreen("Stage"), nullptr);
    QObject* diagnostics = dashboard.window()->findChild<QObject*>("dropDiagnosticsCommand");
    ASSERT_NE(diagnostics, nullptr);
    QMetaObject::invokeMethod(diagnostics, "triggered");
    EXPECT_EQ(dashboard.window()->property("currentScreen").toString(), "Live");
    EXPECT_TRUE(dashboard.model().showingDropDiagnostics());
    dashboard.model().setShowingDropDiagnostics(false);
}

TEST_F(DashboardTest, LosingTheKeyboardReleasesAHeldKey) {
    sendKey(QEvent::KeyPress, DropKeyboardHold::keyJ, Qt::Key_J);
    ASSERT_TRUE(held());
    QWindow elsewhere;
    elsewhere.resize(100, 100);
    elsewhere.show();
    elsewhere.requestActivate();
    EXPECT_TRUE(pumpUntil([&] { return !held(); })) << "the drop must not stay stuck";
}

TEST_F(DashboardTest, ClosingTheWindowQuitsWithCaptureStopped) {
    ASSERT_TRUE(dashboard.model().mic().isCapturing());
    // The quit runs the real event loop to its end, after which Qt's font caches cannot be torn
    // down again at process exit: it runs in a child that leaves without static destructors.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            QTimer::singleShot(0, dashboard.window(), [&] { dashboard.window()->close(); });
            QTimer::singleShot(10000, [] { QCoreApplication::exit(99); }); // never hang
            const int status = QCoreApplication::exec();
            std::_Exit(status == 0 && !dashboard.model().mic().isCapturing() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace kelvo::test

// The application is taken down before the process exits: Qt's font caches outliving it crash
// in the exit handlers.
int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    kelvo::test::guiApplication();
    const int result = RUN_ALL_TESTS();
    delete QCoreApplication::instance();
    return result;
}
