// Art-Net health on the main thread with a large rig known, and discovery absorbing a flood of
// replies while the 60 Hz tick runs beside it.
//
// BM_TickRegularityWithReplyFlood binds UDP 6454 and broadcasts ArtPolls, so it only runs
// inside a private network namespace:
//   tests/integration/bridge/in_private_netns.sh build/bench/artnet_health_bench
#include "DMX/ArtNetDiscovery.h"
#include "DMX/ArtNetHealthMonitor.h"
#include "DMX/ArtNetPacketBuilder.h"
#include "Support/TickScheduler.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace kelvo;
using namespace std::chrono_literals;

QCoreApplication& application() {
    static int argc = 1;
    static char name[] = "artnet_health_bench";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

ArtNetNode rigNode(int i) {
    ArtNetNode node;
    node.ip = "10." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ".1";
    char mac[18];
    std::snprintf(mac, sizeof mac, "02:00:00:00:%02x:%02x", i >> 8, i & 0xFF);
    node.mac = mac;
    node.shortName = "Node " + std::to_string(i);
    node.longName = "Four-port Art-Net node number " + std::to_string(i);
    node.outputUniverses = {4 * i, 4 * i + 1, 4 * i + 2, 4 * i + 3};
    node.transmittingUniverses = node.outputUniverses;
    return node;
}

class ListedDiscovery final : public ArtNetDiscovering {
public:
    void start() override {}
    void setUnicastTarget(std::optional<std::string>) override {}
    ArtNetDiscoveryState snapshot() const override {
        ArtNetDiscoveryState state;
        state.heardAnyTraffic = true;
        state.pollCycles = 10;
        state.nodes = alternate && (++calls % 2) ? other : nodes;
        return state;
    }
    ArtNetNodeList nodes;
    ArtNetNodeList other;
    bool alternate = false;
    mutable std::uint64_t calls = 0;
};

// Arg 0: nodes known. Arg 1: 0 = the host is the last node (streaming), 1 = nobody at the host
// (the whole list is the diagnosis), 2 = the list changes every tick (compared in full).
void BM_RefreshArtNetHealth(benchmark::State& state) {
    application();
    const int count = int(state.range(0));
    std::vector<ArtNetNode> nodes;
    for (int i = 0; i < count; ++i)
        nodes.push_back(rigNode(i));
    ListedDiscovery discovery;
    discovery.nodes = ArtNetNodeList(nodes);
    nodes.back().shortName = "Renamed";
    discovery.other = ArtNetNodeList(nodes);
    discovery.alternate = state.range(1) == 2;
    const std::string host = state.range(1) == 1 ? "192.168.1.1" : rigNode(count - 1).ip;
    UDPTransportStatus transport;
    transport.isReady = true;
    ArtNetHealthMonitor monitor(
        discovery, [&] { return transport; },
        [&] {
            return ArtNetOutputView{true, host, false, {4 * (count - 1), 4 * (count - 1) + 1}};
        });
    for (auto _ : state) {
        transport.packetsSent += 120;
        monitor.refresh();
        benchmark::DoNotOptimize(monitor.health());
    }
    state.SetLabel(monitor.health().caseName());
}
BENCHMARK(BM_RefreshArtNetHealth)
    ->Args({1000, 0})
    ->Args({1000, 1})
    ->Args({1000, 2})
    ->Args({10, 0})
    ->Unit(benchmark::kMicrosecond);

std::vector<std::uint8_t> replyBytes(int i) {
    std::vector<std::uint8_t> data(239, 0);
    std::memcpy(data.data(), "Art-Net", 8);
    data[9] = 0x21;
    data[10] = 10;
    data[11] = std::uint8_t(i >> 8);
    data[12] = std::uint8_t(i);
    data[13] = 1;
    std::snprintf(reinterpret_cast<char*>(&data[26]), 18, "Node %d", i);
    data[173] = 4;
    std::fill_n(&data[174], 4, 0x80);
    std::fill_n(&data[182], 4, 0x80);
    for (int port = 0; port < 4; ++port)
        data[190 + port] = std::uint8_t(port);
    data[201] = 0x02;
    data[205] = std::uint8_t(i >> 8);
    data[206] = std::uint8_t(i);
    return data;
}

// CPU time the discovery thread has used, from the kernel's scheduler statistics.
double discoveryCpuMs() {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream comm(task.path() / "comm");
        std::string name;
        std::getline(comm, name);
        if (name != "artnet-discover")
            continue;
        std::ifstream stats(task.path() / "schedstat");
        double nanoseconds = 0;
        stats >> nanoseconds;
        return nanoseconds / 1e6;
    }
    return 0;
}

