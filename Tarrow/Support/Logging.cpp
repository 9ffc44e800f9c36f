#include "Support/Logging.h"

namespace kelvo {

Q_LOGGING_CATEGORY(lcEngine, "kelvo.engine", QtInfoMsg)
Q_LOGGING_CATEGORY(lcAudio, "kelvo.audio", QtInfoMsg)
Q_LOGGING_CATEGORY(lcDmx, "kelvo.dmx", QtInfoMsg)
Q_LOGGING_CATEGORY(lcCloud, "kelvo.cloud", QtInfoMsg)
Q_LOGGING_CATEGORY(lcUi, "kelvo.ui", QtInfoMsg)

} // namespace kelvo
