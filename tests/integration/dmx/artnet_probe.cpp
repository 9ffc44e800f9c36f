// Sends frames through the bridge's real Art-Net path (LiveDmxOutput → ArtNetSender →
// NWUDPSocket) so integration tests can check them with independent Art-Net software.
//
//   artnet_probe --host H [--port P] [--universe U] [--frames N] [--interval-ms MS]
//                [--values 1,2,3] [--listen PORT]
//
// --listen binds 0.0.0.0:PORT (so broadcasts arrive too), drains it, so a capture sees a
// listening node, and prints how many datagrams arrived.
//
//   artnet_probe --discover BROADCAST [--timeout-ms MS]
//
// binds 0.0.0.0:6454, sends one ArtPoll to BROADCAST and prints the first ArtPollReply
// that parses as a node, with the reply's size.
//
// Prints the transport status as one line at the end. Only ever run inside a network
// namespace created by the calling test.
#include "DMX/ArtNetPacketBuilder.h"
#include "DMX/ArtNetPollReplyParser.h"
#include "DMX/LiveDmxOutput.h"
#include "DMX/NWUDPSocket.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <netinet/in.h>
#include <poll.h>
#include <set>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace kelvo;

// The fan-out always names port 6454; a test may redirect to another (0 means "default").
class FixedPort final : public UDPSending {
public:
    FixedPort(std::shared_ptr<NWUDPSocket> socket, std::uint16_t port)
        : socket_(std::move(socket)), port_(port) {}
    void send(std::span<const std::uint8_t> datagram, const std::string& host,
              std::uint16_t) override {
        socket_->send(datagram, host, port_);
    }

private:
    std::shared_ptr<NWUDPSocket> socket_;
    std::uint16_t port_;
};

std::vector<std::uint8_t> parseValues(const std::string& text) {
    std::vector<std::uint8_t> values;
    std::stringstream stream(text);
    std::string item;
    while (std::getline(stream, item, ','))
        if (!item.empty())
            values.push_back(static_cast<std::uint8_t>(std::stoi(item)));
    return values;
}

// Accepts and counts datagrams on a port of every address until destroyed.
class Listener {
public:
    explicit Listener(std::uint16_t port) {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(port);
        local.sin_addr.s_addr = htonl(INADDR_ANY);
        if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
            std::perror("artnet_probe: bind");
            std::exit(3);
        }
        thread_ = std::thread([this] {
            std::uint8_t buffer[2048];
            while (!stop_) {
                pollfd entry{fd_, POLLIN, 0};
                if (::poll(&entry, 1, 20) > 0 && ::recv(fd_, buffer, sizeof buffer, 0) > 0)
                    ++received_;
            }
        });
    }
    ~Listener() {
        stop_ = true;
        thread_.join();
        ::close(fd_);
    }
    int received() const { return received_; }

private:
    std::atomic<int> received_ = 0;
    int fd_ = -1;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

std::string joined(const std::vector<std::int64_t>& values) {
    std::string text;
    for (const std::int64_t value : values)
        text += (text.empty() ? "" : ",") + std::to_string(value);
    return text.empty() ? "none" : text;
}

int discover(const std::string& broadcast, int timeoutMs) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    ::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(ArtNetPacketBuilder::artNetPort);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        std::perror("artnet_probe: bind 6454");
        return 3;
    }
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(ArtNetPacketBuilder::artNetPort);
    ::inet_pton(AF_INET, broadcast.c_str(), &target.sin_addr);
    const auto poll = ArtNetPacketBuilder::buildArtPollPacket();
    if (::sendto(fd, poll.data(), poll.size(), 0, reinterpret_cast<sockaddr*>(&target),
                 sizeof target) < 0) {
        std::perror("artnet_probe: sendto");
        return 3;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, 50) <= 0)
            continue;
        std::uint8_t buffer[1024];
        const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0)
            continue;
        const auto node = ArtNetPollReplyParser::parse({buffer, static_cast<std::size_t>(got)});
        if (!node)
            continue; // our own ArtPoll, looped back by the broadcast
        std::printf("size=%zd ip=%s mac=%s short=[%s] long=[%s] outputs=%s transmitting=%s\n", got,
                    node->ip.c_str(), node->mac.c_str(), node->shortName.c_str(),
                    node->longName.c_str(), joined(node->outputUniverses).c_str(),
                    joined(node->transmittingUniverses).c_str());
        ::close(fd);
        return 0;
    }
    std::printf("no ArtPollReply\n");
    ::close(fd);
    return 1;
}

} // namespace

int main(int argc, char** argv) {
    // Every option takes a value.
    const std::set<std::string> known = {"--host",   "--port",        "--universe",
                                         "--frames", "--interval-ms", "--values",
                                         "--listen", "--discover",    "--timeout-ms"};
    std::map<std::string, std::string> options;
    for (int i = 1; i < argc; i += 2) {
        if (!known.contains(argv[i]) || i + 1 >= argc) {
            std::fprintf(stderr, "artnet_probe: unknown option or missing value: %s\n", argv[i]);
            return 2;
        }
        options[argv[i]] = argv[i + 1];
    }
    const auto option = [&](const char* name, const char* fallback) {
        const auto found = options.find(name);
        return found == options.end() ? std::string(fallback) : found->second;
    };
    if (options.contains("--discover"))
        return discover(options["--discover"], std::stoi(option("--timeout-ms", "3000")));
    const std::string host = option("--host", "");
    const int port = std::stoi(option("--port", "6454"));
    const std::int64_t universe = std::stoll(option("--universe", "0"));
    const int frames = std::stoi(option("--frames", "1"));
    const int intervalMs = std::stoi(option("--interval-ms", "25"));
    const std::vector<std::uint8_t> values = parseValues(option("--values", "255,128,0,64"));
    const int listenPort = std::stoi(option("--listen", "-1"));
    if (host.empty()) {
        std::fprintf(stderr, "artnet_probe: --host is required\n");
        return 2;
    }

    std::unique_ptr<Listener> listener;
    if (listenPort >= 0)
        listener = std::make_unique<Listener>(static_cast<std::uint16_t>(listenPort));

    auto socket = std::make_shared<NWUDPSocket>();
    auto transport = std::make_shared<FixedPort>(socket, static_cast<std::uint16_t>(port));

    LiveDmxOutput output(EnttecSerialSender([](const std::string&) { return nullptr; },
                                            [] { return std::vector<std::string>{}; }),
                         transport);
    OutputSettings settings;
    settings.artnetEnabled = true;
    settings.enttecEnabled = false;
    settings.artnetHost = host;
    settings.routes = {{1, UniverseRoute::Destination::artnet(universe)}};
    for (int frame = 0; frame < frames; ++frame) {
        output.send({{1, values}}, settings);
        if (intervalMs > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(intervalMs));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // let completions land

    const UDPTransportStatus status = socket->status();
    std::printf("packetsSent=%lld sendFailures=%lld recoveries=%lld state=%s lastError=%s\n",
                static_cast<long long>(status.packetsSent),
                static_cast<long long>(status.sendFailures),
                static_cast<long long>(status.recoveries), status.stateDescription.c_str(),
                status.lastError.value_or("-").c_str());
    std::printf("datagramsDropped=%lld\n", static_cast<long long>(status.datagramsDropped));
    if (listener)
        std::printf("received=%d\n", listener->received());
    return 0;
}
