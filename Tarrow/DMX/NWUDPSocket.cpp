#include "DMX/NWUDPSocket.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace kelvo {

namespace {

std::string errorText(int error) {
    return std::system_category().message(error);
}

// A full send buffer is back-pressure, not a broken path: the datagram is dropped, as a
// datagram service may, and the association stays. The buffer is sized so that a frame of
// many universes fits (see sendBufferBytes), so this is rare.
bool isCongestion(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS;
}

// ~1,900 ArtDmx packets: one frame of a large rig leaves in a burst.
constexpr int sendBufferBytes = 1 << 20;

// Errors meaning the path to the host is unusable: the association has failed.
bool breaksAssociation(int error) {
    switch (error) {
    case ECONNREFUSED:
    case ENETUNREACH:
    case EHOSTUNREACH:
    case ENETDOWN:
    case EHOSTDOWN:
    case EPIPE:
    case ENOTCONN:
    case ECANCELED:
        return true;
    default:
        return false;
    }
}

// connect() errors that may pass once the network comes up: wait rather than fail.
bool isTransientConnectError(int error) {
    return error == ENETUNREACH || error == EHOSTUNREACH || error == ENETDOWN ||
           error == EADDRNOTAVAIL;
}

} // namespace

/// Lets lookup threads, which may outlive the socket, post to its queue while it exists.
struct NWUDPSocket::QueuePost {
    std::mutex lock;
    SerialQueue* queue = nullptr;

    void post(std::function<void()> task) {
        std::lock_guard guard(lock);
        if (queue)
            queue->async(std::move(task));
    }
};

struct NWUDPSocket::Shared {
    Shared(std::shared_ptr<const MonotonicClock> c, HostLookup l, SerialQueue& queue)
        : clock(std::move(c)), lookUp(std::move(l)), poster(std::make_shared<QueuePost>()) {
        poster->queue = &queue;
    }

    const std::shared_ptr<const MonotonicClock> clock;
    const HostLookup lookUp;
    const std::shared_ptr<QueuePost> poster;

    // The last host name looked up; the transport queue only.
    struct NameLookup {
        std::string host;
        bool pending = false;
        std::optional<in_addr> address;
        std::string error;
        std::chrono::nanoseconds finishedAt{};
        std::vector<std::weak_ptr<Association>> waiting;
    } name;

    // On the transport queue: connects `association` once the host's address is known.
    void connectWhenResolved(const std::string& host,
                             const std::shared_ptr<Association>& association);
    void lookupFinished(const std::string& host, const IPv4HostLookup& result);

    mutable std::mutex lock;
    std::shared_ptr<Association> connection;
    std::optional<std::string> connectedHost;
    std::optional<std::uint16_t> connectedPort;
    std::optional<std::chrono::nanoseconds> connectedAt;
    bool isReady = false;
    bool needsRebuild = false;
    UDPTransportStatus snapshot;

    // Writes the shared fields whichever association reports.
    void recordState(const UDPAssociationState& state) {
        using Kind = UDPAssociationState::Kind;
        std::lock_guard guard(lock);
        switch (state.kind) {
        case Kind::setup:
            snapshot.stateDescription = "setup";
            break;
        case Kind::preparing:
            snapshot.stateDescription = "preparing";
            break;
        case Kind::ready:
            isReady = true;
            snapshot.isReady = true;
            snapshot.stateDescription = "ready";
            snapshot.lastError.reset();
            break;
        case Kind::waiting:
            isReady = false;
            snapshot.isReady = false;
            snapshot.stateDescription = "waiting";
            snapshot.lastError = state.error;
            break;
        case Kind::failed:
            isReady = false;
            needsRebuild = true;
            snapshot.isReady = false;
            snapshot.stateDescription = "failed";
            snapshot.lastError = state.error;
            break;
        case Kind::cancelled:
            isReady = false;
            needsRebuild = true;
            snapshot.isReady = false;
            snapshot.stateDescription = "cancelled";
            break;
        }
    }

    void recordDroppedDatagram() {
        std::lock_guard guard(lock);
        ++snapshot.datagramsDropped;
    }

    void recordSendFailure(const std::string& error) {
        std::lock_guard guard(lock);
        ++snapshot.sendFailures;
        snapshot.lastError = error;
        needsRebuild = true;
    }
};

