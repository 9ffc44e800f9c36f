#include "Cloud/CloudScheduler.h"

#include <QTimer>

namespace kelvo {

QCoro::Task<> QtCloudScheduler::sleep(std::chrono::milliseconds duration,
                                      CancellationToken cancel) {
    auto done = std::make_shared<OneShotEvent>();
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, [done] { done->fire(); });
    timer.start(duration);
    const auto subscription = cancel.onCancel([done] { done->fire(); });
    co_await *done;
}

} // namespace kelvo
