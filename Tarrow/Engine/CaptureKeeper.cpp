#include "Engine/CaptureKeeper.h"

namespace kelvo {

CaptureKeeper::CaptureKeeper(TimerFactory& timers, QObject* parent)
    : QObject(parent), retry_(timers.makeTimer()) {}

void CaptureKeeper::keep() {
    kept_ = true;
    if (!retry_->isActive())
        retry_->start(retryInterval, true, [this] {
            // Also catches a stream that died while the device list stayed as it was.
            if (kept_)
                emit attemptDue();
        });
    emit attemptDue();
}

void CaptureKeeper::release() {
    kept_ = false;
    retry_->stop();
}

} // namespace kelvo
