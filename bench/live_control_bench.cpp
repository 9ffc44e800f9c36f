// The main thread's cost of one control-state message pushed by the cloud: decoding the socket's
// text and applying it (dashboard fields, the engine's applyControl in JavaScriptCore, the
// workspace file handed to its writer), with the development engine lighting the demo show.
//   build/bench/live_control_bench
#include "Cloud/ShowUpdateMessage.h"
#include "support/AppModelRig.h"
#include "support/QtEventLoop.h"

#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>

using namespace kelvo;

namespace {

QByteArray demoBootstrap() {
    std::ifstream file(KELVO_BENCH_DATA_DIR "/../devcloud/data/bootstrap.json");
    std::stringstream text;
    text << file.rdbuf();
    return QByteArray::fromStdString(text.str());
}

void BM_HandleControlStateMessage(benchmark::State& state) {
    test::qtApplication();
    test::AppModelRig rig;
    auto model = rig.makeModel();
    model->bootstrap(); // the development engine, built in
    model->applyBootstrap(demoBootstrap());
    if (!model->engine().hasRealizedShow()) {
        state.SkipWithError("the demo show did not load");
        return;
    }
    // Every message changes the mode, the blend and the colour scheme, as a busy operator does.
    const std::string messages[] = {
        R"({"type":"control_state","data":{"mode":"static","mode_to":"chase","mode_lerp":0.3,)"
        R"("theme_name":"Sunset","manual_dimmer":0.8}})",
        R"({"type":"control_state","data":{"mode":"pulse","mode_to":null,"mode_lerp":0,)"
        R"("theme_name":"Rave","manual_dimmer":1}})"};
    std::size_t next = 0;
    for (auto _ : state) {
        const std::optional<ShowUpdateMessage> message =
            decodeShowUpdateMessage(messages[next++ % 2]);
        const auto* control = std::get_if<show_update::ControlState>(&*message);
        model->applyLiveControlState(control->object);
        benchmark::DoNotOptimize(model->selectedModeId());
    }
    if (model->selectedThemeName().empty())
        state.SkipWithError("the messages were not applied");
}
BENCHMARK(BM_HandleControlStateMessage)->Unit(benchmark::kMicrosecond)->Repetitions(5);

} // namespace

BENCHMARK_MAIN();
