// What a mode, blend or theme change costs the main thread to save the dashboard selections:
// written in place (atomic file, synced) against handed to the cache's worker.
#include "Cloud/OfflineShowCache.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

kelvo::OfflineWorkspaceUIState workspace() {
    kelvo::OfflineWorkspaceUIState state{.selectedModeId = "party", .selectedThemeName = "Rave"};
    for (int i = 0; i < 20; ++i)
        state.shows.push_back({"show-" + std::to_string(i), "A show", i == 0, false});
    return state;
}

void BM_WorkspaceSavedInPlace(benchmark::State& state) {
    QTemporaryDir dir;
    kelvo::OfflineShowCache cache(dir.path());
    auto selections = workspace();
    for (auto _ : state) {
        selections.selectedModeLerp = double(state.iterations() % 100) / 100.0;
        cache.saveWorkspaceUI(selections);
    }
}
BENCHMARK(BM_WorkspaceSavedInPlace)->Unit(benchmark::kMicrosecond);

void BM_WorkspaceHandedToTheWorker(benchmark::State& state) {
    QTemporaryDir dir;
    kelvo::OfflineShowCache cache(dir.path());
    auto selections = workspace();
    for (auto _ : state) {
        selections.selectedModeLerp = double(state.iterations() % 100) / 100.0;
        cache.saveWorkspaceUILater(selections);
    }
    cache.flushPendingWrites(); // after the timed loop
}
BENCHMARK(BM_WorkspaceHandedToTheWorker)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
