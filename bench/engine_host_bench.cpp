#include "Engine/EngineHost.h"
#include "Engine/Script/ScriptContext.h"
#include "Engine/Script/ScriptString.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>

namespace {

std::string readBenchHarness() {
    std::ifstream file(std::string(KELVO_BENCH_DATA_DIR) + "/harnesses/tick_bench.js");
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

kelvo::MicHop benchHop(double level) {
    kelvo::MicHop hop;
    hop.levels = {level, level - 10, level - 20, level - 5, 0.4, 0.1};
    hop.dt = 512.0 / 48000;
    hop.samples.assign(512, 0.0f);
    hop.sampleRate = 48000;
    return hop;
}

} // namespace

// One engine tick: two hops through the classical chain, a session step and the conversion of
// eight full universes.
static void BM_EngineTick(benchmark::State& state) {
    kelvo::EngineHost host;
    host.loadHarness(readBenchHarness());
    host.loadCachedShow("{}");
    if (!host.hasRealizedShow()) {
        state.SkipWithError("bench harness did not realise a show");
        return;
    }
    const std::vector<kelvo::MicHop> hops = {benchHop(-30), benchHop(-28)};
    std::size_t channels = 0;
    for (auto _ : state) {
        const auto frame = host.updateClassical(hops);
        const auto buffers = host.step(*frame, 1.0 / 60, false);
        for (const auto& [universe, bytes] : *buffers)
            channels += bytes.size();
    }
    benchmark::DoNotOptimize(channels);
    if (channels != static_cast<std::size_t>(state.iterations()) * 8 * 512)
        state.SkipWithError("wrong channel count");
}
BENCHMARK(BM_EngineTick)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);

// The conversion alone: JSON text of eight universes to bytes.
static void BM_DmxJsonToBuffers(benchmark::State& state) {
    std::string text = "{";
    for (int u = 1; u <= 8; ++u) {
        text += (u > 1 ? ",\"" : "\"") + std::to_string(u) + "\":[";
        for (int c = 0; c < 512; ++c)
            text += (c ? "," : "") + std::to_string((c * 7 + u) & 255);
        text += "]";
    }
    text += "}";
    for (auto _ : state)
        benchmark::DoNotOptimize(kelvo::parseDmxBuffersJSON(text));
}
BENCHMARK(BM_DmxJsonToBuffers)
    ->Unit(benchmark::kMicrosecond)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

// One call into a trivial script function, with the execution time limit every host call runs
// under (argument 1) and without it (0): what bounding each call costs.
static void BM_ScriptCall(benchmark::State& state) {
    kelvo::script::ScriptContext context;
    if (state.range(0))
        context.setTimeLimit(std::chrono::milliseconds(10));
    context.evaluate("function f(x) { return x + 1; }");
    const kelvo::script::ScriptString name("f");
    const kelvo::script::Value self = context.global();
    const kelvo::script::Value argument = context.number(1);
    for (auto _ : state)
        benchmark::DoNotOptimize(self.call(name, {argument}).ref());
}
BENCHMARK(BM_ScriptCall)->Arg(0)->Arg(1)->Repetitions(5)->ReportAggregatesOnly(true);

BENCHMARK_MAIN();
