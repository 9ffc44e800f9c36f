#include "UI/AppDelegate.h"

#include "Engine/AppModel.h"

#include <QFont>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QWindow>

#include <array>

namespace kelvo {

AppDelegate::AppDelegate(QObject* parent) : QObject(parent) {}

AppDelegate::~AppDelegate() = default;

bool AppDelegate::registerBrandFont() {
    static const bool registered = [] {
        static constexpr std::array files = {
            ":/kelvo/fonts/Inter-Regular.otf", ":/kelvo/fonts/Inter-Medium.otf",
            ":/kelvo/fonts/Inter-SemiBold.otf", ":/kelvo/fonts/Inter-Bold.otf"};
        bool all = true;
        for (const char* file : files)
            all = QFontDatabase::addApplicationFont(QString::fromLatin1(file)) >= 0 && all;
        return all;
    }();
    return registered;
}

void AppDelegate::applicationDidFinishLaunching(QWindow* window) {
    if (registerBrandFont()) {
        QFont font(QString::fromLatin1(brandFontFamily));
        font.setPointSizeF(QGuiApplication::font().pointSizeF());
        QGuiApplication::setFont(font);
    }
    if (window) {
        window->show();
        window->raise();
        window->requestActivate();
    }
}

void AppDelegate::windowShown(AppModel& model) {
    model_ = &model;
    if (!keyboard_)
        keyboard_ = std::make_unique<DropKeyboardController>(model);
}

void AppDelegate::applicationWillTerminate() {
    if (terminated_)
        return;
    terminated_ = true;
    // The model stops capture first so a recording is closed before the (bounded) wait on the
    // cloud.
    if (model_)
        model_->applicationWillTerminate();
}

} // namespace kelvo
