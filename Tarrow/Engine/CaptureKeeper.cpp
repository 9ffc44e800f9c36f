#include "Engine/CaptureKeeper.h"

#include <stdexcept>

namespace kelvo {

CaptureKeeper::CaptureKeeper(TimerFactory& timers, Hooks hooks)
    : hooks_(std::move(hooks)), retry_(timers.makeTimer()) {}

bool CaptureKeeper::keep() {
    kept_ = true;
    if (!retry_->isActive())
        retry_->start(retryInterval, true, [this] {
            // Also catches a stream that died while the device list stayed as it was.
            if (kept_)
                attempt();
        });
    return attempt();
}

void CaptureKeeper::release() {
    kept_ = false;
    retry_->stop();
}

bool CaptureKeeper::attempt() {
    if (hooks_.isCapturingOrStarting())
        return true;
    try {
        hooks_.startCapture();
    } catch (const std::exception& error) {
        hooks_.unavailable(QString::fromUtf8(error.what()));
        return false;
    }
    return true;
}

} // namespace kelvo
