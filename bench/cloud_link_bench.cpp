// The cloud link's cost to the lights: launch to `connected` with a paired token against a
// kelvo-devcloud on loopback, beside the first ArtDmx from the cache (which must not wait for
// the network), and what a full download does to the lights' rhythm: the interval between
// ArtDmx packets (sent by every tick), the longest main-thread piece the download ran in a slot
// after a tick, and the longest main-thread slice of any kind. The first launch starts from an
// empty cache; the others alternate between the engine cached and an older engine cached (the
// download then compiles the new one while the cached show is lighting).
//   build/bench/cloud_link_bench [LAUNCHES]      (builds kelvo-devcloud with it)
#include "CloudBenchRig.h"
#include "DMX/NWUDPSocket.h"
#include "support/DevCloudProcess.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <numeric>
#include <vector>

using namespace kelvo;
using namespace kelvo::bench;

namespace {

/// Forwards to the real socket, noting when each ArtDmx leaves (one per universe per tick).
class TimedArtNet final : public UDPSending {
public:
    void send(std::span<const std::uint8_t> datagram, const std::string& host,
              std::uint16_t port) override {
        // "Art-Net\0", then the ArtDmx opcode 0x5000, little-endian.
        if (datagram.size() > 10 && datagram[8] == 0x00 && datagram[9] == 0x50) {
            const std::lock_guard lock(mutex_);
            if (recording_)
                sent_.push_back(std::chrono::steady_clock::now());
        }
        socket_.send(datagram, host, port);
    }
    void record(bool on) {
        const std::lock_guard lock(mutex_);
        recording_ = on;
    }
    /// Milliseconds between successive packets since the last call.
    std::vector<double> takeIntervals() {
        const std::lock_guard lock(mutex_);
        std::vector<double> intervals;
        for (std::size_t i = 1; i < sent_.size(); ++i)
            intervals.push_back(
                std::chrono::duration<double, std::milli>(sent_[i] - sent_[i - 1]).count());
        sent_.clear();
        return intervals;
    }

private:
    NWUDPSocket socket_;
    std::mutex mutex_;
    bool recording_ = false;
    std::vector<std::chrono::steady_clock::time_point> sent_;
};

std::unique_ptr<AppModel> makeModel(const QString& server, const QString& tone,
                                    std::shared_ptr<TimedArtNet> artnet) {
    auto model = std::make_unique<AppModel>(cloudBenchEnvironment(server, tone, std::move(artnet)));
    model->setArtNetEnabled(true);
    model->replaceRoutes({{1, UniverseRoute::Destination::artnet(0)}});
    return model;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    QTemporaryDir home;
    useBenchHome(home.path());
    QCoreApplication app(argc, argv);
    nameBenchApplication();
    const int launches = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    const QString tone = home.path() + "/tone.wav";
    writeTone(tone);

    const test::DevCloudProcess cloud(
        KELVO_DEVCLOUD,
        {"--state", (home.path() + "/cloud.json").toStdString(), "--device-token", "bench-token"},
        (home.path() + "/cloud.log").toStdString());
    const QString server = QString::fromStdString(cloud.baseUrl());
    if (!cloud.running()) {
        std::fprintf(stderr, "kelvo-devcloud did not start\n");
        return 1;
    }
    BridgeSettings(BridgeSettings::openUserSettings(), BridgeServerConfig::productionURL())
        .saveAuthToken("bench-token", QUrl(server));

    // Main-thread slices during full downloads: a 1 ms timer's lateness while the bridge
    // connects (the first launch fills the cache, so the engine and show are new to it).
    enum Scenario { emptyCache, engineCached, newEngine };
    const char* const scenarioNames[] = {"download with a new engine (empty cache)",
                                         "downloads with the engine cached",
                                         "downloads of a new engine while the cached show lights"};
    struct Figures {
        std::vector<double> ticks;
        double piece = 0, pieceCpu = 0;
    };
    Figures figures[3];
    std::vector<double> firstArtDmx, connected, gaps;
    for (int launch = 0; launch < launches; ++launch) {
        const Scenario scenario = launch == 0 ? emptyCache : launch % 2 ? engineCached : newEngine;
        if (scenario == newEngine) {
            // An older engine in the cache: the download brings the current one.
            QFile engine(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                         '/' + OfflineShowCache::cacheFolderName + '/' +
                         OfflineShowCache::harnessFileName);
            if (engine.open(QIODevice::Append))
                engine.write("\n// an older engine\n");
        }
        QElapsedTimer clock;
        clock.start();
        auto artnet = std::make_shared<TimedArtNet>();
        auto model = makeModel(server, tone, artnet);
        double last = 0, launchLongest = 0;
        QTimer probe;
        probe.setTimerType(Qt::PreciseTimer);
        QObject::connect(&probe, &QTimer::timeout, [&] {
            const double now = clock.nsecsElapsed() / 1e6;
            if (last > 0) {
                gaps.push_back(now - last);
                launchLongest = std::max(launchLongest, now - last);
            }
            last = now;
        });
        double first = -1, linked = -1;
        model->bootstrap();
        // Start-up itself (engine and cached show loaded, capture opened) is measured by
        // scripts/bench; the probe watches what the cloud link adds afterwards.
        probe.start(1);
        artnet->record(true);
        waitFor([&] {
            if (first < 0 && model->dmxOutput().artnetPacketsSent() > 0)
                first = clock.nsecsElapsed() / 1e6;
            if (linked < 0 && model->connectionStatus() == ConnectionStatus::connected)
                linked = clock.nsecsElapsed() / 1e6;
            return first >= 0 && linked >= 0;
        });
        // Keep watching the rest of the download (patches, themes) for a moment.
        waitFor([] { return false; }, 300);
        probe.stop();
        artnet->record(false);
        const std::vector<double> ticks = artnet->takeIntervals();
        const double longestTick =
            ticks.empty() ? 0 : *std::max_element(ticks.begin(), ticks.end());
        const TickSlots* pieces = model->tickSlots();
        const double piece = pieces ? pieces->longestPiece().count() / 1e6 : 0;
        const double pieceCpu = pieces ? pieces->longestPieceProcessorTime().count() / 1e6 : 0;
        std::printf("launch %d: first ArtDmx %.1f ms, connected %.1f ms, longest slice after "
                    "start-up %.1f ms, longest piece after a tick %.1f ms (%.1f ms processor "
                    "time), longest ArtDmx interval %.1f ms (%s)\n",
                    launch + 1, first, linked, launchLongest - 1, piece, pieceCpu, longestTick,
                    scenarioNames[scenario]);
        Figures& group = figures[scenario];
        group.ticks.insert(group.ticks.end(), ticks.begin(), ticks.end());
        group.piece = std::max(group.piece, piece);
        group.pieceCpu = std::max(group.pieceCpu, pieceCpu);
        if (launch > 0) {
            firstArtDmx.push_back(first);
            connected.push_back(linked - first);
        }
        model->applicationWillTerminate();
    }
    std::sort(gaps.begin(), gaps.end());
    std::printf("launches with a cache: first ArtDmx median %.1f ms; connected median %.1f ms "
                "after it\n",
                median(firstArtDmx), median(connected));
    if (!gaps.empty())
        std::printf("1 ms probe while connecting: p50 %.2f ms, p99 %.2f ms, longest %.2f ms\n",
                    gaps[gaps.size() / 2], gaps[gaps.size() * 99 / 100], gaps.back());
    // A tick is 16.67 ms; its deviation is how far an interval strays from that.
    const auto report = [](const char* name, const Figures& group) {
        if (group.ticks.empty())
            return;
        std::vector<double> intervals = group.ticks, deviation;
        for (const double interval : intervals)
            deviation.push_back(std::abs(interval - 1000.0 / 60));
        std::sort(intervals.begin(), intervals.end());
        std::sort(deviation.begin(), deviation.end());
        const auto p99 = [](const std::vector<double>& sorted) {
            return sorted[sorted.size() * 99 / 100];
        };
        std::printf("%s: ArtDmx interval p99 %.2f ms; deviation p50 %.2f ms, p99 %.2f ms, "
                    "largest %.2f ms (%zu intervals); largest slice (piece after a tick) %.2f ms "
                    "(%.2f ms processor time)\n",
                    name, p99(intervals), deviation[deviation.size() / 2], p99(deviation),
                    deviation.back(), deviation.size(), group.piece, group.pieceCpu);
    };
    for (const Scenario scenario : {emptyCache, engineCached, newEngine})
        report(scenarioNames[scenario], figures[scenario]);
    return 0;
}
