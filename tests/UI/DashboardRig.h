#pragma once

#include "UI/TarrowApp.h"
#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickWindow>

#include <memory>

namespace kelvo::test {

/// The process's GUI application, offscreen unless the test run asks for a real display
/// (QT_QPA_PLATFORM=xcb under Xvfb); the dashboard picks its renderer as the bridge does.
inline void guiApplication() {
    if (!QCoreApplication::instance()) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "kelvo-ui-tests";
        static char* argv[] = {name, nullptr};
        new QGuiApplication(argc, argv);
    }
}

/// The dashboard window around a model whose platform is faked (AppModelRig), started as the
/// application starts it.
struct DashboardRig {
    /// Builds and shows the window; `prepare` may seed the cache first.
    void open() {
        guiApplication();
        app = std::make_unique<TarrowApp>(rig.makeModel());
        shown = app->show();
        if (shown)
            pumpUntil([this] { return window()->isExposed(); }, std::chrono::seconds(5));
    }

    AppModel& model() { return app->model(); }
    QQuickWindow* window() { return app->window(); }
    /// The first item of that objectName in the window's visual tree, or null.
    QQuickItem* item(const char* objectName) {
        return findVisual(window()->contentItem(), QString::fromLatin1(objectName));
    }
    static QQuickItem* findVisual(QQuickItem* from, const QString& name) {
        if (from->objectName() == name)
            return from;
        for (QQuickItem* child : from->childItems())
            if (QQuickItem* found = findVisual(child, name))
                return found;
        return nullptr;
    }

    /// A cached show with two modes and two colour schemes, selected as "Pulse" and "Ice".
    void seedWorkspace() {
        rig.seedCache();
        rig.makeCache()->saveWorkspaceUI(OfflineWorkspaceUIState{
            .shows = {{"s1", "Club", true, false}},
            .selectedShowId = "s1",
            .lightingModes = {{"m1", "pulse", "Pulse", "general", 0, true, {}, {}},
                              {"m2", "chase", "Chase", "show", 1, false, {}, {}}},
            .selectedModeId = "m1",
            .themes = {{"Ice", {{0, 0, 1}, {0, 1, 1}, {1, 1, 1}}, {}, false, false},
                       {"Fire", {{1, 0, 0}, {1, 0.5, 0}, {1, 1, 0}}, {}, false, false}},
            .selectedThemeName = "Ice"});
    }

    AppModelRig rig;
    std::unique_ptr<TarrowApp> app;
    bool shown = false;
};

} // namespace kelvo::test
