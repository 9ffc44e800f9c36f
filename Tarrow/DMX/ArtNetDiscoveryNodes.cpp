#include "DMX/ArtNetDiscoveryNodes.h"

#include <algorithm>

namespace kelvo {

bool ArtNetDiscoveryNodes::record(ArtNetNode node, Time heardAt) {
    std::string identity = node.identity();
    if (const auto found = byIdentity_.find(identity); found != byIdentity_.end()) {
        Entry& entry = found->second;
        const ArtNetNode& old = entry.node;
        const bool changed = old.outputUniverses != node.outputUniverses ||
                             old.transmittingUniverses != node.transmittingUniverses ||
                             old.ip != node.ip || old.shortName != node.shortName;
        entry.node = std::move(node);
        entry.heardAt = heardAt;
        byAge_.splice(byAge_.end(), byAge_, entry.age);
        return changed;
    }
    if (capacity_ == 0)
        return false;
    if (byIdentity_.size() >= capacity_) {
        byIdentity_.erase(byAge_.front());
        byAge_.pop_front();
        ++evicted_;
    }
    byAge_.push_back(identity);
    byIdentity_.emplace(std::move(identity),
                        Entry{std::move(node), heardAt, std::prev(byAge_.end())});
    return true;
}

bool ArtNetDiscoveryNodes::expire(Time cutoff) {
    // A full sweep, once per poll cycle: right whatever order the heard times are in.
    const std::size_t before = byIdentity_.size();
    for (auto age = byAge_.begin(); age != byAge_.end();) {
        const auto entry = byIdentity_.find(*age);
        if (entry->second.heardAt > cutoff) {
            ++age;
            continue;
        }
        byIdentity_.erase(entry);
        age = byAge_.erase(age);
    }
    return byIdentity_.size() != before;
}

std::vector<ArtNetNode> ArtNetDiscoveryNodes::sortedByAddress() const {
    std::vector<ArtNetNode> nodes;
    nodes.reserve(byIdentity_.size());
    for (const auto& [identity, entry] : byIdentity_)
        nodes.push_back(entry.node);
    // Nodes sharing an address keep one order between publications, so an unchanged map
    // never reads as a change.
    std::sort(nodes.begin(), nodes.end(), [](const ArtNetNode& a, const ArtNetNode& b) {
        return a.ip != b.ip ? a.ip < b.ip : a.identity() < b.identity();
    });
    return nodes;
}

} // namespace kelvo
