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
    QString text(const char* objectName) {
        QQuickItem* found = dashboard.item(objectName);
        return found ? found->property("text").toString() : QStringLiteral("<missing>");
    }

    DashboardRig dashboard;
};

TEST_F(PanelScreensTest, EveryScreenLoadsAndLeavesAScreenshot) {
    const std::filesystem::path dir =
        std::filesystem::path(KELVO_BINARY_DIR) / "artifacts" / "screenshots";
    std::filesystem::create_directories(dir);
    const struct {
        const char* screen;
        const char* root;
        const char* file;
    } screens[] = {{"Connections", "connectionsScreen", "connections.png"},
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

} // namespace
} // namespace kelvo::test
