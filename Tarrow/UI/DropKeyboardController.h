#pragma once

#include "Engine/ForcedDrop.h"

#include <QObject>
#include <QPointer>

class QKeyEvent;

namespace kelvo {

class AppModel;

/// Holds the drop while G, H, I or J is down (by physical position, so every layout uses the
/// same four keys). Not while typing into a text field, not with a modifier, and released as
/// soon as the window loses the keyboard, so a key let go elsewhere cannot leave it stuck.
class DropKeyboardController : public QObject {
    Q_OBJECT
public:
    explicit DropKeyboardController(AppModel& model, QObject* parent = nullptr);
    ~DropKeyboardController() override;

    /// True when the event was a drop key and is consumed.
    bool handle(const QKeyEvent& event);
    /// Lets go of every held key and ends the keyboard's hold.
    void releaseAll();

    const DropKeyboardHold& state() const { return state_; }

    /// The native scan code of a key event; platforms without one (offscreen) fall back to the
    /// letter, which matches the physical key on the usual layouts.
    static std::uint16_t physicalKeyCode(const QKeyEvent& event);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    static bool isTyping();

    QPointer<AppModel> model_;
    DropKeyboardHold state_;
};

} // namespace kelvo
