#include "DMX/ArtNetHealthMonitor.h"

#include "FakeArtNetDiscovery.h"
#include "support/QtEventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using H = ArtNetHealth;
using test::artnetNode;
using test::FakeArtNetDiscovery;
using testing::ElementsAre;

class ArtNetHealthMonitorTest : public testing::Test {
protected:
    ArtNetHealthMonitorTest() {
        test::qtApplication();
        QObject::connect(&monitor, &ArtNetHealthMonitor::healthChanged,
                         [this] { ++healthChanges; });
        QObject::connect(&monitor, &ArtNetHealthMonitor::packetsPerSecondChanged,
                         [this] { ++rateChanges; });
        QObject::connect(&monitor, &ArtNetHealthMonitor::discoveryStateChanged,
                         [this] { ++stateChanges; });
    }

    /// One tick after `packets` more ArtDmx went out.
    void tick(std::int64_t packets) {
        transport.packetsSent += packets;
        monitor.refresh();
    }

    FakeArtNetDiscovery discovery;
    UDPTransportStatus transport = test::readyTransport();
    ArtNetOutputView settings{
        .enabled = true, .host = "10.0.0.5", .autoFix = true, .mappedUniverses = {0, 1}};
    ArtNetHealthMonitor monitor{discovery, [this] { return transport; },
                                [this] { return settings; }};
    int healthChanges = 0;
    int rateChanges = 0;
    int stateChanges = 0;
};

TEST_F(ArtNetHealthMonitorTest, StartsOnceAimedAtTheHostWhileOutputIsOn) {
    monitor.start();
    settings.host = "10.0.0.6";
    monitor.start();
    EXPECT_EQ(discovery.starts, 1);
    EXPECT_THAT(discovery.targets, ElementsAre("10.0.0.5"));
    EXPECT_TRUE(monitor.isStarted());

    FakeArtNetDiscovery off;
    settings.enabled = false;
    ArtNetHealthMonitor idle(
        off, [this] { return transport; }, [this] { return settings; });
    idle.start();
    EXPECT_THAT(off.targets, ElementsAre(std::nullopt));
}

TEST_F(ArtNetHealthMonitorTest, RateAndStateArePublishedOnlyWhenTheyChange) {
    discovery.state.nodes = ArtNetNodeList({artnetNode("10.0.0.5", {0, 1}, {0, 1})});
    tick(120);
    tick(120);
    EXPECT_EQ(monitor.packetsPerSecond(), 120);
    EXPECT_EQ(rateChanges, 1);
    EXPECT_EQ(stateChanges, 1);
    EXPECT_EQ(healthChanges, 1);
    EXPECT_TRUE(monitor.health().is<H::Streaming>());

    tick(0); // one silent second is tolerated
    EXPECT_TRUE(monitor.health().is<H::Streaming>());
    tick(0);
    EXPECT_EQ(monitor.health(), (ArtNetHealth{H::NoDmxGenerated{{0, 1}}}));
    EXPECT_EQ(rateChanges, 2);
    tick(60);
    EXPECT_EQ(monitor.idleChecks(), 0);
    EXPECT_TRUE(monitor.health().is<H::Streaming>());
}

TEST_F(ArtNetHealthMonitorTest, ANodeWhosePortsNeverTransmitIsIdleOnTheSixthTick) {
    discovery.state.nodes = ArtNetNodeList({artnetNode("10.0.0.5", {0, 1}, {})});
    for (int second = 1; second <= 6; ++second) {
        tick(60);
        EXPECT_EQ(monitor.health().is<H::NodeNotOutputting>(), second == 6) << second;
    }
}

} // namespace
} // namespace kelvo
