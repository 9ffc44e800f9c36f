#include "DMX/ArtNetDiagnosis.h"

#include <algorithm>

namespace kelvo {

namespace {

const ArtNetNode* nodeAt(const std::string& host, const ArtNetNodeList& nodes) {
    const auto found = std::find_if(nodes.begin(), nodes.end(),
                                    [&](const ArtNetNode& node) { return node.ip == host; });
    return found == nodes.end() ? nullptr : &*found;
}

bool contains(const std::vector<std::int64_t>& list, std::int64_t value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

} // namespace

ArtNetHealth ArtNetDiagnosis::classify(const ArtNetHealthInputs& in) {
    using H = ArtNetHealth;
    const std::vector<std::int64_t>& mapped = in.mappedUniverses;
    if (!in.artnetEnabled)
        return {H::Disabled{}};
    if (mapped.empty())
        return {H::NoUniversesMapped{}};
    if (in.idleChecks >= noDmxAfterIdleChecks)
        return {H::NoDmxGenerated{mapped}};
    if (!in.transport.isReady && in.transport.packetsSent > stalledAfterPackets)
        return {H::TransportStalled{in.transport.stateDescription, in.transport.lastError}};
    if (in.discovery.failureReason)
        return {H::DiscoveryUnavailable{*in.discovery.failureReason}};
    if (!in.discovery.heardAnyTraffic && in.discovery.pollCycles >= blockedAfterPollCycles)
        return {H::DiscoveryBlocked{}};
    if (in.discovery.nodes.isEmpty())
        return {H::Searching{in.artnetHost}};
    const ArtNetNode* node = nodeAt(in.artnetHost, in.discovery.nodes);
    if (!node)
        return {H::HostSilent{in.artnetHost, in.discovery.nodes}};
    const bool missing = std::any_of(mapped.begin(), mapped.end(), [&](std::int64_t universe) {
        return !contains(node->outputUniverses, universe);
    });
    if (missing)
        return {H::UniverseMismatch{*node, mapped}};
    if (in.unconfirmedChecks >= idleAfterUnconfirmedChecks)
        return {H::NodeNotOutputting{*node, mapped}};
    return {H::Streaming{*node, mapped}};
}

bool ArtNetDiagnosis::nodeConfirmsOutput(const std::string& host,
                                         const std::vector<std::int64_t>& mappedUniverses,
                                         const ArtNetNodeList& nodes) {
    const ArtNetNode* node = nodeAt(host, nodes);
    if (!node)
        return false;
    return std::all_of(mappedUniverses.begin(), mappedUniverses.end(), [&](std::int64_t universe) {
        return contains(node->transmittingUniverses, universe);
    });
}

std::optional<ArtNetAutoFix> ArtNetDiagnosis::autoFix(const ArtNetHealth& health) {
    if (const auto* silent = health.as<ArtNetHealth::HostSilent>()) {
        if (silent->discovered.size() == 1)
            return ArtNetAutoFix{ArtNetAutoFix::AdoptHost{silent->discovered[0].ip}};
        return std::nullopt;
    }
    if (const auto* mismatch = health.as<ArtNetHealth::UniverseMismatch>()) {
        const std::vector<std::int64_t>& outputs = mismatch->node.outputUniverses;
        const std::size_t wanted = mismatch->sending.size();
        if (outputs.size() < wanted)
            return std::nullopt;
        return ArtNetAutoFix{ArtNetAutoFix::RemapUniverses{
            {outputs.begin(), outputs.begin() + static_cast<std::ptrdiff_t>(wanted)}}};
    }
    return std::nullopt;
}

std::vector<UniverseRoute>
ArtNetDiagnosis::remappedRoutes(std::vector<UniverseRoute> routes,
                                const std::vector<std::int64_t>& universes) {
    std::size_t next = 0;
    for (UniverseRoute& route : routes) {
        if (!route.destination.isArtNet() || next >= universes.size())
            continue;
        route.destination.universe = universes[next++];
    }
    return routes;
}

} // namespace kelvo
