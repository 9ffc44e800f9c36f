#pragma once

#include "DMX/ArtNetDiscoveryState.h"
#include "DMX/ArtNetHealth.h"
#include "DMX/UDPTransportStatus.h"
#include "DMX/UniverseRoute.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// Everything one health tick looks at.
struct ArtNetHealthInputs {
    bool artnetEnabled = false;
    std::string artnetHost;
    std::vector<std::int64_t> mappedUniverses; ///< in route order, duplicates kept
    UDPTransportStatus transport;
    ArtNetDiscoveryState discovery;
    std::int64_t idleChecks = 0;        ///< ticks in a row without a new packet
    std::int64_t unconfirmedChecks = 0; ///< ticks in a row no node confirmed output
};

/// The rules that turn what the transport and discovery report into a diagnosis and a repair.
/// Pure: the monitor keeps the counters and the clock.
struct ArtNetDiagnosis {
    // Settling times: a fresh transport may stay unready for its first packets; a short
    // silence, the first poll cycles and a node's first seconds are given the benefit of doubt.
    static constexpr std::int64_t stalledAfterPackets = 60;
    static constexpr std::int64_t noDmxAfterIdleChecks = 2;
    static constexpr std::int64_t blockedAfterPollCycles = 3;
    static constexpr std::int64_t idleAfterUnconfirmedChecks = 6;

    /// The first rule that applies, in the fixed order from "disabled" to "streaming".
    static ArtNetHealth classify(const ArtNetHealthInputs& inputs);

    /// The node at `host` reports every mapped universe as transmitting.
    static bool nodeConfirmsOutput(const std::string& host,
                                   const std::vector<std::int64_t>& mappedUniverses,
                                   const ArtNetNodeList& nodes);

    /// Adopting the one node that answered, or renumbering to the universes the node drives.
    static std::optional<ArtNetAutoFix> autoFix(const ArtNetHealth& health);

    /// The k-th Art-Net route takes `universes[k]`; the rest stay as they are.
    static std::vector<UniverseRoute> remappedRoutes(std::vector<UniverseRoute> routes,
                                                     const std::vector<std::int64_t>& universes);
};

} // namespace kelvo
