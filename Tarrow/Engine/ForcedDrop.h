#pragma once

#include "Support/Timer.h"

#include <QObject>
#include <QtCore/qnamespace.h>

#include <array>
#include <cstdint>
#include <memory>
#include <set>
#include <vector>

namespace kelvo {

enum class DropHoldSource { pointer, keyboard, menu };

/// The forced drop: held while any source holds it. The engine is told once at the start, again
/// every second so the hold survives a harness or show reload, and once at the end.
class ForcedDropHold : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds reassertInterval{1000};
    static constexpr std::chrono::milliseconds menuPulse{1000};

    explicit ForcedDropHold(TimerFactory& timers, QObject* parent = nullptr);

    void begin(DropHoldSource source);
    void end(DropHoldSource source);
    /// A one-second forced drop from the menu. Each trigger ends the menu source one second
    /// later on its own, so a second trigger inside the first one's second does not extend it:
    /// the first pulse to end releases the menu hold.
    void triggerMenuDrop();
    /// The engine loop stopped: every hold ends. Menu pulses still under way end later with no
    /// effect, as ending a source that is not holding changes nothing.
    void releaseAll();

    bool isDropHeld() const { return held_; }
    const std::set<DropHoldSource>& sources() const { return sources_; }

signals:
    /// What the engine must be told: true at the start and every second, false at the end.
    void engineForcedDrop(bool on);
    void heldChanged(bool held);

private:
    TimerFactory& timers_;
    std::set<DropHoldSource> sources_;
    bool held_ = false;
    std::unique_ptr<Timer> reassertTimer_;
    std::vector<std::unique_ptr<Timer>> menuPulses_;
};

/// The four drop keys, by physical position: G, H, I and J. Codes are the native key codes that
/// X11 and Wayland report (evdev code + 8), the same on every layout.
struct DropKeyboardHold {
    static constexpr std::uint16_t keyG = 42, keyH = 43, keyI = 31, keyJ = 44;
    static constexpr std::array<std::uint16_t, 4> keyCodes = {keyG, keyH, keyI, keyJ};

    static bool isDropKey(std::uint16_t code);
    /// Whether a key-down may start a hold: not while typing into a text field, not with Shift,
    /// Control, Alt (or AltGr), or Super/Meta down, and only while the engine loop runs.
    static bool allowsHold(bool typing, Qt::KeyboardModifiers modifiers, bool engineLoopRunning);

    std::set<std::uint16_t> held;

    /// True when the event was a drop key and changed or confirmed the hold. A key-up is honoured
    /// even when no longer allowed, so a hold can always end.
    bool update(std::uint16_t code, bool down, bool allowed);

    friend bool operator==(const DropKeyboardHold&, const DropKeyboardHold&) = default;
};

} // namespace kelvo
