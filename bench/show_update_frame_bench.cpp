// What a pushed frame of nearly the largest size taken (a 4 MB bootstrap) costs the lights'
// thread: decoded where it arrives, against handed to the decoding worker.
#include "Cloud/ShowUpdatesChannel.h"

#include <QCoreApplication>

#include <nlohmann/json.hpp>

#include <benchmark/benchmark.h>

namespace {

QByteArray largeBootstrapFrame() {
    nlohmann::json fixtures = nlohmann::json::array();
    for (int i = 0; i < 52000; ++i)
        fixtures.push_back({{"id", "fixture-" + std::to_string(i)},
                            {"universe", 1 + i / 512},
                            {"address", 1 + i % 512},
                            {"x", i % 100},
                            {"y", i / 100}});
    return QByteArray::fromStdString(
        nlohmann::json{{"type", "bootstrap"}, {"data", {{"fixtures", fixtures}}}}.dump());
}

struct Channel {
    Channel() {
        QObject::connect(&channel, &kelvo::ShowUpdatesChannel::messageReceived,
                         [this](const kelvo::ShowUpdateMessage&) { ++received; });
    }
    kelvo::ShowUpdatesChannel channel{[] { return true; }};
    int received = 0;
};

void BM_FrameDecodedWhereItArrives(benchmark::State& state) {
    const QByteArray frame = largeBootstrapFrame();
    state.counters["bytes"] = double(frame.size());
    Channel rig;
    for (auto _ : state)
        rig.channel.handleFrame(frame);
}
BENCHMARK(BM_FrameDecodedWhereItArrives)->Iterations(20)->Unit(benchmark::kMillisecond);

void BM_FrameHandedToTheWorker(benchmark::State& state) {
    const QByteArray frame = largeBootstrapFrame();
    Channel rig;
    for (auto _ : state) {
        rig.channel.receiveFrame(frame);
        state.PauseTiming();
        const int wanted = rig.received + 1;
        while (rig.received < wanted)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_FrameHandedToTheWorker)->Iterations(20)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
