#pragma once

#include "Engine/Timer.h"

#include <vector>

namespace kelvo::testing_support {

/// Timers fired by hand: `fire()` runs every active timer once, as if its interval elapsed.
class FakeTimerFactory final : public TimerFactory {
public:
    struct State {
        bool active = false;
        bool repeating = false;
        std::chrono::milliseconds interval{0};
        std::function<void()> handler;
    };

    std::unique_ptr<Timer> makeTimer() override {
        states_.push_back(std::make_shared<State>());
        return std::make_unique<FakeTimer>(states_.back());
    }

    /// Fires every active timer whose interval is `interval` once.
    void fire(std::chrono::milliseconds interval) {
        const auto snapshot = states_;
        for (const auto& state : snapshot) {
            if (!state->active || state->interval != interval)
                continue;
            if (!state->repeating)
                state->active = false;
            const auto handler = state->handler;
            handler();
        }
    }

    int activeCount() const {
        int count = 0;
        for (const auto& state : states_)
            count += state->active ? 1 : 0;
        return count;
    }

private:
    class FakeTimer final : public Timer {
    public:
        explicit FakeTimer(std::shared_ptr<State> state) : state_(std::move(state)) {}
        ~FakeTimer() override { state_->active = false; }
        void start(std::chrono::milliseconds interval, bool repeating,
                   std::function<void()> handler) override {
            *state_ = {true, repeating, interval, std::move(handler)};
        }
        void stop() override { state_->active = false; }
        bool isActive() const override { return state_->active; }

    private:
        std::shared_ptr<State> state_;
    };

    std::vector<std::shared_ptr<State>> states_;
};

} // namespace kelvo::testing_support
