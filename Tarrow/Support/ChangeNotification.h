#pragma once

#include <utility>

namespace kelvo {

/// Stores `value` in `field`; true when that changed it.
template <typename T, typename V> bool assignIfChanged(T& field, V&& value) {
    if (field == value)
        return false;
    field = std::forward<V>(value);
    return true;
}

/// Stores `value` in `field` and, only when that changed it, emits `notify` of `owner`: an
/// observable property is announced on a change and never on a repeat.
template <typename T, typename V, typename Owner>
bool setAndNotify(T& field, V&& value, Owner* owner, void (Owner::*notify)()) {
    if (!assignIfChanged(field, std::forward<V>(value)))
        return false;
    (owner->*notify)();
    return true;
}

} // namespace kelvo
