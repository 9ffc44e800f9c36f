#pragma once

#include "Audio/MicFeatures.h"
#include "Audio/MicHop.h"
#include "DMX/DmxFrame.h"
#include "Support/MonotonicClock.h"

#include <QObject>

#include <cstdint>
#include <optional>
#include <vector>

namespace kelvo {

class EngineHost;

/// What the loop needs of the audio capture: hops queued on the main thread since the last tick.
class HopSource {
public:
    virtual ~HopSource() = default;
    virtual bool isCapturing() const = 0;
    virtual std::vector<MicHop> takePendingHops() = 0;
};

/// One engine step per call: drain the hops, run the classical chain, step the session, hand the
/// buffers on and then publish the meters. The 60 Hz timing lives elsewhere. Its signals are
/// emitted on the main thread, inside `tick`.
class EngineLoop : public QObject {
    Q_OBJECT
public:
    static constexpr double nominalDt = 1.0 / 60.0;
    static constexpr double minimumDt = 0.001;
    static constexpr int visualRefreshInterval = 5;
    static constexpr double silentHopSampleRate = 44100;
    /// After a stall, only the newest this many seconds of queued audio are fed; the engine
    /// would otherwise take seconds of music in one step and jump.
    static constexpr double maximumBacklogSeconds = 0.5;

    EngineLoop(EngineHost& engine, HopSource& hops, const MonotonicClock& clock,
               QObject* parent = nullptr);

    void tick();
    /// Called when the loop stops: the first tick after a restart uses the nominal dt.
    void forgetLastTickTime() { lastTickTime_.reset(); }

    std::uint64_t tickCount() const { return tickCount_; }
    double lastDt() const { return lastDt_; }
    const DmxFrame& lastEngineBuffers() const { return lastEngineBuffers_; }
    const MicBandTrace& micTrace() const { return micTrace_; }
    const BeatReadout& beatReadout() const { return beatReadout_; }
    /// Hops left out because they were older than the newest half second of a backlog.
    std::uint64_t droppedHops() const { return droppedHops_; }

    /// Drops all but the newest `maximumBacklogSeconds` of `hops`; returns how many went.
    static std::size_t capBacklog(std::vector<MicHop>& hops);

signals:
    void micTraceChanged(const kelvo::MicBandTrace& trace);
    void beatReadoutChanged(const kelvo::BeatReadout& beat);
    /// Every fifth tick that stepped, after `frameReady`: the plot and live scheme were resampled.
    void visualsRefreshed();
    /// Every tick, with the newest engine buffers (or the last ones when none came).
    void frameReady(const kelvo::DmxFrame& engineBuffers);

private:
    /// After a step that finished: the traces, the beat and, every fifth tick, the visuals.
    void publishMeters();

    EngineHost& engine_;
    HopSource& hops_;
    const MonotonicClock& clock_;

    std::optional<MonotonicClock::Duration> lastTickTime_;
    std::uint64_t tickCount_ = 0;
    std::uint64_t droppedHops_ = 0;
    double lastDt_ = nominalDt;
    DmxFrame lastEngineBuffers_;
    MicBandTrace micTrace_;
    BeatReadout beatReadout_;
};

} // namespace kelvo
