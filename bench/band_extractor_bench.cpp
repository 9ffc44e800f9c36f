#include "Audio/BandEnergyExtractor.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

// One hop's analysis as capture runs it: ring shift, spectrum and onset, four band means.
static void BM_ExtractorHop(benchmark::State& state) {
    kelvo::BandEnergyExtractor extractor(48000);
    std::vector<float> hop(512);
    unsigned seed = 7;
    for (float& s : hop) {
        seed = seed * 1103515245u + 12345u;
        s = float((seed >> 8) & 0xffff) / 65536.0f - 0.5f;
    }
    for (auto _ : state) {
        extractor.appendHopToRing(std::span<const float, 512>(hop.data(), 512));
        extractor.updateSpectrum();
        benchmark::DoNotOptimize(extractor.levels());
        hop[0] = -hop[0];
    }
}
BENCHMARK(BM_ExtractorHop)->Repetitions(5)->ReportAggregatesOnly(true);

BENCHMARK_MAIN();
