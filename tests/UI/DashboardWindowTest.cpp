#include "UI/DashboardRig.h"

#include <gtest/gtest.h>

#include <QKeyEvent>
#include <QQmlComponent>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <cstdlib>

namespace kelvo::test {
namespace {

class DashboardWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        dashboard.seedWorkspace();
        dashboard.open();
        ASSERT_TRUE(dashboard.shown);
    }

    /// A key as the platform delivers it to the window: with its native scan code.
    void sendKey(QEvent::Type type, quint32 scanCode, Qt::Key key, bool autoRepeat = false) {
        QKeyEvent event(type, key, Qt::NoModifier, scanCode, 0, 0, QString(), autoRepeat);
        QCoreApplication::sendEvent(dashboard.window(), &event);
    }
    bool held() { return dashboard.model().isDropHeld(); }

    DashboardRig dashboard;
};

TEST_F(DashboardWindowTest, TilesFollowTheModelAndPicksReachIt) {
    EXPECT_EQ(dashboard.window()->title(), TarrowApp::windowTitle);
    QQuickItem* pulse = dashboard.item("mode_m1");
    QQuickItem* chase = dashboard.item("mode_m2");
    ASSERT_TRUE(pulse && chase);
    EXPECT_TRUE(pulse->property("chosen").toBool()) << "the restored workspace";
    QMetaObject::invokeMethod(chase, "clicked");
    EXPECT_EQ(dashboard.model().selectedModeId(), "m2");
    EXPECT_TRUE(chase->property("chosen").toBool());
    EXPECT_FALSE(pulse->property("chosen").toBool());
    dashboard.model().setStatusMessage("Audio input unavailable");
    EXPECT_EQ(dashboard.item("statusMessage")->property("text"), "Audio input unavailable");
}

TEST_F(DashboardWindowTest, HoldTileHoldsTheDropWhilePressed) {
    QQuickItem* hold = dashboard.item("holdToForceDrop");
    ASSERT_NE(hold, nullptr);
    const QPoint centre =
        hold->mapToScene(QPointF(hold->width() / 2, hold->height() / 2)).toPoint();
    QTest::mousePress(dashboard.window(), Qt::LeftButton, Qt::NoModifier, centre);
    EXPECT_TRUE(held());
    QTest::mouseRelease(dashboard.window(), Qt::LeftButton, Qt::NoModifier, centre);
    EXPECT_FALSE(held());
}

TEST_F(DashboardWindowTest, DropKeysHoldByPositionUnlessTyping) {
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
    QQmlComponent component(&dashboard.app->engine());
    component.setData("import QtQuick.Controls\nTextField {}", QUrl());
    std::unique_ptr<QQuickItem> field(qobject_cast<QQuickItem*>(component.create()));
    ASSERT_NE(field, nullptr) << component.errorString().toStdString();
    field->setParentItem(dashboard.window()->contentItem());
    field->forceActiveFocus();
    QTest::keyClick(dashboard.window(), Qt::Key_G, Qt::NoModifier);
    sendKey(QEvent::KeyPress, DropKeyboardHold::keyI, Qt::Key_I);
    EXPECT_FALSE(held());
    EXPECT_EQ(field->property("text").toString(), "g");
}

TEST_F(DashboardWindowTest, LosingTheKeyboardReleasesAHeldKey) {
    dashboard.window()->requestActivate();
    ASSERT_TRUE(pumpUntil([&] { return QGuiApplication::focusWindow() == dashboard.window(); }));
    sendKey(QEvent::KeyPress, DropKeyboardHold::keyJ, Qt::Key_J);
    ASSERT_TRUE(held());
    QWindow elsewhere;
    elsewhere.resize(100, 100);
    elsewhere.show();
    elsewhere.requestActivate();
    EXPECT_TRUE(pumpUntil([&] { return !held(); })) << "the drop must not stay stuck";
}

TEST_F(DashboardWindowTest, ClosingTheWindowQuitsWithCaptureStopped) {
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
