#pragma once

#include "UI/AppDelegate.h"

#include <QObject>
#include <QQmlApplicationEngine>
#include <QUrl>

#include <memory>

class QQuickWindow;

namespace kelvo {

class AppModel;

/// The one dashboard window around the application model: it owns the model, shows it to QML
/// as the `Bridge` singleton of "Kelvo.Model", starts it when the window first appears, and
/// quits when the window closes (capture stopped, the cloud told, in that order).
/// Needs a QGuiApplication.
class TarrowApp : public QObject {
    Q_OBJECT
public:
    static constexpr const char* windowTitle = "Kelvo";
    static constexpr const char* qmlImportPath = "qrc:/qt/qml";
    static constexpr const char* mainQml = "qrc:/qt/qml/Kelvo/UI/Main.qml";

    explicit TarrowApp(std::unique_ptr<AppModel> model, QObject* parent = nullptr);
    ~TarrowApp() override;

    /// Loads the window and shows it; on the first appearance the model starts up
    /// (`bootstrap`). False, with the QML errors logged, when the window cannot be built.
    bool show(bool startModel = true);

    AppModel& model() { return *model_; }
    AppDelegate& delegate() { return delegate_; }
    QQmlApplicationEngine& engine() { return engine_; }
    /// The window, once shown.
    QQuickWindow* window() const;

private:
    static void registerModelSingleton();

    std::unique_ptr<AppModel> model_;
    AppDelegate delegate_;
    // Last, so the QML bound to the model goes before the model.
    QQmlApplicationEngine engine_;
    bool started_ = false;
};

} // namespace kelvo
