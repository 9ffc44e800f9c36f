#include "Support/Timer.h"

#include <QTimer>

namespace kelvo {

namespace {

class QtTimer final : public Timer {
public:
    QtTimer() {
        timer_.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, [this] {
            if (handler_)
                handler_();
        });
    }
    void start(std::chrono::milliseconds interval, bool repeating,
               std::function<void()> handler) override {
        handler_ = std::move(handler);
        timer_.setSingleShot(!repeating);
        timer_.start(interval);
    }
    void stop() override { timer_.stop(); }
    bool isActive() const override { return timer_.isActive(); }

private:
    QTimer timer_;
    std::function<void()> handler_;
};

} // namespace

std::unique_ptr<Timer> QtTimerFactory::makeTimer() {
    return std::make_unique<QtTimer>();
}

} // namespace kelvo
