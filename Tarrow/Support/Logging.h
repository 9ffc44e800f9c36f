#pragma once

#include <QLoggingCategory>

namespace kelvo {

// One category per subsystem. Debug messages are off unless asked for, one subsystem at a time:
// QT_LOGGING_RULES="kelvo.dmx.debug=true".
Q_DECLARE_LOGGING_CATEGORY(lcEngine)
Q_DECLARE_LOGGING_CATEGORY(lcAudio)
Q_DECLARE_LOGGING_CATEGORY(lcDmx)
Q_DECLARE_LOGGING_CATEGORY(lcCloud)
Q_DECLARE_LOGGING_CATEGORY(lcUi)

} // namespace kelvo
