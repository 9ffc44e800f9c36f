#pragma once

#include <coroutine>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace kelvo {

/// A flow that was cancelled (a new pairing, sign-out, quit). Thrown after an await so the flow
/// unwinds without touching its owner.
class FlowCancelled : public std::exception {
public:
    const char* what() const noexcept override { return "Cancelled"; }
};

/// The cancellation of one background flow. Callbacks run at once, on the calling thread, when
/// it is cancelled; a subscription ends with its handle.
class CancellationSource {
public:
    class Subscription {
    public:
        Subscription() = default;
        Subscription(std::weak_ptr<CancellationSource> source, int id)
            : source_(std::move(source)), id_(id) {}
        Subscription(Subscription&& other) noexcept
            : source_(std::move(other.source_)), id_(std::exchange(other.id_, -1)) {}
        Subscription& operator=(Subscription&&) = delete;
        Subscription(const Subscription&) = delete;
        ~Subscription();

    private:
        std::weak_ptr<CancellationSource> source_;
        int id_ = -1;
    };

    void cancel();
    bool isCancelled() const { return cancelled_; }
    /// Runs `callback` on cancellation (at once when already cancelled).
    static Subscription subscribe(const std::shared_ptr<CancellationSource>& source,
                                  std::function<void()> callback);

private:
    bool cancelled_ = false;
    int nextId_ = 0;
    std::map<int, std::function<void()>> callbacks_;
};

/// What a flow and the operations it awaits see of its cancellation; empty means "never".
class CancellationToken {
public:
    CancellationToken() = default;
    explicit CancellationToken(std::shared_ptr<CancellationSource> source)
        : source_(std::move(source)) {}

    /// False for the empty token, which is never cancelled.
    bool canBeCancelled() const { return source_ != nullptr; }
    bool isCancelled() const { return source_ && source_->isCancelled(); }
    void throwIfCancelled() const {
        if (isCancelled())
            throw FlowCancelled();
    }
    CancellationSource::Subscription onCancel(std::function<void()> callback) const {
        if (!source_)
            return {};
        return CancellationSource::subscribe(source_, std::move(callback));
    }

private:
    std::shared_ptr<CancellationSource> source_;
};

/// A one-shot event a coroutine awaits; `fire()` resumes the waiter (at once, on the calling
/// thread). Shared, so a callback may outlive the waiting frame.
class OneShotEvent {
public:
    void fire() {
        if (fired_)
            return;
        fired_ = true;
        if (auto waiter = std::exchange(waiter_, {}))
            waiter.resume();
    }
    bool hasFired() const { return fired_; }

    struct Awaiter {
        OneShotEvent& event;
        bool await_ready() const noexcept { return event.fired_; }
        void await_suspend(std::coroutine_handle<> waiter) noexcept { event.waiter_ = waiter; }
        void await_resume() const noexcept {}
    };
    Awaiter operator co_await() { return Awaiter{*this}; }

private:
    bool fired_ = false;
    std::coroutine_handle<> waiter_;
};

} // namespace kelvo
