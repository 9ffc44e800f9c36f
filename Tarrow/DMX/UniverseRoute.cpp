#include "DMX/UniverseRoute.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace kelvo {

namespace {

constexpr const char* invalidKeyCountMessage = "Invalid number of keys found, expected one.";

struct DecodeFailure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::int64_t integerField(const nlohmann::json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end())
        throw DecodeFailure(std::string("No value associated with key \"") + key + "\".");
    // Above the signed range an unsigned number would wrap: it is no universe.
    if (it->is_number_unsigned() &&
        it->get<std::uint64_t>() > std::uint64_t(std::numeric_limits<std::int64_t>::max()))
        throw DecodeFailure(std::string("Number out of range for key \"") + key + "\".");
    if (it->is_number_integer())
        return it->get<std::int64_t>();
    if (it->is_number_float()) {
        // An integral float such as 2.0 decodes; 2.5 does not.
        const double value = it->get<double>();
        if (std::trunc(value) == value && value >= -9223372036854775808.0 &&
            value < 9223372036854775808.0)
            return static_cast<std::int64_t>(value);
    }
    throw DecodeFailure(std::string("Expected an integer for key \"") + key + "\".");
}

UniverseRoute::Destination decodeDestination(const nlohmann::json& object) {
    if (!object.is_object())
        throw DecodeFailure("Expected an object for the destination.");
    if (object.size() != 1)
        throw DecodeFailure(invalidKeyCountMessage);
    const auto entry = object.begin();
    const std::string& key = entry.key();
    const nlohmann::json& payload = entry.value();
    if (!payload.is_object())
        throw DecodeFailure("Expected an object for destination \"" + key + "\".");
    if (key == "artnet")
        return UniverseRoute::Destination::artnet(integerField(payload, "universe"));
    if (key == "enttec")
        return UniverseRoute::Destination::enttec();
    if (key == "unmapped")
        return UniverseRoute::Destination::unmapped();
    throw DecodeFailure("Unknown destination \"" + key + "\".");
}

nlohmann::json encodeDestination(const UniverseRoute::Destination& destination) {
    using Kind = UniverseRoute::Destination::Kind;
    switch (destination.kind) {
    case Kind::artnet:
        return {{"artnet", {{"universe", destination.universe}}}};
    case Kind::enttec:
        return {{"enttec", nlohmann::json::object()}};
    case Kind::unmapped:
        break;
    }
    return {{"unmapped", nlohmann::json::object()}};
}

} // namespace

std::vector<UniverseRoute> defaultUniverseRoutes() {
    using D = UniverseRoute::Destination;
    return {{1, D::enttec()}, {2, D::artnet(0)}, {3, D::unmapped()}, {4, D::unmapped()}};
}

std::string encodeUniverseRoutes(const std::vector<UniverseRoute>& routes) {
    nlohmann::json array = nlohmann::json::array();
    for (const UniverseRoute& route : routes)
        array.push_back({{"virtualUniverse", route.virtualUniverse},
                         {"destination", encodeDestination(route.destination)}});
    return array.dump();
}

std::optional<std::vector<UniverseRoute>> decodeUniverseRoutes(std::string_view json,
                                                               std::string* error) {
    try {
        const nlohmann::json array = nlohmann::json::parse(json);
        if (!array.is_array())
            throw DecodeFailure("Expected an array of routes.");
        std::vector<UniverseRoute> routes;
        routes.reserve(array.size());
        for (const nlohmann::json& object : array) {
            if (!object.is_object())
                throw DecodeFailure("Expected an object for a route.");
            const auto destination = object.find("destination");
            if (destination == object.end())
                throw DecodeFailure("No value associated with key \"destination\".");
            routes.push_back(
                {integerField(object, "virtualUniverse"), decodeDestination(*destination)});
        }
        return routes;
    } catch (const std::exception& failure) {
        if (error)
            *error = failure.what();
        return std::nullopt;
    }
}

std::vector<std::int64_t> mappedArtNetUniverses(const std::vector<UniverseRoute>& routes) {
    std::vector<std::int64_t> universes;
    for (const UniverseRoute& route : routes)
        if (route.destination.isArtNet())
            universes.push_back(route.destination.universe);
    return universes;
}

std::string routeDescription(const std::vector<UniverseRoute>& routes,
                             std::int64_t virtualUniverse) {
    using Kind = UniverseRoute::Destination::Kind;
    for (const UniverseRoute& route : routes) {
        if (route.virtualUniverse != virtualUniverse)
            continue;
        switch (route.destination.kind) {
        case Kind::artnet:
            return "Art-Net " + std::to_string(route.destination.universe);
        case Kind::enttec:
            return "Enttec";
        case Kind::unmapped:
            return "unmapped (no output)";
        }
    }
    return "unknown";
}

std::string deskRouteStatusLine(const std::vector<UniverseRoute>& routes,
                                std::int64_t virtualUniverse, bool deskLive) {
    const std::string target = "virtual universe " + std::to_string(virtualUniverse) + " → " +
                               routeDescription(routes, virtualUniverse);
    return deskLive ? "Live · " + target : "Idle · " + target + " (enable Live to take over)";
}

} // namespace kelvo
