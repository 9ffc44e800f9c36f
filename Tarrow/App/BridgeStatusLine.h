#pragma once

#include "Audio/MicFeatures.h"

#include <cstdint>
#include <string>

namespace kelvo {

/// One second of the bridge, as the headless status line shows it.
struct BridgeStatusSample {
    double seconds = 1.0;    ///< length of the interval
    std::uint64_t ticks = 0; ///< engine ticks in the interval
    BeatReadout beat;
    std::string dropStatus;
    std::uint64_t artnetPackets = 0; ///< ArtDmx packets in the interval
    std::string artnetHealth;        ///< the health headline, shown beside the rate
    std::uint64_t enttecFrames = 0;  ///< widget frames in the interval
    bool capturing = false;
    bool recording = false;
    /// The cloud link's state ("connected", …); empty without a cloud link.
    std::string connectionStatus;
    std::string statusMessage;
};

/// "60.0 ticks/s · 124.0 BPM · beat 57 · drop listening · Art-Net 120/s (Rack · 2 universes) ·
/// Enttec 0/s · …"
std::string formatBridgeStatusLine(const BridgeStatusSample& sample);

} // namespace kelvo
