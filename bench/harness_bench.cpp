// The development harness (devcloud/harness/engine.js) in the real engine host: one engine tick
// with the demo show loaded, and the session step alone with a show of 100 fixtures.
// Per-tick figures: median and 99th percentile, reported as counters.

#include "Engine/EngineHost.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <fstream>
#include <span>
#include <sstream>
#include <vector>

namespace {

std::string readSource(const std::string& relative) {
    std::ifstream file(std::string(KELVO_BENCH_DATA_DIR) + "/../" + relative);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

/// Hops of a 128 BPM kick pattern at 48 kHz as band levels: a kick lifts the low band for a few
/// hops, hats tick the high band on the off-beat.
std::vector<kelvo::MicHop> kickPattern(int count) {
    const double hopSeconds = 512.0 / 48000;
    const double period = 60.0 / 128;
    std::vector<kelvo::MicHop> hops;
    for (int i = 0; i < count; ++i) {
        const double t = i * hopSeconds;
        const double sinceBeat = std::fmod(t, period);
        const double sinceHat = std::fmod(t + period / 2, period);
        kelvo::MicHop hop;
        const double kick = sinceBeat < 0.08 ? 25.0 * (1 - sinceBeat / 0.08) : 0;
        const double hat = sinceHat < 0.03 ? 15.0 : 0;
        hop.levels = {-55 + kick,
                      -60,
                      -80 + hat,
                      -70 + kick / 4,
                      kick > 0 ? 0.9 : 0.6,
                      kick > 20 || hat > 0 ? 0.3 : 0.02};
        hop.dt = hopSeconds;
        hop.sampleRate = 48000;
        hops.push_back(hop);
    }
    return hops;
}

struct Percentiles {
    double median;
    double p99;
};

Percentiles percentiles(std::vector<double> micros) {
    std::sort(micros.begin(), micros.end());
    auto at = [&](double q) { return micros[static_cast<std::size_t>(q * (micros.size() - 1))]; };
    return {at(0.5), at(0.99)};
}

/// This thread's CPU time in microseconds: separates our cost from preemption by other work on
/// a shared machine.
double threadCpuMicros() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) / 1e3;
}

struct TickTimes {
    std::vector<double> wall;
    std::vector<double> cpu;
    TickTimes() {
        wall.reserve(1 << 17);
        cpu.reserve(1 << 17);
    }
};

void report(benchmark::State& state, const TickTimes& times) {
    const Percentiles wall = percentiles(times.wall);
    const Percentiles cpu = percentiles(times.cpu);
    state.counters["median_us"] = wall.median;
    state.counters["p99_us"] = wall.p99;
    state.counters["cpu_median_us"] = cpu.median;
    state.counters["cpu_p99_us"] = cpu.p99;
}

void loadDemo(kelvo::EngineHost& host, const std::string& mode) {
    host.loadHarness(readSource("devcloud/harness/engine.js"));
    auto boot = nlohmann::json::parse(readSource("devcloud/data/bootstrap.json"));
    boot["control_state"]["mode"] = mode;
    host.loadShow(boot["active_show"], boot["control_state"]);
}

} // namespace

// A 60 Hz engine tick with the demo show (48 fixtures, 3 universes): the hops of the tick (one
// or two, as 48 kHz audio arrives) through the classical chain, the session step and the
// conversion to bytes; the plot and scheme every fifth tick.
static void BM_HarnessTickDemoShow(benchmark::State& state) {
    kelvo::EngineHost host;
    loadDemo(host, "party");
    kelvo::EngineControl blend;
    blend.modeId = "party";
    blend.modeTo = "cycle";
    blend.modeLerp = 0.3;
    host.applyControl(blend);
    if (!host.hasRealizedShow()) {
        state.SkipWithError("the demo show did not load");
        return;
    }
    const auto hops = kickPattern(60 * 94);
    std::size_t next = 0;
    long tick = 0;
    TickTimes times;
    for (auto _ : state) {
        // 48000 / 512 / 60 = 1.5625 hops per tick.
        const auto count = static_cast<std::size_t>((tick + 1) * 25 / 16 - tick * 25 / 16);
        if (next + count > hops.size()) {
            next = 0;
        }
        const auto start = std::chrono::steady_clock::now();
        const double cpuStart = threadCpuMicros();
        auto frame = count > 0 ? host.updateClassical(std::span(hops.data() + next, count))
                               : host.latestFrameJSON();
        const auto buffers = host.step(frame.value_or("{}"), 1.0 / 60, tick % 5 == 0);
        times.cpu.push_back(threadCpuMicros() - cpuStart);
        times.wall.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
        benchmark::DoNotOptimize(buffers);
        next += count;
        ++tick;
    }
    report(state, times);
}
BENCHMARK(BM_HarnessTickDemoShow)->Unit(benchmark::kMicrosecond)->MinTime(3.0);

// The session step alone with 100 RGBW fixtures over 2 universes (no audio chain).
static void BM_HarnessStep100Fixtures(benchmark::State& state) {
    kelvo::EngineHost host;
    host.loadHarness(readSource("devcloud/harness/engine.js"));
    nlohmann::json fixtures = nlohmann::json::array();
    const char* groups[] = {"Front", "Back", "Left", "Right", "Floor"};
    for (int i = 0; i < 100; ++i) {
        fixtures.push_back({{"id", "f" + std::to_string(i)},
                            {"fixture_type", "wash"},
                            {"universe", 1 + i / 50},
                            {"address", 1 + (i % 50) * 8},
                            {"group_name", groups[i % 5]},
                            {"x", i % 20},
                            {"y", i / 20}});
    }
    const nlohmann::json show = {
        {"summary", {{"id", "bench"}}},
        {"fixture_definitions",
         {{"wash",
           {{"dmx_address_width", 8},
            {"channels", {"dimmer", "red", "green", "blue", "white", "strobe", "zoom", "mode"}}}}}},
        {"fixtures", fixtures}};
    host.loadShow(show, {{"mode", "party"}});
    const std::string frame =
        R"({"bpm":128,"beat":false,"beat_count":3,"beat_confidence":0.9,"downbeat":false,)"
        R"("phase":0.3,"drop":0,"low":0.6,"mid":0.4,"high":0.3,"all":0.5,"onset":1})";
    const std::string beat =
        R"({"bpm":128,"beat":true,"beat_count":4,"beat_confidence":0.9,"downbeat":true,)"
        R"("phase":0,"drop":0,"low":0.9,"mid":0.4,"high":0.3,"all":0.7,"onset":4})";
    long tick = 0;
    TickTimes times;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const double cpuStart = threadCpuMicros();
        const auto buffers = host.step(tick % 28 == 0 ? beat : frame, 1.0 / 60, false);
        times.cpu.push_back(threadCpuMicros() - cpuStart);
        times.wall.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
        benchmark::DoNotOptimize(buffers);
        ++tick;
    }
    report(state, times);
}
BENCHMARK(BM_HarnessStep100Fixtures)->Unit(benchmark::kMicrosecond)->MinTime(3.0);

BENCHMARK_MAIN();
