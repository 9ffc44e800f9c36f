#include "Engine/EngineLoop.h"

#include "Engine/EngineHost.h"

#include <algorithm>

namespace kelvo {

EngineLoop::EngineLoop(EngineHost& engine, HopSource& hops, const MonotonicClock& clock,
                       EngineLoopListener& listener)
    : engine_(engine), hops_(hops), clock_(clock), listener_(listener) {}

void EngineLoop::tick() {
    const MonotonicClock::Duration now = clock_.now();
    double dt = nominalDt;
    if (lastTickTime_)
        dt = std::max(std::chrono::duration<double>(now - *lastTickTime_).count(), minimumDt);
    lastTickTime_ = now;
    lastDt_ = dt;
    ++tickCount_;

    if (engine_.hasRealizedShow()) {
        std::optional<std::string> frame;
        if (!hops_.isCapturing()) {
            // Silence keeps the beat tracker and the director moving.
            const MicHop silent{BandDecibelLevels::silent(), dt, {}, silentHopSampleRate};
            frame = engine_.updateClassical(std::span<const MicHop>(&silent, 1));
        } else {
            const std::vector<MicHop> hops = hops_.takePendingHops();
            frame = hops.empty() ? engine_.latestFrameJSON() : engine_.updateClassical(hops);
        }
        if (frame) {
            const bool refresh = tickCount_ % visualRefreshInterval == 0;
            if (auto buffers = engine_.step(*frame, dt, refresh)) {
                const MicBands& bands = engine_.lastNormalizedBands();
                MicBandTrace::push(micTrace_.low, bands.low);
                MicBandTrace::push(micTrace_.mid, bands.mid);
                MicBandTrace::push(micTrace_.high, bands.high);
                listener_.micTraceChanged(micTrace_);
                if (engine_.lastBeat() != beatReadout_) {
                    beatReadout_ = engine_.lastBeat();
                    listener_.beatReadoutChanged(beatReadout_);
                }
                if (refresh)
                    listener_.visualsRefreshed();
                lastEngineBuffers_ = std::move(*buffers);
            }
        }
    } else if (hops_.isCapturing()) {
        // Without a show nobody reads the hops; drop them rather than let them pile up.
        hops_.takePendingHops();
    }
    listener_.outputFrame(lastEngineBuffers_);
}

} // namespace kelvo
