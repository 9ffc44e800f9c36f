// Discovery on real sockets. Runs only inside a private network namespace (see CMakeLists):
// it binds UDP 6454 and broadcasts ArtPolls. Replies from real nodes are read end to end by
// the olad health scenarios; these are the cases a real node will not produce on demand.
#include "DMX/ArtNetDiscovery.h"
#include "DMX/ArtPollReplyBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <functional>
#include <thread>

namespace kelvo {
namespace {

using namespace std::chrono_literals;

bool eventually(const std::function<bool()>& done) {
    for (int i = 0; i < 1000; ++i, std::this_thread::sleep_for(5ms))
        if (done())
            return true;
    return false;
}

int boundTo6454(const char* address, bool shared) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (shared) // beside discovery's socket on the wildcard address of the same port
        ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(6454);
    ::inet_pton(AF_INET, address, &local.sin_addr);
    EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local), 0) << address;
    return fd;
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
        discovery->start();
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

TEST(ArtNetDiscoveryNetns, ANodeSilentForTenSecondsIsForgotten) {
    const int node = boundTo6454("127.0.0.2", true);
    const std::vector<std::uint8_t> reply = test::ArtPollReplyBytes{}.build();
    const auto answerPolls = [&] {
        std::uint8_t poll[64];
        sockaddr_in from{};
        socklen_t length = sizeof from;
        while (::recvfrom(node, poll, sizeof poll, 0, reinterpret_cast<sockaddr*>(&from), &length) >
               0)
            ::sendto(node, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&from),
                     length);
    };
    FastDiscovery fast;
    fast.discovery->setUnicastTarget("127.0.0.2");
    ASSERT_TRUE(eventually([&] {
        answerPolls();
        return fast.state().nodes.size() == 1;
    }));
    ASSERT_TRUE(fast.cycles(2)); // the last reply is in
    fast.clock->advance(9900ms);
    ASSERT_TRUE(fast.cycles(3));
    EXPECT_EQ(fast.state().nodes.size(), 1u);
    fast.clock->advance(200ms);
    EXPECT_TRUE(eventually([&] { return fast.state().nodes.isEmpty(); }));
    ::close(node);
}

TEST(ArtNetDiscoveryNetns, APortHeldWithoutSharingIsReportedAndRetriedOnTheNextStart) {
    const int holder = boundTo6454("0.0.0.0", false);
    FastDiscovery fast;
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
    EXPECT_TRUE(eventually([&] { return fast.state().heardAnyTraffic; }));
    std::system("ip link del kv0");
}

} // namespace
} // namespace kelvo
