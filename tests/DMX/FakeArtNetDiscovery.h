#pragma once

#include "DMX/ArtNetDiscovery.h"
#include "DMX/UDPTransportStatus.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvo::test {

/// Discovery whose state the test sets; it records how it was aimed and started.
class FakeArtNetDiscovery final : public ArtNetDiscovering {
public:
    void start() override { ++starts; }
    void setUnicastTarget(std::optional<std::string> host) override { targets.push_back(host); }
    ArtNetDiscoveryState snapshot() const override { return state; }

    ArtNetDiscoveryState state;
    int starts = 0;
    std::vector<std::optional<std::string>> targets;
};

/// A transport whose association is up.
inline UDPTransportStatus readyTransport() {
    UDPTransportStatus status;
    status.isReady = true;
    status.stateDescription = "ready";
    return status;
}

/// A node as discovery reports it.
inline ArtNetNode artnetNode(std::string ip, std::vector<std::int64_t> outputs,
                             std::vector<std::int64_t> transmitting) {
    ArtNetNode node;
    node.ip = std::move(ip);
    node.mac = "02:00:00:00:00:" + node.ip.substr(node.ip.size() - 2);
    node.shortName = "Node";
    node.outputUniverses = std::move(outputs);
    node.transmittingUniverses = std::move(transmitting);
    return node;
}

} // namespace kelvo::test
