// Sends frames through the bridge's real Art-Net path (LiveDmxOutput → ArtNetSender →
// NWUDPSocket) so integration tests can check them with independent Art-Net software.
//
//   artnet_probe --host H [--port P] [--universe U] [--frames N] [--interval-ms MS]
//                [--values 1,2,3] [--listen PORT]
//
// --listen binds 0.0.0.0:PORT first (so broadcasts arrive too) and prints how many datagrams
// arrived. Prints the transport status at the end. Only ever run inside a network namespace
// created by the calling test.
#include "DMX/LiveDmxOutput.h"
#include "DMX/NWUDPSocket.h"

#include <cstdio>
#include <map>
#include <netinet/in.h>
#include <sstream>
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

int listenOn(int port) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<std::uint16_t>(port));
    const timeval wait{0, 200'000};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
        std::perror("artnet_probe: bind");
        std::exit(3);
    }
    return fd;
}

} // namespace

int main(int argc, char** argv) {
    std::map<std::string, std::string> options = {
        {"--port", "6454"},      {"--universe", "0"},          {"--frames", "1"},
        {"--interval-ms", "25"}, {"--values", "255,128,0,64"}, {"--listen", "-1"}};
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 >= argc || (std::string(argv[i]) != "--host" && !options.contains(argv[i]))) {
            std::fprintf(stderr, "artnet_probe: unknown option or missing value: %s\n", argv[i]);
            return 2;
        }
        options[argv[i]] = argv[i + 1];
    }
    if (!options.contains("--host")) {
        std::fprintf(stderr, "artnet_probe: --host is required\n");
        return 2;
    }
    const int listenPort = std::stoi(options["--listen"]);
    const int listener = listenPort >= 0 ? listenOn(listenPort) : -1;

    auto socket = std::make_shared<NWUDPSocket>();
    LiveDmxOutput output(EnttecSerialSender([](const std::string&) { return nullptr; },
                                            [] { return std::vector<std::string>{}; }),
                         std::make_shared<FixedPort>(socket, std::stoi(options["--port"])));
    OutputSettings settings;
    settings.artnetEnabled = true;
    settings.enttecEnabled = false;
    settings.artnetHost = options["--host"];
    settings.routes = {{1, UniverseRoute::Destination::artnet(std::stoll(options["--universe"]))}};
    std::vector<std::uint8_t> values;
    std::stringstream list(options["--values"]);
    for (std::string item; std::getline(list, item, ',');)
        values.push_back(static_cast<std::uint8_t>(std::stoi(item)));
    for (int frame = std::stoi(options["--frames"]); frame > 0; --frame) {
        output.send({{1, values}}, settings);
        std::this_thread::sleep_for(std::chrono::milliseconds(std::stoi(options["--interval-ms"])));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // let completions land

    const UDPTransportStatus status = socket->status();
    std::printf("packetsSent=%lld sendFailures=%lld recoveries=%lld state=%s lastError=%s\n",
                static_cast<long long>(status.packetsSent),
                static_cast<long long>(status.sendFailures),
                static_cast<long long>(status.recoveries), status.stateDescription.c_str(),
                status.lastError.value_or("-").c_str());
    std::printf("datagramsDropped=%lld\n", static_cast<long long>(status.datagramsDropped));
    if (listener >= 0) {
        int received = 0;
        for (std::uint8_t buffer[2048]; ::recv(listener, buffer, sizeof buffer, 0) > 0;)
            ++received;
        std::printf("received=%d\n", received);
        ::close(listener);
    }
    return 0;
}
