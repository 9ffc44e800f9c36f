#include "DMX/NWUDPSocket.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <netdb.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
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

struct NWUDPSocket::Shared {
    explicit Shared(Clock c) : clock(std::move(c)) {}

    const Clock clock;
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
            if (::send(fd, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0 &&
                !isCongestion(errno))
                complete(errno);
            return;
        }
        // Not connected yet: the queue holds the datagram until the association is set up.
        queue_.async([self = shared_from_this(),
                      copy = std::vector<std::uint8_t>(datagram.begin(), datagram.end())] {
            self->sendOnQueue(copy);
        });
    }

private:
    void report(const UDPAssociationState& state) {
        if (const auto owner = owner_.lock())
            owner->recordState(state);
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
        if (::send(fd, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0 &&
            !isCongestion(errno))
            complete(errno);
    }

    void connectOnQueue() {
        using Kind = UDPAssociationState::Kind;
        report({Kind::setup, {}});
        addrinfo hints{};
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_DGRAM;
        hints.ai_protocol = IPPROTO_UDP;
        addrinfo* found = nullptr;
        const std::string service = std::to_string(port_);
        const int lookup = ::getaddrinfo(host_.c_str(), service.c_str(), &hints, &found);
        if (lookup != 0) {
            const std::string why = lookup == EAI_SYSTEM ? errorText(errno) : gai_strerror(lookup);
            report({lookup == EAI_AGAIN ? Kind::waiting : Kind::failed, why});
            return;
        }
        report({Kind::preparing, {}});
        int lastError = EADDRNOTAVAIL;
        for (const addrinfo* entry = found; entry; entry = entry->ai_next) {
            const int fd =
                ::socket(entry->ai_family, entry->ai_socktype | SOCK_CLOEXEC, entry->ai_protocol);
            if (fd < 0) {
                lastError = errno;
                continue;
            }
            // Best effort: the kernel caps it at net.core.wmem_max.
            ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBufferBytes, sizeof sendBufferBytes);
            if (::connect(fd, entry->ai_addr, entry->ai_addrlen) == 0) {
                ::freeaddrinfo(found);
                fd_.store(fd, std::memory_order_release);
                report({Kind::ready, {}});
                return;
            }
            lastError = errno;
            ::close(fd);
        }
        ::freeaddrinfo(found);
        report({isTransientConnectError(lastError) ? Kind::waiting : Kind::failed,
                errorText(lastError)});
    }

    const std::string host_;
    const std::uint16_t port_;
    SerialQueue& queue_;
    const std::weak_ptr<Shared> owner_;
    std::atomic<int> fd_{-1};
    std::atomic<bool> cancelled_{false};
};

std::chrono::nanoseconds NWUDPSocket::steadyNow() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

NWUDPSocket::NWUDPSocket(Clock clock)
    : shared_(std::make_shared<Shared>(std::move(clock))),
      queue_(std::make_unique<SerialQueue>(queueLabel)) {}

NWUDPSocket::~NWUDPSocket() = default;

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
        const std::chrono::nanoseconds now = s.clock();
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
        s.snapshot.isReady = false;
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
