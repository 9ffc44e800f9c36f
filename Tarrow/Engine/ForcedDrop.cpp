#include "Engine/ForcedDrop.h"

#include <algorithm>

namespace kelvo {

ForcedDropHold::ForcedDropHold(TimerFactory& timers, QObject* parent)
    : QObject(parent), timers_(timers) {}

void ForcedDropHold::begin(DropHoldSource source) {
    sources_.insert(source);
    if (held_)
        return;
    held_ = true;
    emit heldChanged(true);
    emit engineForcedDrop(true);
    reassertTimer_ = timers_.makeTimer();
    reassertTimer_->start(reassertInterval, true, [this] {
        if (held_)
            emit engineForcedDrop(true);
    });
}

void ForcedDropHold::end(DropHoldSource source) {
    sources_.erase(source);
    if (!sources_.empty())
        return;
    if (reassertTimer_) {
        reassertTimer_->stop();
        reassertTimer_.reset();
    }
    if (held_) {
        held_ = false;
        emit heldChanged(false);
        emit engineForcedDrop(false);
    }
}

void ForcedDropHold::triggerMenuDrop() {
    begin(DropHoldSource::menu);
    std::erase_if(menuPulses_,
                  [](const std::unique_ptr<Timer>& pulse) { return !pulse->isActive(); });
    menuPulses_.push_back(timers_.makeTimer());
    menuPulses_.back()->start(menuPulse, false, [this] { end(DropHoldSource::menu); });
}

void ForcedDropHold::releaseAll() {
    sources_.clear();
    end(DropHoldSource::pointer);
}

bool DropKeyboardHold::isDropKey(std::uint16_t code) {
    return std::find(keyCodes.begin(), keyCodes.end(), code) != keyCodes.end();
}

bool DropKeyboardHold::allowsHold(bool typing, Qt::KeyboardModifiers modifiers,
                                  bool engineLoopRunning) {
    constexpr Qt::KeyboardModifiers blocking = Qt::ShiftModifier | Qt::ControlModifier |
                                               Qt::AltModifier | Qt::MetaModifier |
                                               Qt::GroupSwitchModifier;
    return !typing && !(modifiers & blocking) && engineLoopRunning;
}

bool DropKeyboardHold::update(std::uint16_t code, bool down, bool allowed) {
    if (!isDropKey(code))
        return false;
    if (!down)
        return held.erase(code) > 0;
    if (!allowed)
        return false;
    held.insert(code);
    return true;
}

} // namespace kelvo