/// One connected UDP socket: created, resolved and connected on the transport queue.
/// The descriptor is closed only when the last holder lets go, so a send in flight on the
/// caller's thread never races a close.
class NWUDPSocket::Association : public std::enable_shared_from_this<Association> {
public:
    Association(std::string host, std::uint16_t port, SerialQueue& queue,
                std::weak_ptr<Shared> owner)
        : host_(std::move(host)), port_(port), queue_(queue), owner_(std::move(owner)) {}

    ~Association() {
        const int fd = fd_.load();
        if (fd >= 0)
            ::close(fd);
    }

    void start() {
        queue_.async([self = shared_from_this()] { self->connectOnQueue(); });
    }

    void cancel() {
        queue_.async([self = shared_from_this()] {
            self->cancelled_.store(true);
            self->report({UDPAssociationState::Kind::cancelled, {}});
        });
    }

    void send(std::span<const std::uint8_t> datagram) {
        const int fd = fd_.load(std::memory_order_acquire);
        if (fd >= 0 && !cancelled_.load(std::memory_order_relaxed)) {
            transmit(fd, datagram);
            return;
        }
        // Not connected yet: the queue holds the datagram until the association is set up.
        queue_.async([self = shared_from_this(),
                      copy = std::vector<std::uint8_t>(datagram.begin(), datagram.end())] {
            self->sendOnQueue(copy);
        });
    }

    void report(const UDPAssociationState& state) {
        if (const auto owner = owner_.lock())
            owner->recordState(state);
    }

    bool isCancelled() const { return cancelled_.load(); }
    const std::weak_ptr<Shared>& owner() const { return owner_; }

    // On the transport queue, once the address is known.
    void connectTo(in_addr address) {
        using Kind = UDPAssociationState::Kind;
        if (cancelled_.load())
            return;
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
        if (fd < 0) {
            report({Kind::failed, errorText(errno)});
            return;
        }
        // Best effort: the kernel caps it at net.core.wmem_max.
        ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBufferBytes, sizeof sendBufferBytes);
        // A broadcast address as the host is allowed (connect() refuses it otherwise).
        const int on = 1;
        ::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
        sockaddr_in target{};
        target.sin_family = AF_INET;
        target.sin_port = htons(port_);
        target.sin_addr = address;
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
            const int error = errno;
            ::close(fd);
            report(
                {isTransientConnectError(error) ? Kind::waiting : Kind::failed, errorText(error)});
            return;
        }
        fd_.store(fd, std::memory_order_release);
        report({Kind::ready, {}});
    }

