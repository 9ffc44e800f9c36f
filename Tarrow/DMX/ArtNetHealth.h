#pragma once

#include "DMX/ArtNetDiscoveryState.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kelvo {

/// Art-Net delivery as the health monitor judges it, with the operator's headline and
/// explanation. Cases are declared in their system order.
struct ArtNetHealth {
    struct NoDmxGenerated {
        std::vector<std::int64_t> universes;
        friend bool operator==(const NoDmxGenerated&, const NoDmxGenerated&) = default;
    };
    struct TransportStalled {
        std::string state;
        std::optional<std::string> detail;
        friend bool operator==(const TransportStalled&, const TransportStalled&) = default;
    };
    struct DiscoveryUnavailable {
        std::string reason;
        friend bool operator==(const DiscoveryUnavailable&, const DiscoveryUnavailable&) = default;
    };
    struct Searching {
        std::string host;
        friend bool operator==(const Searching&, const Searching&) = default;
    };
    struct HostSilent {
        std::string host;
        ArtNetNodeList discovered;
        friend bool operator==(const HostSilent&, const HostSilent&) = default;
    };
    struct UniverseMismatch {
        ArtNetNode node;
        std::vector<std::int64_t> sending;
        friend bool operator==(const UniverseMismatch&, const UniverseMismatch&) = default;
    };
    struct NodeNotOutputting {
        ArtNetNode node;
        std::vector<std::int64_t> universes;
        friend bool operator==(const NodeNotOutputting&, const NodeNotOutputting&) = default;
    };
    struct Streaming {
        ArtNetNode node;
        std::vector<std::int64_t> universes;
        friend bool operator==(const Streaming&, const Streaming&) = default;
    };
    struct Disabled {
        friend bool operator==(const Disabled&, const Disabled&) = default;
    };
    struct NoUniversesMapped {
        friend bool operator==(const NoUniversesMapped&, const NoUniversesMapped&) = default;
    };
    struct DiscoveryBlocked {
        friend bool operator==(const DiscoveryBlocked&, const DiscoveryBlocked&) = default;
    };

    using Case = std::variant<NoDmxGenerated, TransportStalled, DiscoveryUnavailable, Searching,
                              HostSilent, UniverseMismatch, NodeNotOutputting, Streaming, Disabled,
                              NoUniversesMapped, DiscoveryBlocked>;

    Case value = Disabled{};

    template <typename T> bool is() const { return std::holds_alternative<T>(value); }
    template <typename T> const T* as() const { return std::get_if<T>(&value); }

    /// The case's name as the system spells it ("hostSilent"), for the dashboard.
    std::string caseName() const;
    std::string headline() const;
    std::string detail() const;

    friend bool operator==(const ArtNetHealth&, const ArtNetHealth&) = default;
};

/// A concrete repair for a diagnosis.
struct ArtNetAutoFix {
    /// Marks a repair the monitor made by itself.
    static constexpr const char* automaticPrefix = "Auto: ";

    /// Point the output at the one node that answered.
    struct AdoptHost {
        std::string host;
        friend bool operator==(const AdoptHost&, const AdoptHost&) = default;
    };
    /// Renumber the Art-Net routes, in order, to the universes the node drives.
    struct RemapUniverses {
        std::vector<std::int64_t> universes;
        friend bool operator==(const RemapUniverses&, const RemapUniverses&) = default;
    };

    std::variant<AdoptHost, RemapUniverses> value;

    std::string summary() const;

    friend bool operator==(const ArtNetAutoFix&, const ArtNetAutoFix&) = default;
};

/// A node as the operator knows it: its short name, or its address when it gives none.
std::string artnetNodeName(const ArtNetNode& node);
/// "0, 1, 7", or "none".
std::string artnetUniverseList(const std::vector<std::int64_t>& universes);

} // namespace kelvo
