#include "UI/TarrowApp.h"
#include "UI/BandTraceItem.h"
#include "UI/DmxPreviewItem.h"

#include "Engine/AppModel.h"
#include "Support/Logging.h"
#include "UI/DashboardTexts.h"

#include <QGuiApplication>
#include <QQuickWindow>
#include <QThread>
#include <QtQml>

#include <mutex>

Q_IMPORT_QML_PLUGIN(KelvoUIPlugin)

namespace kelvo {

namespace {
constexpr const char* modelEngineProperty = "kelvoBridgeModel";
constexpr unsigned long renderThreadSettleMs = 20;
} // namespace

TarrowApp::TarrowApp(std::unique_ptr<AppModel> model, QObject* parent)
    : QObject(parent), model_(std::move(model)) {
    registerModelSingleton();
    // Venue machines rarely have a GPU, and Mesa's software OpenGL costs the main thread several
    // times what Qt Quick's own software renderer does for these flat tiles. QT_QUICK_BACKEND
    // still chooses another.
    const QByteArray backend = qgetenv("QT_QUICK_BACKEND");
    if (backend.isEmpty())
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    // The software renderer paints on the main thread. Its threaded loop was tried: the main
    // thread's sync then waits on the render thread's own ~17 ms pace, so ticks drifted late and
    // caught up in bursts (p99 15 ms against 2.5 ms here). QSG_RENDER_LOOP still chooses.
    engine_.addImportPath(QString::fromLatin1(qmlImportPath));
    engine_.setProperty(modelEngineProperty, QVariant::fromValue<QObject*>(model_.get()));
    QGuiApplication::setQuitOnLastWindowClosed(true);
    connect(qApp, &QCoreApplication::aboutToQuit, this,
            [this] { delegate_.applicationWillTerminate(); });
}

TarrowApp::~TarrowApp() {
    delegate_.applicationWillTerminate();
    // With the threaded loop, destroying a window that is still shown can leave its render
    // thread waiting for an event that never comes, and the quit with it.
    if (QQuickWindow* shown = window(); shown && shown->isVisible()) {
        shown->hide();
        if (qgetenv("QSG_RENDER_LOOP") == "threaded")
            QThread::msleep(renderThreadSettleMs);
    }
}

void TarrowApp::registerModelSingleton() {
    // Registered once per process; each engine hands out its own window's model, so tests can
    // build one window after another.
    static std::once_flag once;
    std::call_once(once, [] {
        qmlRegisterSingletonType<AppModel>(
            "Kelvo.Model", 1, 0, "Bridge", [](QQmlEngine* engine, QJSEngine*) -> QObject* {
                QObject* model = engine->property(modelEngineProperty).value<QObject*>();
                QQmlEngine::setObjectOwnership(model, QQmlEngine::CppOwnership);
                return model;
            });
        qmlRegisterSingletonType<DashboardTexts>(
            "Kelvo.Model", 1, 0, "Texts",
            [](QQmlEngine*, QJSEngine*) -> QObject* { return new DashboardTexts; });
        qmlRegisterType<DmxPreviewItem>("Kelvo.Model", 1, 0, "DmxPreviewItem");
        qmlRegisterType<BandTraceItem>("Kelvo.Model", 1, 0, "BandTraceItem");
    });
}

bool TarrowApp::show(bool startModel) {
    if (!window()) {
        engine_.load(QUrl(QString::fromLatin1(mainQml)));
        if (!window()) {
            qCCritical(lcUi) << "The dashboard window could not be built";
            return false;
        }
    }
    delegate_.applicationDidFinishLaunching(window());
    delegate_.windowShown(*model_);
    if (startModel && !started_) {
        started_ = true;
        model_->bootstrap();
    }
    return true;
}

QQuickWindow* TarrowApp::window() const {
    const QList<QObject*> roots = engine_.rootObjects();
    return roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
}

} // namespace kelvo
