#include "Engine/StoredOutputSettings.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using D = UniverseRoute::Destination;

TEST(StoredOutputSettings, RoutesRoundTripAndArtNetCountsOnlyOnceItsSwitchIsWritten) {
    test::TemporaryDirectory dir;
    BridgeSettings settings{
        std::make_unique<QSettings>(QString::fromStdString(dir / "s.ini"), QSettings::IniFormat),
        QUrl("https://cloud.example")};
    StoredOutputSettings store{settings};
    EXPECT_EQ(store.loadRoutes(), std::nullopt);
    const std::vector<UniverseRoute> routes = {{1, D::enttec()}, {2, D::artnet(5)}};
    store.saveRoutes(routes);
    EXPECT_EQ(store.loadRoutes(), routes);
    store.saveRoutes({});
    EXPECT_EQ(store.loadRoutes(), std::vector<UniverseRoute>{}) << "an empty table is a table";
    for (const char* bad : {"not json", R"([{"virtualUniverse":1}])"}) {
        settings.saveRoutesJSON(bad);
        EXPECT_EQ(store.loadRoutes(), std::nullopt) << bad;
    }

    settings.saveArtNetHost("10.0.0.9");
    EXPECT_EQ(store.loadArtNetConfig(), std::nullopt) << "the host alone does not count";
    store.saveArtNetEnabled(true);
    EXPECT_EQ(store.loadArtNetConfig(), (ArtNetConfig{true, "10.0.0.9"}));
}

} // namespace
} // namespace kelvo
