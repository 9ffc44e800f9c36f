#include "UI/DropKeyboardController.h"

#include "Engine/AppModel.h"

#include <QGuiApplication>
#include <QInputMethodQueryEvent>
#include <QKeyEvent>
#include <QWindow>

namespace kelvo {

DropKeyboardController::DropKeyboardController(AppModel& model, QObject* parent)
    : QObject(parent), model_(&model) {
    qApp->installEventFilter(this);
    connect(qApp, &QGuiApplication::applicationStateChanged, this,
            [this](Qt::ApplicationState state) {
                if (state != Qt::ApplicationActive)
                    releaseAll();
            });
    connect(qApp, &QGuiApplication::focusWindowChanged, this, [this] { releaseAll(); });
}

DropKeyboardController::~DropKeyboardController() {
    if (qApp)
        qApp->removeEventFilter(this);
}

std::uint16_t DropKeyboardController::physicalKeyCode(const QKeyEvent& event) {
    if (event.nativeScanCode() != 0)
        return static_cast<std::uint16_t>(event.nativeScanCode());
    switch (event.key()) {
    case Qt::Key_G:
        return DropKeyboardHold::keyG;
    case Qt::Key_H:
        return DropKeyboardHold::keyH;
    case Qt::Key_I:
        return DropKeyboardHold::keyI;
    case Qt::Key_J:
        return DropKeyboardHold::keyJ;
    default:
        return 0;
    }
}

bool DropKeyboardController::isTyping() {
    QObject* focus = QGuiApplication::focusObject();
    if (!focus)
        return false;
    // Text fields and editors accept input-method text; buttons and tiles do not.
    QInputMethodQueryEvent query(Qt::ImEnabled);
    QCoreApplication::sendEvent(focus, &query);
    return query.value(Qt::ImEnabled).toBool();
}

bool DropKeyboardController::handle(const QKeyEvent& event) {
    if (!model_)
        return false;
    const bool down = event.type() == QEvent::KeyPress;
    const std::uint16_t code = physicalKeyCode(event);
    // A key held down repeats as release/press pairs; the hold must not flicker with them.
    if (event.isAutoRepeat())
        return state_.held.contains(code);
    const bool allowed = down && DropKeyboardHold::allowsHold(isTyping(), event.modifiers(),
                                                              model_->isEngineLoopRunning());
    if (!state_.update(code, down, allowed))
        return false;
    if (state_.held.empty())
        model_->endForcedDrop(DropHoldSource::keyboard);
    else
        model_->beginForcedDrop(DropHoldSource::keyboard);
    return true;
}

void DropKeyboardController::releaseAll() {
    state_.held.clear();
    if (model_)
        model_->endForcedDrop(DropHoldSource::keyboard);
}

bool DropKeyboardController::eventFilter(QObject* watched, QEvent* event) {
    // A key event reaches the window first and is then passed on to the focused item; deciding
    // at the window sees each key once and can keep it from the item.
    if ((event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease) &&
        watched->isWindowType())
        return handle(*static_cast<QKeyEvent*>(event));
    return QObject::eventFilter(watched, event);
}

} // namespace kelvo