double percentile(std::vector<double> values, double p) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, std::size_t(p * double(values.size())))];
}

// Arg: replies per 3 s poll cycle, sent to the discovery socket in one burst each cycle.
// Reports how far each 60 Hz tick interval strays from 1/60 s while the monitor ticks once a
// second on the same thread, and the discovery thread's CPU time per poll cycle (12 s: four).
void BM_TickRegularityWithReplyFlood(benchmark::State& state) {
    if (std::getenv("KELVO_IN_NETNS") == nullptr) {
        state.SkipWithError("binds UDP 6454 and broadcasts: run inside in_private_netns.sh");
        return;
    }
    application();
    const int replies = int(state.range(0));
    for (auto _ : state) {
        ArtNetDiscovery discovery;
        UDPTransportStatus transport;
        transport.isReady = true;
        ArtNetHealthMonitor monitor(
            discovery, [&] { return transport; },
            [] {
                return ArtNetOutputView{true, "10.0.0.1", false, {0, 1}};
            });
        monitor.start();

        std::atomic<bool> stop{false};
        std::thread flood([&] {
            const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
            sockaddr_in to{};
            to.sin_family = AF_INET;
            to.sin_port = htons(6454);
            to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            std::vector<std::vector<std::uint8_t>> bytes;
            for (int i = 0; i < replies; ++i)
                bytes.push_back(replyBytes(i));
            while (!stop) {
                for (const auto& reply : bytes)
                    ::sendto(fd, reply.data(), reply.size(), 0,
                             reinterpret_cast<const sockaddr*>(&to), sizeof to);
                for (int i = 0; i < 300 && !stop; ++i)
                    std::this_thread::sleep_for(10ms);
            }
            ::close(fd);
        });

        std::vector<std::chrono::steady_clock::time_point> ticks;
        ticks.reserve(1000);
        TickScheduler scheduler(std::chrono::nanoseconds(1'000'000'000) / 60);
        scheduler.start([&] {
            ticks.push_back(std::chrono::steady_clock::now());
            transport.packetsSent += 2;
        });
        QEventLoop loop;
        QTimer::singleShot(12s, &loop, &QEventLoop::quit);
        loop.exec();
        scheduler.stop();
        stop = true;
        flood.join();

        std::vector<double> deviations;
        // The first second is start-up (the event loop, the first poll and its replies).
        for (std::size_t i = 61; i < ticks.size(); ++i)
            deviations.push_back(std::abs(
                std::chrono::duration<double, std::milli>(ticks[i] - ticks[i - 1]).count() -
                1000.0 / 60.0));
        state.counters["p99_dev_ms"] = percentile(deviations, 0.99);
        state.counters["max_dev_ms"] = percentile(deviations, 1.0);
        state.counters["ticks"] = double(ticks.size());
        state.counters["nodes"] = double(monitor.discoveryState().nodes.size());
        state.counters["discovery_cpu_ms_per_cycle"] = discoveryCpuMs() / 4.0;
        state.SetLabel(monitor.health().caseName());
    }
}
BENCHMARK(BM_TickRegularityWithReplyFlood)
    ->Arg(0)
    ->Arg(1000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
