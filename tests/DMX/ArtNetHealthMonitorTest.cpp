#include "DMX/ArtNetHealthMonitor.h"

#include "FakeArtNetDiscovery.h"
#include "support/QtEventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvo {
namespace {

using H = ArtNetHealth;
using test::artnetNode;
using testing::ElementsAre;

struct Rig {
    Rig() {
        test::qtApplication();
        for (auto signal :
             {&ArtNetHealthMonitor::healthChanged, &ArtNetHealthMonitor::packetsPerSecondChanged,
              &ArtNetHealthMonitor::discoveryStateChanged})
            QObject::connect(&monitor, signal, [this] { ++changes; });
    }
    /// One tick after `packets` more ArtDmx went out.
    void tick(std::int64_t packets) {
        transport.packetsSent += packets;
        monitor.refresh();
    }

    test::FakeArtNetDiscovery discovery;
    UDPTransportStatus transport = test::readyTransport();
    ArtNetOutputView settings{
        .enabled = true, .host = "10.0.0.5", .autoFix = true, .mappedUniverses = {0, 1}};
    ArtNetHealthMonitor monitor{discovery, [this] { return transport; },
                                [this] { return settings; }};
    int changes = 0; ///< of health, rate and discovery state together
};

TEST(ArtNetHealthMonitor, StartsOnceAimedAtTheHostWhileOutputIsOn) {
    Rig on, off;
    on.monitor.start();
    on.settings.host = "10.0.0.6";
    on.monitor.start();
    EXPECT_EQ(on.discovery.starts, 1);
    EXPECT_THAT(on.discovery.targets, ElementsAre("10.0.0.5"));
    off.settings.enabled = false;
    off.monitor.start();
    EXPECT_THAT(off.discovery.targets, ElementsAre(std::nullopt));
}

TEST(ArtNetHealthMonitor, CountsSilentAndUnconfirmedTicksAndPublishesOnlyChanges) {
    Rig rig;
    rig.discovery.state.nodes = ArtNetNodeList({artnetNode("10.0.0.5", {0, 1}, {0, 1})});
    rig.tick(120);
    rig.tick(120);
    EXPECT_EQ(rig.monitor.packetsPerSecond(), 120);
    EXPECT_TRUE(rig.monitor.health().is<H::Streaming>());
    EXPECT_EQ(rig.changes, 3) << "health, rate and discovery state, once each";
    rig.tick(0); // one silent second is tolerated
    EXPECT_TRUE(rig.monitor.health().is<H::Streaming>());
    rig.tick(0);
    EXPECT_EQ(rig.monitor.health(), (ArtNetHealth{H::NoDmxGenerated{{0, 1}}}));
    EXPECT_EQ(rig.changes, 5) << "the rate once, then the health once";

    // Packets again, but the node's ports never transmit: idle on the sixth tick.
    rig.discovery.state.nodes = ArtNetNodeList({artnetNode("10.0.0.5", {0, 1}, {})});
    for (int second = 1; second <= 6; ++second) {
        rig.tick(60);
        EXPECT_TRUE(rig.monitor.health().is<H::NodeNotOutputting>() == (second == 6) &&
                    (second == 6 || rig.monitor.health().is<H::Streaming>()))
            << second << ": " << rig.monitor.health().caseName();
    }
}

} // namespace
} // namespace kelvo
