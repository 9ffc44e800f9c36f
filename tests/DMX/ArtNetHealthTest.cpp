#include "DMX/ArtNetHealth.h"

#include <gtest/gtest.h>

namespace kelvo {
namespace {

using H = ArtNetHealth;

ArtNetNode node(std::string shortName, std::string ip, std::vector<std::int64_t> outputs = {}) {
    ArtNetNode n;
    n.shortName = std::move(shortName);
    n.ip = std::move(ip);
    n.outputUniverses = std::move(outputs);
    return n;
}

struct TextCase {
    ArtNetHealth health;
    std::string headline;
    std::string detail;
};

TEST(ArtNetHealthTexts, EveryCaseReadsExactly) {
    const ArtNetNode rack = node("Rack 3", "10.0.0.9", {4, 5});
    const ArtNetNode unnamed = node("", "10.0.0.10", {0});
    const TextCase cases[] = {
        {{H::NoDmxGenerated{{0, 2}}},
         "No DMX to send",
         "Art-Net 0, 2 is mapped and the node is addressed correctly, but the engine has produced "
         "no DMX for those universes, so no packet has been sent. Check that a show is loaded "
         "and the lighting mode is not blacked out."},
        {{H::TransportStalled{"waiting", "Network is unreachable"}},
         "Not transmitting",
         "The UDP connection is waiting, so packets are being discarded before they reach the "
         "network. Rebuilding it. Last error: Network is unreachable"},
        {{H::TransportStalled{"failed", std::nullopt}},
         "Not transmitting",
         "The UDP connection is failed, so packets are being discarded before they reach the "
         "network. Rebuilding it."},
        {{H::DiscoveryUnavailable{"Art-Net discovery socket unavailable: bind(0.0.0.0:6454) "
                                  "failed: Address already in use"}},
         "Cannot verify output",
         "Art-Net discovery socket unavailable: bind(0.0.0.0:6454) failed: Address already in "
         "use Art-Net is still being sent, but the bridge cannot confirm any node is receiving "
         "it."},
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
        {{H::UniverseMismatch{node("Bare", "10.0.0.8"), {3}}},
         "Universe mismatch",
         "Bare at 10.0.0.8 drives Art-Net none, but the bridge is sending 3. The node ignores "
         "universes it is not patched to, so its DMX ports stay dark."},
        {{H::NodeNotOutputting{rack, {4, 5}}},
         "Rack 3 ports idle",
         "Rack 3 at 10.0.0.9 is patched to Art-Net 4, 5 and packets are being sent, but it "
         "reports its DMX ports are not transmitting, so its port lights stay dark. Check the "
         "node is in Art-Net mode rather than sACN, and that its ports are enabled as outputs."},
        {{H::Streaming{rack, {4, 5}}},
         "Rack 3 · 2 universes",
         "Rack 3 at 10.0.0.9 confirms it is driving DMX on Art-Net 4, 5."},
        {{H::Streaming{unnamed, {0}}},
         "10.0.0.10 · 1 universe",
         "10.0.0.10 at 10.0.0.10 confirms it is driving DMX on Art-Net 0."},
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
    for (const TextCase& c : cases) {
        SCOPED_TRACE(c.health.caseName());
        EXPECT_EQ(c.health.headline(), c.headline);
        EXPECT_EQ(c.health.detail(), c.detail);
    }
}

TEST(ArtNetHealthTexts, FixSummaries) {
    EXPECT_EQ((ArtNetAutoFix{ArtNetAutoFix::AdoptHost{"10.0.0.9"}}.summary()),
              "Point Art-Net output at 10.0.0.9");
    EXPECT_EQ((ArtNetAutoFix{ArtNetAutoFix::RemapUniverses{{4, 5}}}.summary()),
              "Send Art-Net 4, 5");
}

} // namespace
} // namespace kelvo
