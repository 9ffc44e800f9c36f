// Sends frames on Art-Net universe 1 through the bridge's real Art-Net path (LiveDmxOutput →
// ArtNetSender → NWUDPSocket) so integration tests can check them with independent software.
//
//   artnet_probe HOST FRAMES INTERVAL_MS VALUES [listen]
//
// VALUES is a comma-separated list of channel values. "listen" binds 0.0.0.0:6454 first (so
// broadcasts arrive too) and prints how many datagrams arrived. Prints the transport status
// at the end. Only ever run inside a network namespace created by the calling test.
#include "DMX/LiveDmxOutput.h"
#include "DMX/NWUDPSocket.h"

#include <cstdio>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace kelvo;

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: artnet_probe HOST FRAMES INTERVAL_MS VALUES [listen]\n");
        return 2;
    }
    const int listener = argc > 5 ? ::socket(AF_INET, SOCK_DGRAM, 0) : -1;
    if (listener >= 0) {
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_port = htons(6454);
        const timeval wait{0, 200'000};
        ::setsockopt(listener, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        if (::bind(listener, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
            std::perror("artnet_probe: bind");
            return 3;
        }
    }

    auto socket = std::make_shared<NWUDPSocket>();
    LiveDmxOutput output(EnttecSerialSender([](const std::string&) { return nullptr; },
                                            [] { return std::vector<std::string>{}; }),
                         socket);
    OutputSettings settings;
    settings.artnetEnabled = true;
    settings.enttecEnabled = false;
    settings.artnetHost = argv[1];
    settings.routes = {{1, UniverseRoute::Destination::artnet(1)}};
    std::vector<std::uint8_t> values;
    std::stringstream list(argv[4]);
    for (std::string item; std::getline(list, item, ',');)
        values.push_back(static_cast<std::uint8_t>(std::stoi(item)));
    for (int frame = std::atoi(argv[2]); frame > 0; --frame) {
        output.send({{1, values}}, settings);
        std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(argv[3])));
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
