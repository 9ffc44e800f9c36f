#include "UI/DashboardRig.h"
#include "UI/DashboardTexts.h"

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

    QString text(const char* objectName) {
        QQuickItem* found = dashboard.item(objectName);
        return found ? found->property("text").toString() : QStringLiteral("<missing>");
    }

    /// A key as the platform delivers it to the window: with its native scan code.
    bool sendKey(QEvent::Type type, quint32 scanCode, Qt::Key key,
                 Qt::KeyboardModifiers modifiers = Qt::NoModifier, bool autoRepeat = false) {
        QKeyEvent event(type, key, modifiers, scanCode, 0, 0, QString(), autoRepeat);
        QCoreApplication::sendEvent(dashboard.window(), &event);
        return event.isAccepted();
    }

    DashboardRig dashboard;
};

TEST_F(DashboardWindowTest, LiveTilesShowTheirTextsAndFollowTheModel) {
    EXPECT_EQ(dashboard.window()->title(), TarrowApp::windowTitle);
    EXPECT_GE(dashboard.window()->width(), 1280);
    for (const char* tile :
         {"liveScreen", "microphoneTile", "micTrace", "audioInputPicker", "recordingTile",
          "tempoTile", "beatFlash", "lightingModeTile", "colourSchemeTile", "liveScheme",
          "dropTile", "holdToForceDrop", "sideNavigation", "statusLine"})
        EXPECT_NE(dashboard.item(tile), nullptr) << tile;

    // The restored workspace reaches the tiles; a pick on the dashboard and a change from the
    // model both show.
    QQuickItem* pulse = dashboard.item("mode_m1");
    QQuickItem* chase = dashboard.item("mode_m2");
    ASSERT_TRUE(pulse && chase);
    EXPECT_TRUE(pulse->property("chosen").toBool());
    QMetaObject::invokeMethod(chase, "clicked");
    EXPECT_EQ(dashboard.model().selectedModeId(), "m2");
    EXPECT_TRUE(chase->property("chosen").toBool());
    EXPECT_FALSE(pulse->property("chosen").toBool());

    // A blend set by hand, then one from the cloud: the slider follows both.
    dashboard.model().applyLiveControlState(
        {{"mode", "m1"}, {"mode_to", "m2"}, {"mode_lerp", 0.5}});
    EXPECT_TRUE(pulse->property("chosen").toBool());
    QQuickItem* amount = dashboard.item("blendAmount");
    amount->setProperty("value", 0.8);
    QMetaObject::invokeMethod(amount, "moved");
    EXPECT_DOUBLE_EQ(dashboard.model().selectedModeLerp(), 0.8);
    dashboard.model().applyLiveControlState(
        {{"mode", "m1"}, {"mode_to", "m2"}, {"mode_lerp", 1.7}});
    EXPECT_DOUBLE_EQ(amount->property("value").toDouble(), 1.0);
    EXPECT_EQ(text("blendAmountText"), "100 %");

    QQuickItem* fire = dashboard.item("theme_Fire");
    ASSERT_NE(fire, nullptr);
    QMetaObject::invokeMethod(fire, "clicked");
    EXPECT_EQ(dashboard.model().selectedThemeName(), "Fire");
    EXPECT_TRUE(fire->property("highlighted").toBool());

    dashboard.model().setStatusMessage("Audio input unavailable: Audio input unit unavailable");
    EXPECT_EQ(text("statusMessage"), "Audio input unavailable: Audio input unit unavailable");
    EXPECT_EQ(text("bpm"), "—") << "no tempo before the beat tracker locks";
}

TEST_F(DashboardWindowTest, DropDiagnosticsPanelCarriesEveryText) {
    QMetaObject::invokeMethod(dashboard.item("openDropDiagnostics"), "clicked");
    EXPECT_TRUE(dashboard.model().showingDropDiagnostics());
    pumpUntil([&] { return dashboard.item("dropRuleExplanation") != nullptr; });
    EXPECT_EQ(text("dropRuleExplanation"), DashboardTexts::dropRuleExplanation());
    EXPECT_EQ(text("noDropsDetectedYet"), "No drops detected yet");
    EXPECT_TRUE(dashboard.item("noDropsDetectedYet")->isVisible());
}

