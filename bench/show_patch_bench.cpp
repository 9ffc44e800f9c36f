// What building a show's patch costs the main thread when a snapshot arrives: a large rig with
// every fixture stacked on one address (unaddressed fixtures all read universe 1, address 1),
// and the same rig in a thousand groups.
#include "Show/ShowPatchBuilder.h"

#include <benchmark/benchmark.h>

namespace {

nlohmann::json rig(int fixtures, int groups) {
    nlohmann::json rows = nlohmann::json::array();
    for (int i = 0; i < fixtures; ++i)
        rows.push_back({{"id", "f" + std::to_string(i)},
                        {"fixture_type", "par"},
                        {"group_name", "group " + std::to_string(i % groups)},
                        {"x", i % 100},
                        {"y", i / 100}});
    return {{"summary", {{"id", "show-big"}, {"name", "Big"}}},
            {"revision", 1},
            {"fixture_definitions", {{"par", {{"label", "Par"}, {"dmx_address_width", 7}}}}},
            {"fixtures", std::move(rows)}};
}

void BM_PatchOfStackedFixtures(benchmark::State& state) {
    const nlohmann::json snapshot = rig(static_cast<int>(state.range(0)), 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(kelvo::ShowPatchBuilder::build(snapshot));
}
BENCHMARK(BM_PatchOfStackedFixtures)->Arg(2000)->Arg(20000)->Unit(benchmark::kMillisecond);

void BM_PatchOfAThousandGroups(benchmark::State& state) {
    const nlohmann::json snapshot = rig(static_cast<int>(state.range(0)), 1000);
    for (auto _ : state)
        benchmark::DoNotOptimize(kelvo::ShowPatchBuilder::build(snapshot));
}
BENCHMARK(BM_PatchOfAThousandGroups)->Arg(20000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
