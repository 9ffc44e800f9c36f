#pragma once

#include "Cloud/URLRequestPerforming.h"
#include "support/QtEventLoop.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <variant>

namespace kelvo::test {
// Internal linkage: clang 14 cannot emit inline coroutines (COMDAT) with sanitizers and
// debug info ("Cannot represent a difference across sections").
namespace {

/// A transport that records every request and answers from `respond`. An answer of nullopt holds
/// the request until `releaseHeld` (or its cancellation); a thrown TransportError fails it.
class FakeURLSession final : public URLRequestPerforming {
public:
    using Responder = std::function<std::optional<HTTPResponse>(const HTTPRequest&)>;

    void setResponder(Responder respond) { respond_ = std::move(respond); }

    QCoro::Task<HTTPResponse> data(HTTPRequest request, CancellationToken cancel) override {
        requests.push_back(request);
        std::optional<HTTPResponse> answer = respond_ ? respond_(request) : HTTPResponse{200, "{}"};
        if (!answer) {
            auto held = std::make_shared<Held>();
            held_.push_back(held);
            const auto subscription = cancel.onCancel([held] { held->event.fire(); });
            co_await held->event;
            cancel.throwIfCancelled();
            answer = held->answer;
            if (!answer)
                throw TransportError("Connection refused");
        }
        co_return *answer;
    }

    /// Answers the oldest held request (a transport failure without `answer`).
    void releaseHeld(std::optional<HTTPResponse> answer = std::nullopt) {
        std::erase_if(held_, [](const auto& held) { return held->event.hasFired(); });
        auto held = held_.front();
        held_.pop_front();
        held->answer = std::move(answer);
        held->event.fire();
    }
    /// Requests still waiting (cancelled ones have ended).
    std::size_t heldCount() const {
        return std::size_t(std::count_if(held_.begin(), held_.end(),
                                         [](const auto& held) { return !held->event.hasFired(); }));
    }

    std::vector<HTTPRequest> requests;

    /// Requests whose URL path ends with `suffix`.
    std::size_t countPath(const QString& suffix) const {
        return std::size_t(std::count_if(requests.begin(), requests.end(), [&](const auto& r) {
            return r.url.path().endsWith(suffix);
        }));
    }

private:
    struct Held {
        OneShotEvent event;
        std::optional<HTTPResponse> answer;
    };
    Responder respond_;
    std::deque<std::shared_ptr<Held>> held_;
};

/// Runs the event loop until `task` ends (at most 10 s); rethrows its failure.
template <typename T> T finish(QCoro::Task<T> task) {
    std::optional<std::conditional_t<std::is_void_v<T>, std::monostate, T>> result;
    std::exception_ptr error;
    bool done = false;
    // The lambda outlives the coroutine: this frame waits for `done`.
    const auto settle = [&]() -> QCoro::Task<> {
        try {
            if constexpr (std::is_void_v<T>) {
                co_await std::move(task);
                result.emplace();
            } else {
                result.emplace(co_await std::move(task));
            }
        } catch (...) {
            error = std::current_exception();
        }
        done = true;
    };
    settle();
    if (!pumpUntil([&] { return done; }))
        throw std::runtime_error("task did not finish");
    if (error)
        std::rethrow_exception(error);
    if constexpr (!std::is_void_v<T>)
        return std::move(*result);
}

} // namespace
} // namespace kelvo::test
