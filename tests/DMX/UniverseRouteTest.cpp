#include "DMX/UniverseRoute.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using D = UniverseRoute::Destination;

TEST(UniverseRouteJson, RoundTripsEveryCaseAndReadsTheDocumentedFormWithExtraKeys) {
    const std::vector<UniverseRoute> routes = {
        {1, D::enttec()}, {2, D::artnet(0)}, {7, D::artnet(32767)}, {3, D::unmapped()}};
    EXPECT_EQ(decodeUniverseRoutes(encodeUniverseRoutes(routes)), routes);
    EXPECT_EQ(decodeUniverseRoutes(
                  R"([{"virtualUniverse":2,"destination":{"artnet":{"universe":0}}},
                      {"virtualUniverse":1,"destination":{"enttec":{}}},
                      {"virtualUniverse":3,"destination":{"unmapped":{}}},
                      {"virtualUniverse":4.0,"note":"x","destination":{"artnet":{"universe":4,"x":1}}}])"),
              (std::vector<UniverseRoute>{
                  {2, D::artnet(0)}, {1, D::enttec()}, {3, D::unmapped()}, {4, D::artnet(4)}}));
}

TEST(UniverseRouteJson, AnyBadEntryDiscardsTheWholeList) {
    for (const char* json :
         {R"([{"virtualUniverse":1,"destination":{}}])",
          R"([{"virtualUniverse":1,"destination":{"enttec":{},"unmapped":{}}}])"}) {
        std::string error;
        EXPECT_EQ(decodeUniverseRoutes(json, &error), std::nullopt) << json;
        EXPECT_EQ(error, "Invalid number of keys found, expected one.");
    }
    const char* hostile[] = {
        "",
        "{",
        R"({"virtualUniverse":1})",
        R"([{"virtualUniverse":1,"destination":{"dmx":{}}}])",
        R"([{"virtualUniverse":"1","destination":{"enttec":{}}}])",
        R"([{"virtualUniverse":1.5,"destination":{"enttec":{}}}])",
        R"([{"destination":{"enttec":{}}}])",
        R"([{"virtualUniverse":1}])",
        R"([{"virtualUniverse":1,"destination":{"artnet":{}}}])",
        R"([{"virtualUniverse":1,"destination":{"artnet":{"universe":true}}}])",
        R"([{"virtualUniverse":1,"destination":{"artnet":3}}])",
        R"([{"virtualUniverse":1,"destination":["artnet"]}])",
        R"([{"virtualUniverse":1,"destination":{"enttec":{}}}, 5])",
        R"([{"virtualUniverse":1e30,"destination":{"enttec":{}}}])",
        R"([{"virtualUniverse":18446744073709551615,"destination":{"enttec":{}}}])",
        R"([{"virtualUniverse":1,"destination":{"artnet":{"universe":9223372036854775808}}}])",
    };
    for (const char* json : hostile) {
        std::string error;
        EXPECT_EQ(decodeUniverseRoutes(json, &error), std::nullopt) << json;
        EXPECT_FALSE(error.empty()) << json;
    }
}

TEST(UniverseRouteTable, MappedUniversesKeepTableOrderAndRepeats) {
    EXPECT_TRUE(mappedArtNetUniverses({}).empty());
    const std::vector<UniverseRoute> routes = {
        {1, D::artnet(5)}, {2, D::enttec()}, {3, D::artnet(1)}, {4, D::artnet(5)}};
    EXPECT_EQ(mappedArtNetUniverses(routes), (std::vector<std::int64_t>{5, 1, 5}));
}

TEST(UniverseRouteDesk, DescribesTheFirstMatchingRoute) {
    const std::vector<UniverseRoute> routes = {
        {1, D::enttec()}, {2, D::artnet(12)}, {2, D::enttec()}, {3, D::unmapped()}};
    EXPECT_EQ(routeDescription(routes, 2), "Art-Net 12");
    EXPECT_EQ(routeDescription(routes, 1), "Enttec");
    EXPECT_EQ(routeDescription(routes, 3), "unmapped (no output)");
    EXPECT_EQ(routeDescription(routes, 9), "unknown");
    EXPECT_EQ(deskRouteStatusLine(routes, 2, false),
              "Idle · virtual universe 2 → Art-Net 12 (enable Live to take over)");
    EXPECT_EQ(deskRouteStatusLine(routes, 1, true), "Live · virtual universe 1 → Enttec");
}

} // namespace
} // namespace kelvo
