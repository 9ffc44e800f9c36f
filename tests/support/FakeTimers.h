#pragma once

#include "Support/Timer.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace kelvo::test {

/// Timers fired by hand: `advance()` moves a fake clock and fires timers at their deadlines.
class FakeTimerFactory final : public TimerFactory {
public:
    std::unique_ptr<Timer> makeTimer() override {
        return std::make_unique<FakeTimer>(states_.emplace_back(std::make_shared<State>()), now_);
    }

    /// Moves the clock on by `by`, firing each timer whose deadline is reached in deadline
    /// order (timers started earlier first on a tie); a repeating timer fires once per interval.
    void advance(std::chrono::milliseconds by) {
        const auto target = *now_ + by;
        for (;;) {
            std::shared_ptr<State> next;
            for (const auto& state : states_)
                if (state->active && state->due <= target && (!next || state->due < next->due))
                    next = state;
            if (!next)
                break;
            *now_ = next->due;
            trigger(*next);
        }
        *now_ = target;
    }

    /// Lets one `interval` pass, firing what falls due in it.
    void fire(std::chrono::milliseconds interval) { advance(interval); }

    int activeCount() const {
        return int(std::ranges::count_if(states_, [](const auto& state) { return state->active; }));
    }

private:
    struct State {
        bool active = false;
        bool repeating = false;
        std::chrono::milliseconds interval{0};
        std::chrono::milliseconds due{0};
        std::function<void()> handler;
    };

    /// One expiry: a repeating timer is due again an interval later, a single shot ends.
    static void trigger(State& state) {
        if (state.repeating)
            state.due += state.interval;
        else
            state.active = false;
        const auto handler = state.handler; // the handler may restart its own timer
        handler();
    }

    class FakeTimer final : public Timer {
    public:
        FakeTimer(std::shared_ptr<State> state,
                  std::shared_ptr<const std::chrono::milliseconds> now)
            : state_(std::move(state)), now_(std::move(now)) {}
        ~FakeTimer() override { state_->active = false; }
        void start(std::chrono::milliseconds interval, bool repeating,
                   std::function<void()> handler) override {
            *state_ = {true, repeating, interval, *now_ + interval, std::move(handler)};
        }
        void stop() override { state_->active = false; }
        bool isActive() const override { return state_->active; }

    private:
        std::shared_ptr<State> state_;
        std::shared_ptr<const std::chrono::milliseconds> now_;
    };

    std::vector<std::shared_ptr<State>> states_;
    std::shared_ptr<std::chrono::milliseconds> now_ =
        std::make_shared<std::chrono::milliseconds>(0);
};

} // namespace kelvo::test
