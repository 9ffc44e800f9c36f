#include "DMX/NWUDPSocket.h"

#include "support/LoopbackReceiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace kelvo {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using test::LoopbackReceiver;

class NWUDPSocketOnLoopback : public testing::Test {
protected:
    // Everything posted so far on the transport queue has run.
    void drainQueue() {
        std::promise<void> done;
        socket.queue().async([&] { done.set_value(); });
        ASSERT_EQ(done.get_future().wait_for(5s), std::future_status::ready);
    }

    // Keeps the transport queue busy until `releaseQueue`, so no state report can land.
    void holdQueue() {
        hold_ = {};
        socket.queue().async([held = hold_.get_future().share()] { held.wait(); });
    }
    void releaseQueue() { hold_.set_value(); }

    template <typename Predicate> bool eventually(Predicate predicate) {
        int i = 0; // a bound for a loaded machine, not a timing rule
        for (; i < 1000 && !predicate(socket.status()); ++i)
            std::this_thread::sleep_for(10ms);
        return i < 1000;
    }

    bool lookupsReach(int count) {
        for (int i = 0; i < 1000 && lookup->calls < count; ++i)
            std::this_thread::sleep_for(10ms);
        return lookup->calls == count;
    }
    ~NWUDPSocketOnLoopback() override {
        if (lookup->gate.wait_for(0s) != std::future_status::ready)
            lookup->open.set_value();
    }

    std::shared_ptr<ManualMonotonicClock> clock = std::make_shared<ManualMonotonicClock>();
    // Names resolve through a lookup the test controls, on threads that may outlive the test.
    struct Lookup {
        std::atomic<int> calls = 0;
        std::promise<void> open;
        std::shared_future<void> gate = open.get_future().share();
    };
    std::shared_ptr<Lookup> lookup = std::make_shared<Lookup>();
    NWUDPSocket socket{clock, [lookup = lookup](const std::string& host) {
                           ++lookup->calls;
                           lookup->gate.wait();
                           return host == "node.example"
                                      ? IPv4HostLookup{parseIPv4Address("127.0.0.1"), {}}
                                      : IPv4HostLookup{std::nullopt, host + ": unknown"};
                       }};
    std::promise<void> hold_;
};

TEST_F(NWUDPSocketOnLoopback, TheFirstSendConnectsCountsOnePacketAndAReadyOneIsKeptForGood) {
    LoopbackReceiver node;
    holdQueue();
    socket.send(Bytes{1}, "127.0.0.1", node.port());
    EXPECT_EQ(socket.status(), (UDPTransportStatus{false, "connecting", 1, 0, {}, 0, 0}));
    releaseQueue();
    EXPECT_EQ(node.receive(), Bytes{1}) << "a packet handed over before ready is not lost";
    ASSERT_TRUE(eventually([](const auto& s) { return s.isReady; }));

    clock->advance(3600s); // no deadline once ready
    socket.send(Bytes{2}, "127.0.0.1", node.port());
    EXPECT_EQ(socket.status(), (UDPTransportStatus{true, "ready", 2, 0, {}, 0, 0}));
}

TEST_F(NWUDPSocketOnLoopback, RefusedSendMarksFailureAndTheNextSendRecovers) {
    const std::uint16_t closed = test::closedLoopbackPort();
    // The port-unreachable answer to one datagram makes the following send fail.
    for (int attempt = 0; attempt < 20 && socket.status().sendFailures == 0; ++attempt) {
        socket.send(Bytes{9}, "127.0.0.1", closed);
        drainQueue();
    }
    const std::int64_t sent = socket.status().packetsSent;
    const std::string refused = std::system_category().message(ECONNREFUSED);
    EXPECT_EQ(socket.status(), (UDPTransportStatus{false, "failed", sent, 1, refused, 0, 0}));
    holdQueue();
    socket.send(Bytes{9}, "127.0.0.1", closed);
    EXPECT_EQ(socket.status(),
              (UDPTransportStatus{false, "connecting", sent + 1, 1, refused, 1, 0}));
    releaseQueue();
    drainQueue();
    EXPECT_EQ(socket.status(), (UDPTransportStatus{true, "ready", sent + 1, 1, {}, 1, 0}))
        << "ready clears the last error; failures are never reset";
}

TEST_F(NWUDPSocketOnLoopback, UnreadyAssociationIsKeptForThreeSecondsThenRebuilt) {
    LoopbackReceiver node;
    holdQueue(); // the association cannot become ready

    socket.send(Bytes{1}, "127.0.0.1", node.port());
    clock->advance(3s);
    socket.send(Bytes{2}, "127.0.0.1", node.port());
    EXPECT_EQ(socket.status().recoveries, 0) << "exactly 3.0 s is still within the deadline";

    clock->advance(1ms);
    socket.send(Bytes{3}, "127.0.0.1", node.port());
    EXPECT_EQ(socket.status(), (UDPTransportStatus{false, "connecting", 3, 0, {}, 1, 0}));

    // The new association's deadline starts at its own creation.
    clock->advance(2s);
    socket.send(Bytes{4}, "127.0.0.1", node.port());
    EXPECT_EQ(socket.status().recoveries, 1);
    releaseQueue();
}

TEST(IPv4HostLookupTest, IPv6IsRefusedPlainly) { // names: artnet_host_test.sh, on a real resolver
    EXPECT_EQ(lookUpIPv4Host("::1").error, "Art-Net needs an IPv4 address; ::1 is IPv6.");
    EXPECT_FALSE(lookUpIPv4Host("::1").address);
}

TEST_F(NWUDPSocketOnLoopback, ANameIsLookedUpOffTheCallersThreadAndAgainAfterTheDeadline) {
    LoopbackReceiver node;
    socket.send(Bytes{1}, "node.example", node.port());
    ASSERT_TRUE(eventually([](const auto& s) { return s.stateDescription == "preparing"; }));
    socket.send(Bytes{2}, "node.example", node.port()); // dropped: no address yet
    lookup->open.set_value();
    ASSERT_TRUE(eventually([](const auto& s) { return s.isReady; }));
    socket.send(Bytes{3}, "node.example", node.port());
    EXPECT_EQ(node.receive(), Bytes{3});

    socket.send(Bytes{4}, "nowhere.example", node.port());
    ASSERT_TRUE(eventually([](const auto& s) { return s.stateDescription == "waiting"; }));
    EXPECT_EQ(socket.status().lastError, "nowhere.example: unknown");
    clock->advance(3001ms);
    socket.send(Bytes{4}, "nowhere.example", node.port());
    EXPECT_TRUE(lookupsReach(3)) << "a waiting association is rebuilt and asks again";
}

} // namespace
} // namespace kelvo
