#pragma once

#include "DMX/ArtNetNode.h"

#include <chrono>
#include <cstdint>
#include <list>
#include <string>
#include <unordered_map>
#include <vector>

namespace kelvo {

/// The nodes discovery has heard, by identity (MAC text, else address), with the monotonic
/// time each was last heard. Bounded: past `capacity` the longest-silent node makes room, so a
/// flood of replies (or a node inventing a new MAC every second) cannot grow memory.
class ArtNetDiscoveryNodes {
public:
    using Time = std::chrono::nanoseconds;

    explicit ArtNetDiscoveryNodes(std::size_t capacity) : capacity_(capacity) {}

    /// Stores the node; true when readers must be told (new, or anything but `lastSeen` changed).
    bool record(ArtNetNode node, Time heardAt);
    /// Forgets nodes not heard since `cutoff` or earlier; true when any went.
    bool expire(Time cutoff);

    /// The nodes sorted by address as text, then by identity.
    std::vector<ArtNetNode> sortedByAddress() const;
    std::size_t size() const { return byIdentity_.size(); }
    /// Nodes pushed out to stay within capacity, since construction.
    std::uint64_t evicted() const { return evicted_; }

private:
    struct Entry {
        ArtNetNode node;
        Time heardAt;
        std::list<std::string>::iterator age; ///< position in `byAge_`
    };

    std::size_t capacity_;
    std::unordered_map<std::string, Entry> byIdentity_;
    std::list<std::string> byAge_; ///< identities, longest silent first
    std::uint64_t evicted_ = 0;
};

} // namespace kelvo
