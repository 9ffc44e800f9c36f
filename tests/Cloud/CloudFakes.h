#pragma once

#include "Cloud/CloudScheduler.h"
#include "Cloud/DeviceTokenStore.h"

#include <QString>

#include <deque>
#include <map>
#include <memory>
#include <vector>

namespace kelvo::test {
// Internal linkage: clang 14 cannot emit inline coroutines (COMDAT) with sanitizers and
// debug info ("Cannot represent a difference across sections").
namespace {

/// Tokens in memory, keyed by the server's address.
class MemoryTokenStore final : public DeviceTokenStore {
public:
    std::optional<std::string> authToken(const QUrl& server) override {
        const auto found = tokens.find(server.toString());
        if (found == tokens.end() || found->second.empty())
            return std::nullopt;
        return found->second;
    }
    void saveAuthToken(const std::string& token, const QUrl& server) override {
        tokens[server.toString()] = token;
    }
    void clearAuthToken(const QUrl& server) override { tokens.erase(server.toString()); }

    std::map<QString, std::string> tokens;
};

/// A clock that moves only when a sleep ends. Sleeps wait for `wake()`, or pass at once (moving
/// the clock) with `autoAdvance`.
class ManualScheduler final : public CloudScheduler {
public:
    Clock::time_point now() const override { return now_; }

    QCoro::Task<> sleep(std::chrono::milliseconds duration, CancellationToken cancel) override {
        sleeps.push_back(duration);
        if (autoAdvance) {
            now_ += duration;
            co_return;
        }
        auto pending = std::make_shared<Pending>();
        pending->duration = duration;
        pending_.push_back(pending);
        const auto subscription = cancel.onCancel([pending] { pending->event.fire(); });
        co_await pending->event;
    }

    /// Ends the earliest sleep still waiting, moving the clock by its length; false if none.
    bool wake() {
        while (!pending_.empty()) {
            auto pending = pending_.front();
            pending_.pop_front();
            if (pending->event.hasFired())
                continue;
            now_ += pending->duration;
            pending->event.fire();
            return true;
        }
        return false;
    }

    std::vector<std::chrono::milliseconds> sleeps;
    bool autoAdvance = false;

private:
    struct Pending {
        std::chrono::milliseconds duration{};
        OneShotEvent event;
    };
    Clock::time_point now_{std::chrono::hours(1)};
    std::deque<std::shared_ptr<Pending>> pending_;
};

} // namespace
} // namespace kelvo::test
