// Hostile shows and control states for the development harness (devcloud/harness/engine.js):
// whatever the cloud sends, loading, stepping and describing the show must neither crash nor
// hang, and the output stays within 64 universes of at most 512 channels.
#include "../support/FileBytes.h"
#include "Engine/EngineHost.h"
#include "FuzzTarget.h"

#include <nlohmann/json.hpp>

using namespace kelvo;

namespace {

EngineHost& host() {
    static EngineHost* const instance = [] {
        // The source tree's path: __FILE__ is relative to the build directory, not to where
        // the fuzzer runs.
        const std::string source =
            test::readText(std::string(KELVO_SOURCE_DIR) + "/devcloud/harness/engine.js");
        fuzz::require(!source.empty());
        auto* h = new EngineHost; // lives for the whole fuzzing run
        h->loadHarness(source);
        return h;
    }();
    return *instance;
}

} // namespace

KELVO_FUZZ_TARGET(input) {
    const auto show = nlohmann::json::parse(input, nullptr, false);
    if (show.is_discarded() || !show.is_object())
        return;
    EngineHost& h = host();
    const nlohmann::json control = show.value("control_state", nlohmann::json::object());
    // A call stopped by the time limit (a huge show on a slow sanitized build) is skipped and the
    // last look held, by design, until the script is tried again.
    const auto heldBack = [&h] { return h.fault() == EngineScriptFault::stoppedResponding; };
    const auto subset = h.loadShow(show, control);
    if (heldBack())
        return;
    require(subset && h.hasRealizedShow()); // any object is a show, if an empty one
    // Blend the control state's mode towards the strobe look, and re-deal the looks and
    // colours once per input.
    EngineControl blend;
    blend.modeId = control.is_object() && control.contains("mode") && control["mode"].is_string()
                       ? control["mode"].get<std::string>()
                       : "party";
    blend.modeTo = "strobe";
    blend.modeLerp = 0.5;
    h.applyControl(blend);
    h.shiftLighting();
    h.shiftColorScheme();
    for (const char* frame : {R"({"beat":true,"bpm":128,"drop":1})", "{}"}) {
        const auto dmx = h.step(frame, 1.0 / 60, true);
        if (!dmx && heldBack())
            return;
        require(dmx && dmx->size() <= 64);
        for (const auto& [universe, bytes] : *dmx)
            require(bytes.size() <= 512);
    }
    require(h.interpretationPayload() || heldBack());
    // The cached form loads again.
    h.loadCachedShow(*subset);
    require(h.hasRealizedShow() || heldBack());
}
