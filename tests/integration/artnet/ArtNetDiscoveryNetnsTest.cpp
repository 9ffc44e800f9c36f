// Discovery on real sockets. Runs only inside a private network namespace (see CMakeLists):
// it binds UDP 6454 and broadcasts ArtPolls. Replies from real nodes are read end to end by
// the olad health scenarios; these are the cases a real node will not produce on demand.
#include "DMX/ArtNetDiscovery.h"

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

/// Discovery polling fast.
struct FastDiscovery {
    explicit FastDiscovery(std::function<std::vector<std::string>()> broadcasts = [] {
        return std::vector<std::string>{};
    }) {
        ArtNetDiscovery::Options options;
        options.pollInterval = 50ms;
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

    std::unique_ptr<ArtNetDiscovery> discovery;
};

TEST(ArtNetDiscoveryNetns, APortHeldWithoutSharingIsReportedAndRetriedOnTheNextStart) {
    const int holder = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{
        .sin_family = AF_INET, .sin_port = htons(6454), .sin_addr = {INADDR_ANY}, .sin_zero = {}};
    ASSERT_EQ(::bind(holder, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);
    FastDiscovery fast;
    ASSERT_TRUE(eventually([&] { return fast.state().failureReason.has_value(); }));
    EXPECT_EQ(*fast.state().failureReason, "Art-Net discovery socket unavailable: "
                                           "bind(0.0.0.0:6454) failed: Address already in use");
    ::close(holder);
    fast.discovery->start();
    EXPECT_TRUE(eventually([&] { return !fast.state().failureReason; }));
    EXPECT_TRUE(fast.cycles(1));
}

TEST(ArtNetDiscoveryNetns, OwnBroadcastIsHeardWhereAnInterfaceCarriesIt) {
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
