// Discovery on real sockets. Runs only inside a private network namespace (see CMakeLists):
// it binds UDP 6454 and broadcasts ArtPolls. Discovering real nodes is the olad health
// scenarios' end-to-end; this is the case a real node will not produce on demand.
#include "DMX/ArtNetDiscovery.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
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

TEST(ArtNetDiscoveryNetns, APortHeldWithoutSharingIsReportedAndRetriedOnTheNextStart) {
    const int holder = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{
        .sin_family = AF_INET, .sin_port = htons(6454), .sin_addr = {INADDR_ANY}, .sin_zero = {}};
    ASSERT_EQ(::bind(holder, reinterpret_cast<sockaddr*>(&local), sizeof local), 0);
    ArtNetDiscovery::Options options;
    options.pollInterval = 50ms;
    options.interfaceBroadcasts = [] { return std::vector<std::string>{}; };
    ArtNetDiscovery discovery(std::move(options));
    discovery.start();
    ASSERT_TRUE(eventually([&] { return discovery.snapshot().failureReason.has_value(); }));
    EXPECT_EQ(*discovery.snapshot().failureReason,
              "Art-Net discovery socket unavailable: bind(0.0.0.0:6454) failed: Address already "
              "in use");
    ::close(holder);
    discovery.start();
    EXPECT_TRUE(eventually([&] {
        const ArtNetDiscoveryState state = discovery.snapshot();
        return !state.failureReason && state.pollCycles > 0;
    }));
}

} // namespace
} // namespace kelvo
