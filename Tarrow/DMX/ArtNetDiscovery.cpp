#include "DMX/ArtNetDiscovery.h"

#include "DMX/ArtNetPacketBuilder.h"
#include "DMX/ArtNetPollReplyParser.h"
#include "Support/SerialQueue.h"

#include <QLoggingCategory>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <set>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcDiscovery, "kelvo.dmx.discovery", QtInfoMsg)

namespace kelvo {

namespace {

// A burst is read in slices so the poll timer and target changes are never starved.
constexpr int datagramsPerSlice = 256;
constexpr int discoveryNiceness = 10;
// Room for a poll cycle's worth of replies from a large rig (the kernel may cap it lower).
constexpr int receiveBufferBytes = 4 << 20;

std::string systemError(int error) {
    return std::strerror(error);
}

std::optional<in_addr> ipv4Literal(const std::string& text) {
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1)
        return std::nullopt;
    return address;
}

} // namespace

ArtNetDiscovery::ArtNetDiscovery() : ArtNetDiscovery(Options{}) {}

ArtNetDiscovery::ArtNetDiscovery(Options options)
    : options_(std::move(options)), nodes_(options_.maxNodes) {
    wakeFD_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    thread_ = std::thread([this] { run(); });
}

ArtNetDiscovery::~ArtNetDiscovery() {
    {
        std::lock_guard guard(tasksLock_);
        stopping_ = true;
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wakeFD_, &one, sizeof one);
    thread_.join();
    if (socketFD_ >= 0)
        ::close(socketFD_);
    if (wakeFD_ >= 0)
        ::close(wakeFD_);
}

std::chrono::nanoseconds ArtNetDiscovery::steadyNow() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}

void ArtNetDiscovery::start() {
    post([this] {
        if (socketFD_ < 0)
            openSocket();
    });
}

void ArtNetDiscovery::setUnicastTarget(std::optional<std::string> host) {
    post([this, host = std::move(host)]() mutable { unicastTarget_ = std::move(host); });
}

ArtNetDiscoveryState ArtNetDiscovery::snapshot() const {
    std::lock_guard guard(lock_);
    return state_;
}

void ArtNetDiscovery::post(std::function<void()> task) {
    {
        std::lock_guard guard(tasksLock_);
        tasks_.push_back(std::move(task));
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wakeFD_, &one, sizeof one);
}

void ArtNetDiscovery::runTasks() {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto read = ::read(wakeFD_, &count, sizeof count);
    std::deque<std::function<void()>> tasks;
    {
        std::lock_guard guard(tasksLock_);
        tasks.swap(tasks_);
    }
    for (auto& task : tasks)
        task();
}

void ArtNetDiscovery::run() {
    ::pthread_setname_np(::pthread_self(), SerialQueue::threadName(queueLabel).c_str());
    // Background work: under a flood of replies the 60 Hz tick goes first on a busy machine.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), discoveryNiceness);
    for (;;) {
        pollfd watched[2] = {{wakeFD_, POLLIN, 0}, {socketFD_, POLLIN, 0}};
        int timeoutMs = -1;
        if (socketFD_ >= 0) {
            const auto wait = nextPoll_ - steadyNow();
            timeoutMs = wait.count() <= 0
                            ? 0
                            : int(std::chrono::ceil<std::chrono::milliseconds>(wait).count());
        }
        const int ready = ::poll(watched, socketFD_ >= 0 ? 2 : 1, timeoutMs);
        if (ready < 0 && errno != EINTR)
            continue;
        if (watched[0].revents & POLLIN)
            runTasks();
        {
            std::lock_guard guard(tasksLock_);
            if (stopping_)
                return;
        }
        if (socketFD_ >= 0 && (watched[1].revents & POLLIN))
            drainSocket();
        if (socketFD_ >= 0 && steadyNow() >= nextPoll_) {
            pollTick();
            // A late tick does not bunch the following ones up.
            nextPoll_ = std::max(nextPoll_ + options_.pollInterval, steadyNow());
        }
    }
}

