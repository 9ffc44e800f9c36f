// Discovery on real sockets. Runs only inside a private network namespace (see CMakeLists):
// it binds UDP 6454 and broadcasts ArtPolls.
#include "DMX/ArtNetDiscovery.h"

#include "ArtNetNodeEmulator.h"
#include "DMX/ArtPollReplyBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

namespace kelvo {
namespace {

using namespace std::chrono_literals;
using test::ArtNetNodeEmulator;
using test::ArtPollReplyBytes;

bool eventually(const std::function<bool()>& done, std::chrono::milliseconds timeout = 5s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

/// Discovery polling fast, with a clock the test moves.
struct FastDiscovery {
    explicit FastDiscovery(std::function<std::vector<std::string>()> broadcasts = [] {
        return std::vector<std::string>{};
    }) {
        ArtNetDiscovery::Options options;
        options.pollInterval = 50ms;
        options.clock = clock;
        options.interfaceBroadcasts = std::move(broadcasts);
        discovery = std::make_unique<ArtNetDiscovery>(std::move(options));
    }
    ArtNetDiscoveryState state() const { return discovery->snapshot(); }
    /// Waits until `n` more poll cycles have run.
    bool cycles(std::int64_t n) {
        const std::int64_t target = state().pollCycles + n;
        return eventually([&] { return state().pollCycles >= target; });
    }

    std::shared_ptr<ManualMonotonicClock> clock = std::make_shared<ManualMonotonicClock>();
    std::unique_ptr<ArtNetDiscovery> discovery;
};

std::vector<std::uint8_t> reply(std::array<std::uint8_t, 4> ip, std::uint8_t macTail) {
    ArtPollReplyBytes bytes;
    bytes.ip = ip;
    bytes.mac[5] = macTail;
    return bytes.build();
}

TEST(ArtNetDiscoveryNetns, RepliesToAUnicastPollBecomeNodesOnTheDiscoveryThread) {
    ArtNetNodeEmulator node("127.0.0.2");
    ArtPollReplyBytes oversized;
    oversized.ip = {127, 0, 0, 2};
    oversized.mac = {0, 0, 0, 0, 0, 0};
    std::vector<std::uint8_t> longReply = oversized.build();
    longReply.resize(3000, 0xEE); // cut to 1024 bytes, the reply itself survives
    node.setReplies({std::vector<std::uint8_t>(100, 0x41), reply({10, 9, 0, 2}, 2), longReply});

    FastDiscovery fast;
    fast.discovery->setUnicastTarget("127.0.0.2");
    fast.discovery->start();
    ASSERT_TRUE(eventually([&] { return fast.state().nodes.size() == 2; }))
        << fast.state().nodes.size();
    const ArtNetDiscoveryState state = fast.state();
    EXPECT_TRUE(state.heardAnyTraffic);
    EXPECT_FALSE(state.failureReason);
    EXPECT_EQ(state.nodes[0].ip, "10.9.0.2");
    EXPECT_EQ(state.nodes[1].ip, "127.0.0.2");
    EXPECT_EQ(state.nodes[1].mac, "00:00:00:00:00:00");

    bool named = false;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream comm(task.path() / "comm");
        std::string name;
        std::getline(comm, name);
        named |= name == "artnet-discover";
    }
    EXPECT_TRUE(named) << "the discovery thread carries its queue's name";
}

TEST(ArtNetDiscoveryNetns, ANodeSilentForTenSecondsIsForgotten) {
    ArtNetNodeEmulator node("127.0.0.2");
    node.setReplies({reply({10, 9, 0, 2}, 2)});
    FastDiscovery fast;
    fast.discovery->setUnicastTarget("127.0.0.2");
    fast.discovery->start();
    ASSERT_TRUE(eventually([&] { return fast.state().nodes.size() == 1; }));
    node.setReplies({});
    ASSERT_TRUE(fast.cycles(2)); // the last reply is in
    fast.clock->advance(9900ms);
    ASSERT_TRUE(fast.cycles(3));
    EXPECT_EQ(fast.state().nodes.size(), 1u);
    fast.clock->advance(200ms);
    EXPECT_TRUE(eventually([&] { return fast.state().nodes.isEmpty(); }));
}

TEST(ArtNetDiscoveryNetns, APortHeldWithoutSharingIsReportedAndRetriedOnTheNextStart) {
    const int holder = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(6454);
    ASSERT_EQ(::bind(holder, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);

    FastDiscovery fast;
    fast.discovery->start();
    ASSERT_TRUE(eventually([&] { return fast.state().failureReason.has_value(); }));
    EXPECT_EQ(*fast.state().failureReason, "Art-Net discovery socket unavailable: "
                                           "bind(0.0.0.0:6454) failed: Address already in use");

    ::close(holder);
    fast.discovery->start();
    EXPECT_TRUE(eventually([&] { return !fast.state().failureReason; }));
    EXPECT_TRUE(fast.cycles(1));
}

TEST(ArtNetDiscoveryNetns, OwnBroadcastIsHeardOnlyWhereAnInterfaceCarriesIt) {
    {
        // Loopback alone: not even our own poll comes back.
        FastDiscovery fast(ArtNetDiscovery::interfaceBroadcastAddresses);
        fast.discovery->start();
        ASSERT_TRUE(fast.cycles(4));
        EXPECT_FALSE(fast.state().heardAnyTraffic);
    }
    // A veth pair with both ends here: an Ethernet-like interface that carries broadcasts.
    ASSERT_EQ(std::system("ip link add kv0 type veth peer name kv1 && ip link set kv1 up && "
                          "ip addr add 10.213.0.1/24 brd + dev kv0 && ip link set kv0 up"),
              0);
    EXPECT_THAT(ArtNetDiscovery::interfaceBroadcastAddresses(),
                testing::ElementsAre("10.213.0.255"));
    FastDiscovery fast(ArtNetDiscovery::interfaceBroadcastAddresses);
    fast.discovery->start();
    EXPECT_TRUE(eventually([&] { return fast.state().heardAnyTraffic; }));
    std::system("ip link del kv0");
}

} // namespace
} // namespace kelvo
