#include "DMX/ArtNetHealth.h"
#include "DMX/ArtNetDiagnosis.h"
#include "DMX/ArtNetHealthMonitor.h"

#include "FakeArtNetDiscovery.h"
#include "support/QtEventLoop.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using H = ArtNetHealth;
using Fix = ArtNetAutoFix;
using Inputs = ArtNetHealthInputs;

ArtNetNode node(std::string ip, std::vector<std::int64_t> outputs,
                std::vector<std::int64_t> transmitting = {}, std::string name = "Node") {
    ArtNetNode n = test::artnetNode(std::move(ip), std::move(outputs), std::move(transmitting));
    n.shortName = std::move(name);
    return n;
}

// The fix summaries and the one-universe headline: olad_health_test.sh.
TEST(ArtNetHealthTexts, EveryCaseReadsExactly) {
    const ArtNetNode rack = node("10.0.0.9", {4, 5}, {}, "Rack 3");
    const ArtNetNode unnamed = node("10.0.0.10", {0}, {}, "");
    const struct {
        ArtNetHealth health;
        std::string headline, detail;
    } cases[] = {
        {{H::NoDmxGenerated{{0, 2}}},
         "No DMX to send",
         "Art-Net 0, 2 is mapped and the node is addressed correctly, but the engine has produced "
         "no DMX for those universes, so no packet has been sent. Check that a show is loaded "
         "and the lighting mode is not blacked out."},
        {{H::TransportStalled{"waiting", "Network is unreachable"}},
         "Not transmitting",
         "The UDP connection is waiting, so packets are being discarded before they reach the "
         "network. Rebuilding it. Last error: Network is unreachable"},
        {{H::DiscoveryUnavailable{"Socket gone."}},
         "Cannot verify output",
         "Socket gone. Art-Net is still being sent, but the bridge cannot confirm any node is "
         "receiving it."},
        {{H::Searching{"10.0.0.5"}},
         "No reply from 10.0.0.5",
         "Sending to 10.0.0.5, but no Art-Net node has answered an ArtPoll. Either nothing is "
         "listening at that address or the node is on a different subnet."},
        {{H::HostSilent{"10.0.0.5", ArtNetNodeList({unnamed, rack})}},
         "10.0.0.5 not responding",
         "Nothing answered at 10.0.0.5. Found instead: 10.0.0.10 at 10.0.0.10, Rack 3 at "
         "10.0.0.9."},
        {{H::UniverseMismatch{rack, {0, 1}}},
         "Universe mismatch",
         "Rack 3 at 10.0.0.9 drives Art-Net 4, 5, but the bridge is sending 0, 1. The node "
         "ignores universes it is not patched to, so its DMX ports stay dark."},
        {{H::NodeNotOutputting{rack, {4, 5}}},
         "Rack 3 ports idle",
         "Rack 3 at 10.0.0.9 is patched to Art-Net 4, 5 and packets are being sent, but it "
         "reports its DMX ports are not transmitting, so its port lights stay dark. Check the "
         "node is in Art-Net mode rather than sACN, and that its ports are enabled as outputs."},
        {{H::Streaming{rack, {4, 5}}},
         "Rack 3 · 2 universes",
         "Rack 3 at 10.0.0.9 confirms it is driving DMX on Art-Net 4, 5."},
        {{H::Disabled{}}, "Disabled", "Art-Net output is off. Nothing is being sent."},
        {{H::NoUniversesMapped{}},
         "No universes mapped",
         "Art-Net is enabled but every virtual universe routes elsewhere, so no packets are "
         "produced."},
        {{H::DiscoveryBlocked{}},
         "Local Network access needed",
         "Art-Net is being sent, but no inbound packet has arrived — not even this app's own "
         "ArtPoll broadcast. Grant Kelvo access under System Settings → Privacy & Security → "
         "Local Network so node replies can be read."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.health.caseName());
        EXPECT_EQ(c.health.headline(), c.headline);
        EXPECT_EQ(c.health.detail(), c.detail);
    }
}

const ArtNetNode other = node("10.0.0.9", {0, 1}), narrow = node("10.0.0.5", {0}),
                 wide = node("10.0.0.5", {0, 1, 2}, {0});

