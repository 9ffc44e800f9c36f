// What decoding the engine's interpretation payload costs the tick that refreshes the
// interpretation screen: one group of interpreters, each on a fixture of its own.
#include "Show/InterpretationTree.h"

#include <nlohmann/json.hpp>

#include <benchmark/benchmark.h>

namespace {

std::string payload(int interpreters) {
    nlohmann::json children = nlohmann::json::array();
    for (int i = 0; i < interpreters; ++i)
        children.push_back({{"kind", "interpreter"},
                            {"label", "Pulse"},
                            {"category", "Animation"},
                            {"fixtures", {"fixture-" + std::to_string(i)}}});
    return nlohmann::json{
        {"tree",
         {{"mode", "party"},
          {"children", {{{"kind", "group"}, {"label", "Stage"}, {"children", children}}}}}}}
        .dump();
}

void BM_InterpretationTreeDecode(benchmark::State& state) {
    const std::string bytes = payload(static_cast<int>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(kelvo::InterpretationTree::decode(bytes));
}
BENCHMARK(BM_InterpretationTreeDecode)->Arg(100)->Arg(3000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
