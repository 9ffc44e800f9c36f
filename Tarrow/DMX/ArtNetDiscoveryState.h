#pragma once

#include "DMX/ArtNetNode.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelvo {

/// An immutable list of nodes whose copies share one storage, so the health tick can take the
/// discovery's list (and keep it inside a diagnosis) without copying thousands of records.
class ArtNetNodeList {
public:
    ArtNetNodeList() = default;
    explicit ArtNetNodeList(std::vector<ArtNetNode> nodes)
        : nodes_(nodes.empty()
                     ? nullptr
                     : std::make_shared<const std::vector<ArtNetNode>>(std::move(nodes))) {}

    const std::vector<ArtNetNode>& items() const { return nodes_ ? *nodes_ : empty(); }
    std::size_t size() const { return items().size(); }
    bool isEmpty() const { return items().empty(); }
    auto begin() const { return items().begin(); }
    auto end() const { return items().end(); }
    const ArtNetNode& operator[](std::size_t i) const { return items()[i]; }

    friend bool operator==(const ArtNetNodeList& a, const ArtNetNodeList& b) {
        return a.nodes_ == b.nodes_ || a.items() == b.items();
    }

private:
    static const std::vector<ArtNetNode>& empty() {
        static const std::vector<ArtNetNode> none;
        return none;
    }

    std::shared_ptr<const std::vector<ArtNetNode>> nodes_;
};

/// What discovery knows, copied whole by readers.
struct ArtNetDiscoveryState {
    ArtNetNodeList nodes;         ///< sorted by `ip` as text
    bool heardAnyTraffic = false; ///< any datagram at all arrived since start
    std::int64_t pollCycles = 0;
    std::optional<std::string> failureReason; ///< why the socket could not be opened

    friend bool operator==(const ArtNetDiscoveryState&, const ArtNetDiscoveryState&) = default;
};

} // namespace kelvo
