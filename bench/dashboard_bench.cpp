// The dashboard window with the demo show: one 60 Hz model update (an engine tick) followed by
// one rendered frame of the window (software renderer, offscreen), per screen. The frame is
// taken with grabWindow, so it includes a read-back of the 1280×800 image: an upper bound.
// Also the engine tick alone while the window is open, for the tick's regularity.

#include "UI/DashboardRig.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

using namespace kelvo;

std::string readSource(const std::string& relative) {
    std::ifstream file(std::string(KELVO_BENCH_DATA_DIR) + "/../" + relative);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

struct Percentiles {
    double median = 0, p99 = 0;
};
Percentiles percentiles(std::vector<double> samples) {
    if (samples.empty())
        return {};
    std::ranges::sort(samples);
    return {samples[samples.size() / 2],
            samples[std::min(samples.size() - 1, samples.size() * 99 / 100)]};
}

/// 800 stereo frames (one 60 Hz tick at 48 kHz) of a loud low tone.
std::vector<float> kickHop() {
    std::vector<float> samples(2 * 800);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = 0.8f * float(std::sin(double(i / 2) * 2 * 3.14159265 * 60 / 48000));
    return samples;
}

/// The window with the demo show cached, as the bridge starts with it offline.
struct DemoDashboard {
    DemoDashboard() {
        auto cache = dashboard.rig.makeCache();
        cache->saveHarnessJS(QByteArray::fromStdString(readSource("devcloud/harness/engine.js")),
                             "{}");
        const auto boot = nlohmann::json::parse(readSource("devcloud/data/bootstrap.json"));
        cache->saveShowSnapshot(QByteArray::fromStdString(boot["active_show"].dump()));
        dashboard.open();
        dashboard.window()->resize(1280, 800);
    }
    test::AppModelRig& rig() { return dashboard.rig; }
    test::DashboardRig dashboard;
};

void frames(benchmark::State& state, const char* screen) {
    DemoDashboard demo;
    if (!demo.dashboard.shown) {
        state.SkipWithError("the window did not open");
        return;
    }
    if (!demo.dashboard.model().engine().hasRealizedShow()) {
        state.SkipWithError("the demo show did not load");
        return;
    }
    demo.dashboard.window()->setProperty("currentScreen", QString::fromLatin1(screen));
    demo.dashboard.model().setDeskLive(true);
    test::pumpFor(std::chrono::milliseconds(100));
    std::vector<double> frameTimes;
    const std::vector<float> hopOfAudio = kickHop();
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        demo.rig().backend->last->deliver(hopOfAudio);
        demo.dashboard.model().tick();
        QCoreApplication::processEvents();
        const QImage frame = demo.dashboard.window()->grabWindow();
        benchmark::DoNotOptimize(frame.constBits());
        frameTimes.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
    }
    const Percentiles p = percentiles(frameTimes);
    state.counters["median_us"] = p.median;
    state.counters["p99_us"] = p.p99;
}

void BM_DashboardFrameLive(benchmark::State& state) {
    frames(state, "Live");
}
void BM_DashboardFrameDesk(benchmark::State& state) {
    frames(state, "Desk");
}
void BM_DashboardFrameStage(benchmark::State& state) {
    frames(state, "Stage");
}
BENCHMARK(BM_DashboardFrameLive)->Unit(benchmark::kMicrosecond)->Iterations(300);
BENCHMARK(BM_DashboardFrameDesk)->Unit(benchmark::kMicrosecond)->Iterations(300);
BENCHMARK(BM_DashboardFrameStage)->Unit(benchmark::kMicrosecond)->Iterations(300);

// The engine tick with the live screen open, bindings and all, without rendering.
void BM_TickWithWindowOpen(benchmark::State& state) {
    DemoDashboard demo;
    if (!demo.dashboard.shown) {
        state.SkipWithError("the window did not open");
        return;
    }
    std::vector<double> ticks;
    const std::vector<float> hopOfAudio = kickHop();
    for (auto _ : state) {
        demo.rig().backend->last->deliver(hopOfAudio);
        const auto start = std::chrono::steady_clock::now();
        demo.dashboard.model().tick();
        QCoreApplication::processEvents();
        ticks.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
    }
    const Percentiles p = percentiles(ticks);
    state.counters["median_us"] = p.median;
    state.counters["p99_us"] = p.p99;
}
BENCHMARK(BM_TickWithWindowOpen)->Unit(benchmark::kMicrosecond)->Iterations(600);

} // namespace

BENCHMARK_MAIN();
