#include "Cloud/Cancellation.h"

namespace kelvo {

CancellationSource::Subscription::~Subscription() {
    if (auto source = source_.lock())
        source->callbacks_.erase(id_);
}

void CancellationSource::cancel() {
    if (cancelled_)
        return;
    cancelled_ = true;
    // A callback may resume a flow that ends other subscriptions: run from a detached copy.
    auto callbacks = std::exchange(callbacks_, {});
    for (auto& [id, callback] : callbacks)
        callback();
}

CancellationSource::Subscription
CancellationSource::subscribe(const std::shared_ptr<CancellationSource>& source,
                              std::function<void()> callback) {
    if (source->cancelled_) {
        callback();
        return {};
    }
    const int id = source->nextId_++;
    source->callbacks_.emplace(id, std::move(callback));
    return Subscription(source, id);
}

} // namespace kelvo
