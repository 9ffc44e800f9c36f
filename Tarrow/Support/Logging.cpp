#include "Support/Logging.h"

namespace kelvo {

Q_LOGGING_CATEGORY(lcEngine, "kelvo.engine")
Q_LOGGING_CATEGORY(lcAudio, "kelvo.audio")
Q_LOGGING_CATEGORY(lcDmx, "kelvo.dmx")
Q_LOGGING_CATEGORY(lcCloud, "kelvo.cloud")
Q_LOGGING_CATEGORY(lcUi, "kelvo.ui")

} // namespace kelvo