void ArtNetDiscovery::openSocket() {
    const auto fail = [this](std::string reason) {
        const ArtNetDiscoveryError error{ArtNetDiscoveryError::Kind::socketUnavailable,
                                         std::move(reason)};
        qCWarning(lcDiscovery).noquote() << QString::fromStdString(error.description());
        std::lock_guard guard(lock_);
        state_.failureReason = error.description();
    };
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        fail("socket() failed: " + systemError(errno));
        return;
    }
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
    ::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(options_.bindPort);
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        const int error = errno;
        ::close(fd);
        fail("bind(0.0.0.0:" + std::to_string(options_.bindPort) +
             ") failed: " + systemError(error));
        return;
    }
    socketFD_ = fd;
    {
        std::lock_guard guard(lock_);
        state_.failureReason.reset();
    }
    nextPoll_ = steadyNow(); // the first poll at once
}

void ArtNetDiscovery::drainSocket() {
    std::uint8_t buffer[receiveBufferSize];
    bool heard = false;
    bool changed = false;
    for (int i = 0; i < datagramsPerSlice; ++i) {
        // A longer datagram is cut to the buffer; a reply fits well within it.
        const ssize_t size = ::recv(socketFD_, buffer, sizeof buffer, MSG_DONTWAIT);
        if (size <= 0)
            break;
        heard = true;
        if (auto node = ArtNetPollReplyParser::parse({buffer, std::size_t(size)}))
            changed |= nodes_.record(std::move(*node), options_.clock->now());
    }
    if (heard) {
        std::lock_guard guard(lock_);
        state_.heardAnyTraffic = true;
    }
    if (changed)
        publish();
}

void ArtNetDiscovery::pollTick() {
    sendPoll();
    if (nodes_.expire(options_.clock->now() - options_.nodeTimeout))
        publish();
    if (nodes_.evicted() != reportedEvictions_) {
        qCWarning(lcDiscovery).noquote()
            << "More than" << nodes_.size()
            << "Art-Net nodes answer; the longest silent are forgotten to make room ("
            << (nodes_.evicted() - reportedEvictions_) << "since the last poll).";
        reportedEvictions_ = nodes_.evicted();
    }
    std::lock_guard guard(lock_);
    ++state_.pollCycles;
}

void ArtNetDiscovery::sendPoll() {
    static const std::vector<std::uint8_t> packet = ArtNetPacketBuilder::buildArtPollPacket();
    for (const std::string& destination :
         pollDestinations(options_.interfaceBroadcasts(), unicastTarget_)) {
        sockaddr_in remote{};
        remote.sin_family = AF_INET;
        remote.sin_port = htons(options_.pollPort);
        remote.sin_addr = *ipv4Literal(destination);
        // Errors (no route, a down interface) are left to the next poll.
        ::sendto(socketFD_, packet.data(), packet.size(), MSG_DONTWAIT,
                 reinterpret_cast<const sockaddr*>(&remote), sizeof remote);
    }
}

void ArtNetDiscovery::publish() {
    ArtNetNodeList nodes(nodes_.sortedByAddress());
    {
        std::lock_guard guard(lock_);
        std::swap(state_.nodes, nodes);
    }
    // The previous list, if no reader holds it, is freed here, outside the lock.
}

std::vector<std::string>
ArtNetDiscovery::pollDestinations(const std::vector<std::string>& broadcasts,
                                  const std::optional<std::string>& target) {
    std::set<std::string> unique{limitedBroadcast};
    unique.insert(broadcasts.begin(), broadcasts.end());
    if (target && !target->empty())
        unique.insert(*target);
    std::vector<std::string> destinations;
    for (const std::string& destination : unique)
        if (ipv4Literal(destination))
            destinations.push_back(destination);
    return destinations;
}

std::vector<std::string> ArtNetDiscovery::interfaceBroadcastAddresses() {
    std::vector<std::string> addresses;
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0)
        return addresses;
    for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        const unsigned flags = entry->ifa_flags;
        if (!(flags & IFF_UP) || !(flags & IFF_BROADCAST) || (flags & IFF_LOOPBACK))
            continue;
        const sockaddr* broadcast = entry->ifa_broadaddr;
        if (!broadcast || broadcast->sa_family != AF_INET)
            continue;
        char text[INET_ADDRSTRLEN];
        const auto* address = reinterpret_cast<const sockaddr_in*>(broadcast);
        if (::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text))
            addresses.emplace_back(text);
    }
    ::freeifaddrs(list);
    return addresses;
}

} // namespace kelvo
