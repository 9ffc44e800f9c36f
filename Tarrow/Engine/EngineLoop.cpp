#include "Engine/EngineLoop.h"

#include "Engine/EngineHost.h"

#include <QLoggingCategory>

#include <algorithm>
#include <functional>

namespace kelvo {

namespace {

Q_LOGGING_CATEGORY(lcEngineLoop, "kelvo.engine")

/// Pushes one level; false when the trace came out as it was (a full trace of equal values
/// receiving that value again, as in long silence).
bool pushTrace(std::vector<double>& trace, double level) {
    const bool wasFull = trace.size() >= MicBandTrace::capacity;
    const double dropped = wasFull ? trace.front() : 0.0;
    MicBandTrace::push(trace, level);
    if (!wasFull)
        return true;
    return dropped != trace.back() ||
           std::adjacent_find(trace.begin(), trace.end(), std::not_equal_to<>()) != trace.end();
}

} // namespace

std::size_t EngineLoop::capBacklog(std::vector<MicHop>& hops) {
    double seconds = 0;
    std::size_t kept = 0;
    for (auto hop = hops.rbegin(); hop != hops.rend(); ++hop, ++kept) {
        seconds += hop->dt;
        if (seconds > maximumBacklogSeconds + 1e-9)
            break;
    }
    const std::size_t dropped = hops.size() - kept;
    hops.erase(hops.begin(), hops.begin() + static_cast<std::ptrdiff_t>(dropped));
    return dropped;
}

EngineLoop::EngineLoop(EngineHost& engine, HopSource& hops, const MonotonicClock& clock,
                       QObject* parent)
    : QObject(parent), engine_(engine), hops_(hops), clock_(clock) {}

void EngineLoop::tick() {
    const MonotonicClock::Duration now = clock_.now();
    double dt = nominalDt;
    if (lastTickTime_)
        dt = std::max(std::chrono::duration<double>(now - *lastTickTime_).count(), minimumDt);
    lastTickTime_ = now;
    lastDt_ = dt;
    ++tickCount_;

    bool stepped = false;
    if (engine_.hasRealizedShow()) {
        std::optional<std::string> frame;
        if (!hops_.isCapturing()) {
            // Silence keeps the beat tracker and the director moving.
            const MicHop silent{BandDecibelLevels::silent(), dt, {}, silentHopSampleRate};
            frame = engine_.updateClassical(std::span<const MicHop>(&silent, 1));
        } else {
            std::vector<MicHop> hops = hops_.takePendingHops();
            if (const std::size_t dropped = capBacklog(hops)) {
                droppedHops_ += dropped;
                qCWarning(lcEngineLoop)
                    << "Engine loop: left out" << dropped << "hops of audio queued during a stall";
            }
            frame = hops.empty() ? engine_.latestFrameJSON() : engine_.updateClassical(hops);
        }
        if (frame) {
            if (auto buffers = engine_.step(*frame, dt, false)) {
                lastEngineBuffers_ = std::move(*buffers);
                stepped = true;
            }
        }
    } else if (hops_.isCapturing()) {
        // Without a show nobody reads the hops; drop them rather than let them pile up.
        hops_.takePendingHops();
    }
    // The lights first: whatever the meters and the visuals cost comes after the send.
    emit frameReady(lastEngineBuffers_);
    if (stepped)
        publishMeters();
}

void EngineLoop::publishMeters() {
    const MicBands& bands = engine_.lastNormalizedBands();
    const bool lowMoved = pushTrace(micTrace_.low, bands.low);
    const bool midMoved = pushTrace(micTrace_.mid, bands.mid);
    const bool highMoved = pushTrace(micTrace_.high, bands.high);
    if (lowMoved || midMoved || highMoved)
        emit micTraceChanged(micTrace_);
    if (engine_.lastBeat() != beatReadout_) {
        beatReadout_ = engine_.lastBeat();
        emit beatReadoutChanged(beatReadout_);
    }
    if (tickCount_ % visualRefreshInterval == 0) {
        engine_.refreshVisuals();
        emit visualsRefreshed();
    }
}

} // namespace kelvo