// Starts with every fault present at once and removes them one at a time: each step shows
// that a rule wins over every rule after it, and the boundary of each threshold.
TEST(ArtNetDiagnosisClassify, RulesApplyInTheirOrder) {
    Inputs in;
    in.artnetEnabled = false;
    in.artnetHost = "10.0.0.5";
    in.idleChecks = 2;
    in.transport = {.isReady = false,
                    .stateDescription = "waiting",
                    .packetsSent = 61,
                    .lastError = "Network is unreachable"};
    in.discovery.failureReason = "Art-Net discovery socket unavailable: x";
    in.discovery.pollCycles = 3;
    const auto expect = [&](const H& expected) {
        const ArtNetHealth health = ArtNetDiagnosis::classify(in);
        EXPECT_EQ(health, expected) << health.caseName() << ": " << health.detail();
    };
    expect({H::Disabled{}});
    in.artnetEnabled = true;
    expect({H::NoUniversesMapped{}});
    in.mappedUniverses = {0, 1};
    expect({H::NoDmxGenerated{{0, 1}}});
    in.idleChecks = 1;
    expect({H::TransportStalled{"waiting", "Network is unreachable"}});
    in.transport.packetsSent = 60;
    expect({H::DiscoveryUnavailable{"Art-Net discovery socket unavailable: x"}});
    in.transport.packetsSent = 6000;
    in.transport.isReady = true;
    expect({H::DiscoveryUnavailable{"Art-Net discovery socket unavailable: x"}});
    in.discovery.failureReason.reset();
    expect({H::DiscoveryBlocked{}});
    in.discovery.pollCycles = 2;
    expect({H::Searching{"10.0.0.5"}});
    in.discovery.nodes = ArtNetNodeList({other});
    expect({H::HostSilent{"10.0.0.5", ArtNetNodeList({other})}});
    in.discovery.pollCycles = 30;
    in.discovery.nodes = ArtNetNodeList({narrow, other});
    expect({H::DiscoveryBlocked{}});
    in.discovery.heardAnyTraffic = true;
    expect({H::UniverseMismatch{narrow, {0, 1}}});
    in.discovery.nodes = ArtNetNodeList({narrow, wide}); // the first node at the host decides
    expect({H::UniverseMismatch{narrow, {0, 1}}});
    in.discovery.nodes = ArtNetNodeList({wide, other});
    in.unconfirmedChecks = 6;
    expect({H::NodeNotOutputting{wide, {0, 1}}});
    in.unconfirmedChecks = 5;
    expect({H::Streaming{wide, {0, 1}}});
    in.mappedUniverses = {2, 2}; // duplicated routes: the node still drives the universe
    expect({H::Streaming{wide, {2, 2}}});
}

TEST(ArtNetDiagnosisClassify, NodeConfirmsOutputOnlyWithEveryMappedUniverseTransmitting) {
    const ArtNetNodeList nodes(
        {node("10.0.0.5", {0, 1, 2}, {0, 1}), node("10.0.0.5", {0}, {0, 1, 2})});
    EXPECT_TRUE(ArtNetDiagnosis::nodeConfirmsOutput("10.0.0.5", {1, 0, 1}, nodes));
    EXPECT_FALSE(ArtNetDiagnosis::nodeConfirmsOutput("10.0.0.5", {0, 2}, nodes))
        << "the first node at the host decides";
    EXPECT_FALSE(ArtNetDiagnosis::nodeConfirmsOutput("10.0.0.50", {0}, nodes));
}

// Adopting the only node, remapping to it, and no fix among two: olad_health_test.sh.
TEST(ArtNetDiagnosisFix, OnlyAnUnambiguousRepairIsOffered) {
    const ArtNetNode a = node("10.0.0.9", {4, 5, 6}), b = node("10.0.0.10", {4});
    const std::pair<H, std::optional<Fix>> cases[] = {
        {{H::UniverseMismatch{a, {0, 1, 2}}}, Fix{Fix::RemapUniverses{{4, 5, 6}}}},
        {{H::UniverseMismatch{b, {0, 1}}}, std::nullopt},
        {{H::Streaming{a, {4}}}, std::nullopt},
    };
    for (const auto& [health, fix] : cases)
        EXPECT_EQ(ArtNetDiagnosis::autoFix(health), fix) << health.caseName();
}

TEST(ArtNetHealthMonitor, CountsSilentAndUnconfirmedTicksAndPublishesOnlyChanges) {
    test::qtApplication();
    test::FakeArtNetDiscovery discovery;
    UDPTransportStatus transport = test::readyTransport();
    const ArtNetOutputView settings{.enabled = true, .host = "10.0.0.5", .mappedUniverses = {0, 1}};
    ArtNetHealthMonitor monitor{discovery, [&] { return transport; }, [&] { return settings; }};
    int changes = 0;
    QObject::connect(&monitor, &ArtNetHealthMonitor::healthChanged, [&] { ++changes; });
    const auto tick = [&](std::int64_t packets) { // one second after `packets` more ArtDmx
        transport.packetsSent += packets;
        monitor.refresh();
    };
    discovery.state.nodes = ArtNetNodeList({node("10.0.0.5", {0, 1}, {0, 1})});
    tick(120);
    tick(120);
    EXPECT_EQ(monitor.packetsPerSecond(), 120);
    EXPECT_TRUE(monitor.health().is<H::Streaming>());
    EXPECT_EQ(changes, 1);
    tick(0); // one silent second is tolerated
    EXPECT_TRUE(monitor.health().is<H::Streaming>());
    tick(0);
    EXPECT_EQ(monitor.health(), (ArtNetHealth{H::NoDmxGenerated{{0, 1}}}));
    EXPECT_EQ(changes, 2) << "only when it changed";

    // Packets again, but the node's ports never transmit: idle on the sixth tick.
    discovery.state.nodes = ArtNetNodeList({node("10.0.0.5", {0, 1}, {})});
    for (int second = 1; second <= 6; ++second) {
        tick(60);
        EXPECT_TRUE(monitor.health().is<H::NodeNotOutputting>() == (second == 6) &&
                    (second == 6 || monitor.health().is<H::Streaming>()))
            << second << ": " << monitor.health().caseName();
    }
}

} // namespace
} // namespace kelvo
