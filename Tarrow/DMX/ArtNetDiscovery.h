#pragma once

#include "DMX/ArtNetDiscoveryNodes.h"
#include "DMX/ArtNetDiscoveryState.h"
#include "Support/MonotonicClock.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace kelvo {

/// Why discovery cannot listen.
struct ArtNetDiscoveryError {
    static constexpr const char* socketUnavailablePrefix = "Art-Net discovery socket unavailable: ";
    enum class Kind { socketUnavailable };

    Kind kind = Kind::socketUnavailable;
    std::string reason;

    std::string description() const { return socketUnavailablePrefix + reason; }
};

/// What the health monitor needs of discovery.
class ArtNetDiscovering {
public:
    virtual ~ArtNetDiscovering() = default;
    /// Opens the socket and starts polling, unless already listening. Never blocks the caller.
    virtual void start() = 0;
    /// The extra poll destination (the Art-Net host while output is on); used from the next poll.
    virtual void setUnicastTarget(std::optional<std::string> host) = 0;
    /// A copy of the state, taken under the lock.
    virtual ArtNetDiscoveryState snapshot() const = 0;
};

/// Finds Art-Net nodes: one UDP socket on port 6454 (address and port shared, broadcast
/// allowed), an ArtPoll every 3 s to every broadcast address and the unicast target, every
/// ArtPollReply read into a node, nodes forgotten after 10 s of silence.
///
/// All socket work, the poll timer and the node map live on the "kelvo.bridge.artnet-discovery"
/// thread; readers copy the state under a lock held only for that copy.
class ArtNetDiscovery final : public ArtNetDiscovering {
public:
    static constexpr const char* queueLabel = "kelvo.bridge.artnet-discovery";
    static constexpr std::uint16_t artNetPort = 6454;
    static constexpr std::size_t receiveBufferSize = 1024;
    /// Far beyond any rig one bridge drives; bounds memory under a flood of replies.
    static constexpr std::size_t maxNodes = 2048;
    static constexpr const char* limitedBroadcast = "255.255.255.255";

    struct Options {
        std::chrono::nanoseconds pollInterval = std::chrono::seconds(3);
        std::chrono::nanoseconds nodeTimeout = std::chrono::seconds(10);
        std::uint16_t bindPort = artNetPort; ///< tests listen elsewhere inside their namespace
        std::uint16_t pollPort = artNetPort;
        std::size_t maxNodes = ArtNetDiscovery::maxNodes;
        /// Monotonic time of the expiry rule.
        std::shared_ptr<const MonotonicClock> clock = steadyClock();
        /// Broadcast addresses of the up, broadcast-capable, non-loopback IPv4 interfaces.
        std::function<std::vector<std::string>()> interfaceBroadcasts = interfaceBroadcastAddresses;
    };

    ArtNetDiscovery();
    explicit ArtNetDiscovery(Options options);
    /// Stops the thread and closes the socket.
    ~ArtNetDiscovery() override;
    ArtNetDiscovery(const ArtNetDiscovery&) = delete;
    ArtNetDiscovery& operator=(const ArtNetDiscovery&) = delete;

    void start() override;
    void setUnicastTarget(std::optional<std::string> host) override;
    ArtNetDiscoveryState snapshot() const override;

    /// The poll timer's time: real time on the discovery thread, whatever the expiry clock.
    static std::chrono::nanoseconds steadyNow();
    static std::vector<std::string> interfaceBroadcastAddresses();
    /// Where a poll goes: the limited broadcast, the interface broadcasts and the unicast
    /// target, each once, keeping only dotted IPv4 literals (a host name is never resolved here).
    static std::vector<std::string> pollDestinations(const std::vector<std::string>& broadcasts,
                                                     const std::optional<std::string>& target);

private:
    void run();
    void post(std::function<void()> task);
    void runTasks();
    void openSocket();
    void drainSocket();
    void pollTick();
    void sendPoll();
    void publish();

    Options options_;

    mutable std::mutex lock_; // guards `state_`
    ArtNetDiscoveryState state_;

    std::mutex tasksLock_;
    std::deque<std::function<void()>> tasks_;
    bool stopping_ = false;
    int wakeFD_ = -1;

    // Discovery thread only.
    int socketFD_ = -1;
    std::chrono::nanoseconds nextPoll_{};
    ArtNetDiscoveryNodes nodes_;
    std::optional<std::string> unicastTarget_;
    std::uint64_t reportedEvictions_ = 0;

    std::thread thread_; // last: starts once everything above exists
};

} // namespace kelvo
