#pragma once

#include "DMX/IPv4HostLookup.h"
#include "DMX/UDPSending.h"
#include "DMX/UDPTransportStatus.h"
#include "Support/MonotonicClock.h"
#include "Support/SerialQueue.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kelvo {

/// A state reported by one UDP association.
struct UDPAssociationState {
    enum class Kind { setup, preparing, ready, waiting, failed, cancelled };
    Kind kind = Kind::setup;
    std::string error; ///< for waiting and failed

    friend bool operator==(const UDPAssociationState&, const UDPAssociationState&) = default;
};

/// The Art-Net output's one connected UDP socket towards the configured host.
///
/// `send` runs on the caller's (main) thread and never blocks on the network: resolving and
/// connecting happen on the "kelvo.bridge.artnet-udp" queue, which also records state changes
/// and failed sends. An association is reused until it fails, is cancelled, reports a send
/// error, or stays unready past the readiness deadline; rebuilding towards the same target
/// counts a recovery. State reports are not tied to one association: the cancelled report of
/// a replaced association marks its successor for rebuild as well, so after one rebuild the
/// next send rebuilds again. The health monitor's recovery count relies on this.
///
/// Art-Net is IPv4 only. A host name is looked up on a thread of its own once per change of
/// host, not per association; while the lookup runs the association is "preparing", and a
/// name that does not resolve leaves it "waiting" (asked again at most every
/// `failedLookupRetry`). Broadcast addresses work: the socket may broadcast.
class NWUDPSocket final : public UDPSending {
public:
    static constexpr std::chrono::duration<double> readinessDeadline{3.0};
    static constexpr std::chrono::duration<double> failedLookupRetry{3.0};
    static constexpr const char* queueLabel = "kelvo.bridge.artnet-udp";
    static constexpr std::uint16_t defaultPort = 6454;

    /// Blocking name lookup, run on a thread of its own.
    using HostLookup = std::function<IPv4HostLookup(const std::string& host)>;

    /// The clock is read on the sending thread and the transport queue.
    explicit NWUDPSocket(std::shared_ptr<const MonotonicClock> clock = steadyClock(),
                         HostLookup lookUp = lookUpIPv4Host);
    ~NWUDPSocket() override;
    NWUDPSocket(const NWUDPSocket&) = delete;
    NWUDPSocket& operator=(const NWUDPSocket&) = delete;

    void send(std::span<const std::uint8_t> datagram, const std::string& host,
              std::uint16_t port) override;

    /// A copy of the snapshot, taken under the lock.
    UDPTransportStatus status() const;

    /// The transport queue; state changes and send completions run here.
    SerialQueue& queue() { return *queue_; }

    class Association;
    struct Shared;
    struct QueuePost;

private:
    std::shared_ptr<Association> resolveConnection(const std::string& host, std::uint16_t port);

    std::shared_ptr<Shared> shared_;
    std::unique_ptr<SerialQueue> queue_; // declared last: joined before `shared_` goes
};

} // namespace kelvo
