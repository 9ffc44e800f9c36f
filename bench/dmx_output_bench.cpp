// Cost of the DMX output path per engine frame: ArtDmx build, the fan-out through the real
// connected UDP socket on loopback, and the Enttec frame written to a pseudo-terminal.
#include "DMX/ArtNetPacketBuilder.h"
#include "DMX/EnttecFrameBuilder.h"
#include "DMX/LiveDmxOutput.h"
#include "DMX/NWUDPSocket.h"
#include "DMX/PosixSerialPort.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <atomic>
#include <netinet/in.h>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace kelvo;

std::vector<std::uint8_t> fullUniverse(std::uint8_t seed) {
    std::vector<std::uint8_t> channels(512);
    for (std::size_t i = 0; i < channels.size(); ++i)
        channels[i] = static_cast<std::uint8_t>(i + seed);
    return channels;
}

// A loopback UDP port that takes datagrams and never reads them: the kernel drops what
// overflows, which costs the sender nothing and reports no error.
class SinkPort {
public:
    SinkPort() {
        fd_ = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof local);
        socklen_t length = sizeof local;
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&local), &length);
        port_ = ntohs(local.sin_port);
    }
    ~SinkPort() { ::close(fd_); }
    std::uint16_t port() const { return port_; }

private:
    int fd_;
    std::uint16_t port_;
};

// Forwards to the real socket with a fixed port: the fan-out always names 6454, and the
// benchmark must not bind or send to 6454 outside a namespace of its own.
class PortOverride final : public UDPSending {
public:
    PortOverride(std::shared_ptr<NWUDPSocket> socket, std::uint16_t port)
        : socket_(std::move(socket)), port_(port) {}
    void send(std::span<const std::uint8_t> datagram, const std::string& host,
              std::uint16_t) override {
        socket_->send(datagram, host, port_);
    }

private:
    std::shared_ptr<NWUDPSocket> socket_;
    std::uint16_t port_;
};

void BM_ArtDmxBuild(benchmark::State& state) {
    const auto channels = fullUniverse(1);
    std::vector<std::uint8_t> packet;
    std::uint8_t sequence = 0;
    for (auto _ : state) {
        ArtNetPacketBuilder::writeArtDmxPacket(packet, 7, ++sequence, 0, channels);
        benchmark::DoNotOptimize(packet.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ArtDmxBuild);

// Sequence, build and send of one ArtDmx on the connected socket.
void BM_ArtDmxSendLoopback(benchmark::State& state) {
    SinkPort sink;
    auto socket = std::make_shared<NWUDPSocket>();
    ArtNetSender sender(std::make_shared<PortOverride>(socket, sink.port()));
    const auto channels = fullUniverse(2);
    sender.sendDmx(0, channels, "127.0.0.1");
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // association ready
    for (auto _ : state)
        sender.sendDmx(0, channels, "127.0.0.1");
    state.SetItemsProcessed(state.iterations());
    state.counters["recoveries"] = static_cast<double>(socket->status().recoveries);
}
BENCHMARK(BM_ArtDmxSendLoopback);

// One engine frame of `range(0)` full universes, all routed to Art-Net.
void BM_FanOutFrame(benchmark::State& state) {
    const auto universes = state.range(0);
    SinkPort sink;
    auto socket = std::make_shared<NWUDPSocket>();
    LiveDmxOutput output(EnttecSerialSender([](const std::string&) { return nullptr; },
                                            [] { return std::vector<std::string>{}; }),
                         std::make_shared<PortOverride>(socket, sink.port()));
    OutputSettings settings;
    settings.artnetEnabled = true;
    settings.routes.clear();
    DmxFrame frame;
    for (std::int64_t u = 1; u <= universes; ++u) {
        settings.routes.push_back({u, UniverseRoute::Destination::artnet(u - 1)});
        frame[u] = fullUniverse(static_cast<std::uint8_t>(u));
    }
    output.send(frame, settings);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    for (auto _ : state)
        output.send(frame, settings);
    state.SetItemsProcessed(state.iterations() * universes);
}
BENCHMARK(BM_FanOutFrame)->Arg(8)->Arg(64);

// Build and write one full Enttec frame to a pseudo-terminal drained by another thread.
void BM_EnttecFrameToPty(benchmark::State& state) {
    int controller = -1, device = -1;
    char name[256] = {};
    if (::openpty(&controller, &device, name, nullptr, nullptr) != 0) {
        state.SkipWithError("openpty failed");
        return;
    }
    std::atomic<bool> stop = false;
    std::thread drain([&] {
        std::uint8_t buffer[8192];
        while (!stop) {
            pollfd entry{controller, POLLIN, 0};
            if (::poll(&entry, 1, 20) > 0 && ::read(controller, buffer, sizeof buffer) <= 0)
                break;
        }
    });
    PosixSerialPort port(name);
    port.open();
    const auto channels = fullUniverse(3);
    std::int64_t dropped = 0;
    for (auto _ : state)
        dropped += port.write(EnttecFrameBuilder::buildSendDmxFrame(channels)) ? 0 : 1;
    state.SetItemsProcessed(state.iterations());
    state.counters["dropped"] = static_cast<double>(dropped);
    stop = true;
    drain.join();
    port.close();
    ::close(controller);
    ::close(device);
}
BENCHMARK(BM_EnttecFrameToPty);

// A widget that stopped draining: what the tick pays for a frame that is dropped.
void BM_EnttecFrameToStalledPty(benchmark::State& state) {
    int controller = -1, device = -1;
    char name[256] = {};
    if (::openpty(&controller, &device, name, nullptr, nullptr) != 0) {
        state.SkipWithError("openpty failed");
        return;
    }
    PosixSerialPort port(name);
    port.open();
    const auto channels = fullUniverse(4);
    while (port.write(EnttecFrameBuilder::buildSendDmxFrame(channels))) {
    } // full
    std::int64_t written = 0;
    for (auto _ : state)
        written += port.write(EnttecFrameBuilder::buildSendDmxFrame(channels)) ? 1 : 0;
    state.SetItemsProcessed(state.iterations());
    state.counters["written"] = static_cast<double>(written);
    port.close();
    ::close(controller);
    ::close(device);
}
BENCHMARK(BM_EnttecFrameToStalledPty);

} // namespace

BENCHMARK_MAIN();
