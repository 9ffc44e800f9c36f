#pragma once

#include "Support/Timer.h"

#include <QString>

#include <chrono>
#include <functional>
#include <memory>

namespace kelvo {

/// Keeps the audio capture running for as long as the engine loop wants it: starts it, says why
/// when it cannot, and tries again every 2 s, so a venue machine that boots before its audio
/// server, or loses its interface for a while, starts listening again by itself. The loop never
/// waits for it: without capture it ticks on silent hops.
class CaptureKeeper {
public:
    static constexpr std::chrono::milliseconds retryInterval{2000};

    struct Hooks {
        /// Starts capture on the chosen input; throws `AudioInputException`.
        std::function<void()> startCapture;
        /// Capture runs, or its start is under way and will report by itself.
        std::function<bool()> isCapturingOrStarting;
        /// Capture cannot start: the operator-facing reason.
        std::function<void(const QString& reason)> unavailable;
    };

    CaptureKeeper(TimerFactory& timers, Hooks hooks);

    /// From now on capture is wanted: one attempt now, then one every `retryInterval` while it
    /// neither runs nor is starting. True when capture runs or is starting.
    bool keep();
    /// Capture is no longer wanted; no more attempts.
    void release();
    bool isKept() const { return kept_; }
    /// One attempt now, unless capture runs or is starting. True when it runs or is starting.
    bool attempt();

private:
    Hooks hooks_;
    std::unique_ptr<Timer> retry_;
    bool kept_ = false;
};

} // namespace kelvo
