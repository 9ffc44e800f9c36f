#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// Where the engine's buffer for one virtual universe (1-based) goes.
struct UniverseRoute {
    struct Destination {
        // Declaration order is the order of the cases.
        enum class Kind { artnet, enttec, unmapped };

        Kind kind = Kind::unmapped;
        std::int64_t universe = 0; ///< Art-Net port-address (0-based); only meaningful for artnet

        static Destination artnet(std::int64_t universe) { return {Kind::artnet, universe}; }
        static Destination enttec() { return {Kind::enttec, 0}; }
        static Destination unmapped() { return {Kind::unmapped, 0}; }

        bool isArtNet() const { return kind == Kind::artnet; }

        friend bool operator==(const Destination& a, const Destination& b) {
            return a.kind == b.kind && (a.kind != Kind::artnet || a.universe == b.universe);
        }
    };

    std::int64_t virtualUniverse = 1;
    Destination destination;

    friend bool operator==(const UniverseRoute&, const UniverseRoute&) = default;
};

/// The table used when nothing is stored: 1 → Enttec, 2 → Art-Net 0, 3 and 4 unmapped.
std::vector<UniverseRoute> defaultUniverseRoutes();

/// Compact JSON array: [{"virtualUniverse":2,"destination":{"artnet":{"universe":0}}}, …].
std::string encodeUniverseRoutes(const std::vector<UniverseRoute>& routes);

/// Decodes a stored route list. Any failure makes the whole list absent; `error` (optional)
/// receives the reason.
std::optional<std::vector<UniverseRoute>> decodeUniverseRoutes(std::string_view json,
                                                               std::string* error = nullptr);

/// The `universe` of every Art-Net route, in route order, duplicates kept.
std::vector<std::int64_t> mappedArtNetUniverses(const std::vector<UniverseRoute>& routes);

/// "Art-Net 3", "Enttec", "unmapped (no output)", or "unknown" when no route names the universe.
std::string routeDescription(const std::vector<UniverseRoute>& routes,
                             std::int64_t virtualUniverse);

/// The lighting desk's status line for its selected virtual universe.
std::string deskRouteStatusLine(const std::vector<UniverseRoute>& routes,
                                std::int64_t virtualUniverse, bool deskLive);

} // namespace kelvo

template <> struct std::hash<kelvo::UniverseRoute::Destination> {
    std::size_t operator()(const kelvo::UniverseRoute::Destination& d) const noexcept {
        const std::size_t kind = std::hash<int>{}(static_cast<int>(d.kind));
        const std::int64_t universe = d.isArtNet() ? d.universe : 0;
        return kind ^ (std::hash<std::int64_t>{}(universe) + 0x9e3779b97f4a7c15ULL + (kind << 6));
    }
};

template <> struct std::hash<kelvo::UniverseRoute> {
    std::size_t operator()(const kelvo::UniverseRoute& r) const noexcept {
        const std::size_t head = std::hash<std::int64_t>{}(r.virtualUniverse);
        return head ^ (std::hash<kelvo::UniverseRoute::Destination>{}(r.destination) +
                       0x9e3779b97f4a7c15ULL + (head << 6));
    }
};