private:
    void transmit(int fd, std::span<const std::uint8_t> datagram) {
        if (::send(fd, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
            return;
        if (!isCongestion(errno))
            return complete(errno);
        if (const auto owner = owner_.lock())
            owner->recordDroppedDatagram();
    }

    // The send completion runs on the queue and holds the socket weakly.
    void complete(int error) {
        queue_.async([owner = owner_, self = shared_from_this(), error] {
            if (const auto shared = owner.lock())
                shared->recordSendFailure(errorText(error));
            if (breaksAssociation(error))
                self->report({UDPAssociationState::Kind::failed, errorText(error)});
        });
    }

    void sendOnQueue(const std::vector<std::uint8_t>& datagram) {
        if (cancelled_.load())
            return complete(ECANCELED);
        const int fd = fd_.load();
        // Never connected (waiting or failed): the state report already says why, and the
        // readiness deadline or the rebuild mark replaces the association.
        if (fd < 0)
            return;
        transmit(fd, datagram);
    }

    void connectOnQueue() {
        report({UDPAssociationState::Kind::setup, {}});
        if (const auto owner = owner_.lock())
            owner->connectWhenResolved(host_, shared_from_this());
    }

    const std::string host_;
    const std::uint16_t port_;
    SerialQueue& queue_;
    const std::weak_ptr<Shared> owner_;
    std::atomic<int> fd_{-1};
    std::atomic<bool> cancelled_{false};
};

void NWUDPSocket::Shared::connectWhenResolved(const std::string& host,
                                              const std::shared_ptr<Association>& association) {
    using Kind = UDPAssociationState::Kind;
    association->report({Kind::preparing, {}});
    if (const auto address = parseIPv4Address(host)) {
        name = {}; // a name typed again later is looked up again
        return association->connectTo(*address);
    }
    if (name.host == host) {
        if (name.address)
            return association->connectTo(*name.address);
        if (name.pending)
            return name.waiting.push_back(association);
        if (clock->now() - name.finishedAt < failedLookupRetry)
            return association->report({Kind::waiting, name.error});
    }
    // A new host, or a name that did not resolve a while ago: look it up, once.
    name = {host, true, std::nullopt, {}, {}, {association}};
    std::weak_ptr<Shared> self = association->owner();
    try {
        std::thread([self, lookUp = lookUp, post = poster, host] {
            const IPv4HostLookup result = lookUp(host);
            post->post([self, host, result] {
                if (const auto shared = self.lock())
                    shared->lookupFinished(host, result);
            });
        }).detach();
    } catch (const std::system_error& error) { // no thread to be had: asked again later
        lookupFinished(host, {std::nullopt, host + ": " + error.what()});
    }
}

void NWUDPSocket::Shared::lookupFinished(const std::string& host, const IPv4HostLookup& result) {
    if (name.host != host || !name.pending)
        return; // the host changed meanwhile
    name.pending = false;
    name.address = result.address;
    name.error = result.error;
    name.finishedAt = clock->now();
    for (const auto& waiting : std::exchange(name.waiting, {})) {
        const auto association = waiting.lock();
        if (!association || association->isCancelled())
            continue;
        if (result.address)
            association->connectTo(*result.address);
        else
            association->report({UDPAssociationState::Kind::waiting, result.error});
    }
}

NWUDPSocket::NWUDPSocket(std::shared_ptr<const MonotonicClock> clock, HostLookup lookUp)
    : queue_(std::make_unique<SerialQueue>(queueLabel)) {
    shared_ = std::make_shared<Shared>(std::move(clock), std::move(lookUp), *queue_);
}

NWUDPSocket::~NWUDPSocket() {
    // A lookup still running finds no queue to answer to.
    std::lock_guard guard(shared_->poster->lock);
    shared_->poster->queue = nullptr;
}

UDPTransportStatus NWUDPSocket::status() const {
    std::lock_guard guard(shared_->lock);
    return shared_->snapshot;
}

void NWUDPSocket::send(std::span<const std::uint8_t> datagram, const std::string& host,
                       std::uint16_t port) {
    if (const std::shared_ptr<Association> connection = resolveConnection(host, port))
        connection->send(datagram);
}

std::shared_ptr<NWUDPSocket::Association> NWUDPSocket::resolveConnection(const std::string& host,
                                                                         std::uint16_t port) {
    Shared& s = *shared_;
    std::shared_ptr<Association> previous;
    {
        std::lock_guard guard(s.lock);
        const std::chrono::nanoseconds now = s.clock->now();
        const bool sameTarget = s.connection && s.connectedHost == host && s.connectedPort == port;
        if (sameTarget && !s.needsRebuild) {
            const bool withinDeadline = !s.connectedAt || now - *s.connectedAt <= readinessDeadline;
            if (s.isReady || withinDeadline) {
                ++s.snapshot.packetsSent;
                return s.connection;
            }
        }
        if (sameTarget)
            ++s.snapshot.recoveries;
        s.connectedHost = host;
        s.connectedPort = port;
        s.connectedAt = now;
        s.isReady = false;
        s.needsRebuild = false;
        // The published readiness stays as the last association reported it until the new one
        // reports. A rebuild happens on the tick, and the health check runs on the same thread
        // once a second, phase-locked to the ticks: clearing it here let that check see
        // "not ready" right after every rebuild and call a working output stalled.
        s.snapshot.stateDescription = "connecting";
        ++s.snapshot.packetsSent;
        previous = s.connection;
    }
    if (previous)
        previous->cancel();
    const std::uint16_t effectivePort = port == 0 ? defaultPort : port;
    auto connection = std::make_shared<Association>(host, effectivePort, *queue_, shared_);
    connection->start();
    std::lock_guard guard(s.lock);
    s.connection = connection;
    return connection;
}

} // namespace kelvo
