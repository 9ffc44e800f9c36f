#include "Engine/StoredOutputSettings.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using D = UniverseRoute::Destination;

class StoredOutputSettingsTest : public testing::Test {
protected:
    test::TemporaryDirectory dir;
    BridgeSettings settings{
        std::make_unique<QSettings>(QString::fromStdString(dir / "s.ini"), QSettings::IniFormat),
        QUrl("https://cloud.example")};
    StoredOutputSettings store{settings};
};

TEST_F(StoredOutputSettingsTest, RoutesRoundTripAndUndecodableOnesAreAbsent) {
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
}

TEST_F(StoredOutputSettingsTest, ArtNetConfigCountsOnlyOnceTheSwitchIsWritten) {
    store.saveArtNetEnabled(true);
    EXPECT_EQ(store.loadArtNetConfig(), (ArtNetConfig{true, "127.0.0.1"})) << "no host stored";
    settings.saveArtNetHost("10.0.0.9");
    EXPECT_EQ(store.loadArtNetConfig(), (ArtNetConfig{true, "10.0.0.9"}));

    BridgeSettings other{std::make_unique<QSettings>(QString::fromStdString(dir / "other.ini"),
                                                     QSettings::IniFormat),
                         QUrl("https://cloud.example")};
    other.saveArtNetHost("10.0.0.9");
    EXPECT_EQ(StoredOutputSettings(other).loadArtNetConfig(), std::nullopt)
        << "the host alone does not count";
}

} // namespace
} // namespace kelvo
