#pragma once

#include "DMX/DmxFrame.h"

#include <QObject>

#include <cstdint>
#include <vector>

namespace kelvo {

/// The manual lighting desk: while live it owns the first 24 channels of one universe.
struct LightingDeskState {
    static constexpr std::size_t channelCount = 24;
    static constexpr std::size_t universeSize = 512;

    bool live = false;
    std::int64_t universe = 1;
    std::vector<double> levels = std::vector<double>(channelCount, 0.0); ///< 0...1 per channel
    double grandMaster = 1.0;
    bool blackout = false;

    friend bool operator==(const LightingDeskState&, const LightingDeskState&) = default;
};

/// Engine buffers with the desk laid over them. The desk's universe becomes a full 512-byte
/// buffer; blackout zeroes only the desk's 24 channels, by design.
DmxFrame mergeLightingDesk(const DmxFrame& engineBuffers, const LightingDeskState& desk);

/// The desk as the dashboard edits it, a field at a time; each field announces its own change
/// and a repeat announces nothing. Main thread only.
class LightingDesk : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    const LightingDeskState& state() const { return state_; }
    void setState(const LightingDeskState& state);
    void setLive(bool live);
    void setUniverse(std::int64_t universe);
    void setLevels(std::vector<double> levels);
    /// One fader: `channel` is 0-based; the level list grows to reach it. Others are ignored.
    void setLevel(int channel, double level);
    void setGrandMaster(double level);
    void setBlackout(bool blackout);

    DmxFrame merge(const DmxFrame& engineBuffers) const {
        return mergeLightingDesk(engineBuffers, state_);
    }

signals:
    void liveChanged();
    void universeChanged();
    void levelsChanged();
    void grandMasterChanged();
    void blackoutChanged();

private:
    LightingDeskState state_;
};

} // namespace kelvo
