// Hostile shows and control states for the development harness (devcloud/harness/engine.js):
// whatever the cloud sends, loading, stepping and describing the show must neither crash nor
// hang, and the output stays within 64 universes of at most 512 channels.
#include "Engine/EngineHost.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace {

kelvo::EngineHost& host() {
    static kelvo::EngineHost* const instance = [] {
        // The source tree's path: __FILE__ is relative to the build directory, not to where
        // the fuzzer runs.
        std::ifstream in(std::string(KELVO_SOURCE_DIR) + "/devcloud/harness/engine.js",
                         std::ios::binary);
        const std::string source{std::istreambuf_iterator<char>(in),
                                 std::istreambuf_iterator<char>()};
        if (source.empty())
            std::abort();
        auto* h = new kelvo::EngineHost; // lives for the whole fuzzing run
        h->loadHarness(source);
        return h;
    }();
    return *instance;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto input =
        nlohmann::json::parse(reinterpret_cast<const char*>(data),
                              reinterpret_cast<const char*>(data) + size, nullptr, false);
    if (input.is_discarded() || !input.is_object())
        return 0;
    kelvo::EngineHost& h = host();
    const nlohmann::json control =
        input.contains("control_state") ? input["control_state"] : nlohmann::json::object();
    // A call stopped by the time limit (a huge show on a slow sanitized build) is skipped and the
    // last look held, by design, until the script is tried again.
    const auto heldBack = [&h] { return h.fault() == kelvo::EngineScriptFault::stoppedResponding; };
    const auto subset = h.loadShow(input, control);
    if (heldBack())
        return 0;
    if (!subset || !h.hasRealizedShow())
        std::abort(); // any object is a show, if an empty one
    // Blend the control state's mode towards the strobe look, and re-deal the looks and
    // colours once per input.
    kelvo::EngineControl blend;
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
            return 0;
        if (!dmx)
            std::abort();
        if (dmx->size() > 64)
            std::abort();
        for (const auto& [universe, bytes] : *dmx)
            if (bytes.size() > 512)
                std::abort();
    }
    if (!h.interpretationPayload() && !heldBack())
        std::abort();
    // The cached form loads again.
    h.loadCachedShow(*subset);
    if (!h.hasRealizedShow() && !heldBack())
        std::abort();
    return 0;
}
