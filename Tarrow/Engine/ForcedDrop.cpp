#include "Engine/ForcedDrop.h"

namespace kelvo {

ForcedDropHold::ForcedDropHold(TimerFactory& timers, std::function<void(bool)> setForcedDrop,
                               std::function<void(bool)> heldChanged)
    : timers_(timers), setForcedDrop_(std::move(setForcedDrop)),
      heldChanged_(std::move(heldChanged)) {}

void ForcedDropHold::begin(DropHoldSource source) {
    sources_.insert(source);
    if (held_)
        return;
    held_ = true;
    if (heldChanged_)
        heldChanged_(true);
    setForcedDrop_(true);
    reassertTimer_ = timers_.makeTimer();
    reassertTimer_->start(reassertInterval, true, [this] {
        if (held_)
            setForcedDrop_(true);
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
        if (heldChanged_)
            heldChanged_(false);
        setForcedDrop_(false);
    }
}

void ForcedDropHold::triggerMenuDrop() {
    begin(DropHoldSource::menu);
    menuTimer_ = timers_.makeTimer();
    menuTimer_->start(menuPulse, false, [this] { end(DropHoldSource::menu); });
}

void ForcedDropHold::releaseAll() {
    sources_.clear();
    if (menuTimer_)
        menuTimer_->stop();
    end(DropHoldSource::pointer);
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