TEST_F(DashboardWindowTest, HoldTileHoldsTheDropWhilePressed) {
    QQuickItem* hold = dashboard.item("holdToForceDrop");
    ASSERT_NE(hold, nullptr);
    const QPoint centre =
        hold->mapToScene(QPointF(hold->width() / 2, hold->height() / 2)).toPoint();
    QTest::mousePress(dashboard.window(), Qt::LeftButton, Qt::NoModifier, centre);
    EXPECT_TRUE(dashboard.model().isDropHeld());
    EXPECT_EQ(hold->property("color").value<QColor>(), QColor("#ff3d7f"));
    QTest::mouseRelease(dashboard.window(), Qt::LeftButton, Qt::NoModifier, centre);
    EXPECT_FALSE(dashboard.model().isDropHeld());
}

TEST_F(DashboardWindowTest, DropKeysHoldByPositionUnlessTypingOrModified) {
    // G then H, release G: still held; release H: ends.
    EXPECT_TRUE(sendKey(QEvent::KeyPress, DropKeyboardHold::keyG, Qt::Key_G));
    EXPECT_TRUE(sendKey(QEvent::KeyPress, DropKeyboardHold::keyH, Qt::Key_H));
    sendKey(QEvent::KeyRelease, DropKeyboardHold::keyG, Qt::Key_G);
    EXPECT_TRUE(dashboard.model().isDropHeld());
    // Key repeat arrives as release/press pairs; the engine must not see the hold flicker.
    QSignalSpy heldChanges(&dashboard.model(), &AppModel::isDropHeldChanged);
    sendKey(QEvent::KeyRelease, DropKeyboardHold::keyH, Qt::Key_H, Qt::NoModifier, true);
    EXPECT_TRUE(dashboard.model().isDropHeld());
    sendKey(QEvent::KeyPress, DropKeyboardHold::keyH, Qt::Key_H, Qt::NoModifier, true);
    EXPECT_EQ(heldChanges.count(), 0);
    sendKey(QEvent::KeyRelease, DropKeyboardHold::keyH, Qt::Key_H);
    EXPECT_FALSE(dashboard.model().isDropHeld());

    // The key in the G position on any layout (here a Z on a French keyboard) holds too.
    sendKey(QEvent::KeyPress, DropKeyboardHold::keyJ, Qt::Key_Z);
    EXPECT_TRUE(dashboard.model().isDropHeld());
    sendKey(QEvent::KeyRelease, DropKeyboardHold::keyJ, Qt::Key_Z);

    sendKey(QEvent::KeyPress, DropKeyboardHold::keyG, Qt::Key_G, Qt::ControlModifier);
    EXPECT_FALSE(dashboard.model().isDropHeld()) << "Control-G is a shortcut, not a drop";
    sendKey(QEvent::KeyRelease, DropKeyboardHold::keyG, Qt::Key_G, Qt::ControlModifier);

    // A focused text field gets its letters.
    QQmlComponent component(&dashboard.app->engine());
    component.setData("import QtQuick.Controls\nTextField { objectName: \"typing\" }", QUrl());
    auto* field = qobject_cast<QQuickItem*>(component.create());
    ASSERT_NE(field, nullptr) << component.errorString().toStdString();
    field->setParentItem(dashboard.window()->contentItem());
    field->forceActiveFocus();
    ASSERT_TRUE(field->hasActiveFocus());
    QTest::keyClick(dashboard.window(), Qt::Key_G, Qt::NoModifier);
    sendKey(QEvent::KeyPress, DropKeyboardHold::keyI, Qt::Key_I);
    EXPECT_FALSE(dashboard.model().isDropHeld());
    sendKey(QEvent::KeyRelease, DropKeyboardHold::keyI, Qt::Key_I);
    EXPECT_EQ(field->property("text").toString(), "g");
    delete field;
}

TEST_F(DashboardWindowTest, LosingTheKeyboardReleasesAHeldKey) {
    dashboard.window()->requestActivate();
    ASSERT_TRUE(pumpUntil([&] { return QGuiApplication::focusWindow() == dashboard.window(); }));
    sendKey(QEvent::KeyPress, DropKeyboardHold::keyJ, Qt::Key_J);
    ASSERT_TRUE(dashboard.model().isDropHeld());

    QWindow elsewhere;
    elsewhere.resize(100, 100);
    elsewhere.show();
    elsewhere.requestActivate();
    EXPECT_TRUE(pumpUntil([&] { return !dashboard.model().isDropHeld(); }))
        << "a key let go in another window must not leave the drop stuck";
    // Its release arriving later changes nothing.
    sendKey(QEvent::KeyRelease, DropKeyboardHold::keyJ, Qt::Key_J);
    EXPECT_FALSE(dashboard.model().isDropHeld());
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
