#pragma once

#include "Cloud/Cancellation.h"
#include "Support/SerialQueue.h"

#include <QObject>

#include <QCoro/QCoroTask>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace kelvo {

/// Loads Qt's TLS backend on a worker as soon as it is made. The first secure request or socket
/// would otherwise load it on the thread that makes it: about 6 ms of processor time, once per
/// process, in the middle of connecting while the lights tick.
class TlsWarmUp : public QObject {
public:
    /// `loaded` runs on this object's thread once the backend is loaded, unless it already was.
    explicit TlsWarmUp(std::function<void()> loaded = {}, QObject* parent = nullptr);

    bool isReady() const { return ready_; }
    /// Resumes on this object's thread once the backend is loaded (at once when it is).
    QCoro::Task<> ready();

private:
    void finish();

    std::function<void()> loaded_;
    bool ready_ = false;
    std::vector<std::shared_ptr<OneShotEvent>> waiting_;
    std::optional<SerialQueue> worker_; // last: joined before the object goes; none once loaded
};

} // namespace kelvo
