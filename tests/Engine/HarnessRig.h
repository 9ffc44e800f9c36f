#pragma once

// Drives the development harness (devcloud/harness/engine.js) through the real engine host and
// the real band extractor, hop by hop, from generated music.

#include "Audio/BandEnergyExtractor.h"
#include "Audio/MicHop.h"
#include "Engine/EngineHost.h"
#include "Show/BootstrapViewData.h"
#include "support/SyntheticDanceTrack.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <span>
#include <sstream>
#include <string>
#include <vector>

namespace kelvo::testing {

inline std::string readSourceFile(const std::string& relative) {
    std::ifstream in(std::string(KELVO_SOURCE_DIR) + "/" + relative, std::ios::binary);
    EXPECT_TRUE(in.good()) << "cannot read " << relative;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline const std::string& harnessSource() {
    static const std::string source = readSourceFile("devcloud/harness/engine.js");
    return source;
}

inline nlohmann::json demoBootstrap() {
    return nlohmann::json::parse(readSourceFile("devcloud/data/bootstrap.json"));
}

/// The demo configuration's themes as the bridge reads them.
inline std::vector<ThemeOption> demoThemes() {
    return BootstrapViewData::extractThemeOptions(readSourceFile("devcloud/data/config.json"));
}

/// The themes as the bridge hands them to the engine.
inline nlohmann::json enginePayloads(const std::vector<ThemeOption>& themes) {
    nlohmann::json payloads = nlohmann::json::array();
    for (const ThemeOption& theme : themes) {
        payloads.push_back(theme.enginePayload());
    }
    return payloads;
}

inline nlohmann::json demoThemesForEngine() {
    return enginePayloads(demoThemes());
}

/// The demo show's lighting modes as the bridge lists them.
inline std::vector<LightingModeOption> demoLightingModes() {
    return BootstrapViewData::extractLightingModes(readSourceFile("devcloud/data/bootstrap.json"));
}

/// The control state the bridge hands the engine with the demo show: the demo's selections
/// (read as the bridge reads them) with the mode replaced by `mode` when given.
inline nlohmann::json demoControlState(const std::string& mode = {}) {
    const std::string text = readSourceFile("devcloud/data/bootstrap.json");
    const BridgeControlSelections selections = BootstrapViewData::extractControlSelections(text);
    nlohmann::json state = nlohmann::json::parse(text)["control_state"];
    state["mode"] = mode.empty() ? selections.modeId : mode;
    state["mode_to"] = selections.modeTo ? nlohmann::json(*selections.modeTo) : nlohmann::json();
    state["mode_lerp"] = selections.modeLerp;
    state["theme_name"] = selections.themeName;
    return state;
}

/// The hops of mono audio as the capture would produce them: levels from the real extractor.
inline std::vector<MicHop> hopsOf(const std::vector<float>& samples, double rate) {
    BandEnergyExtractor extractor(rate);
    constexpr std::size_t hop = BandEnergyExtractor::hopSize;
    std::vector<MicHop> hops;
    hops.reserve(samples.size() / hop);
    for (std::size_t i = 0; i + hop <= samples.size(); i += hop) {
        extractor.appendHopToRing(std::span<const float, hop>(samples.data() + i, hop));
        extractor.updateSpectrum();
        MicHop h;
        h.levels = extractor.levels();
        h.dt = static_cast<double>(hop) / rate;
        h.sampleRate = rate;
        hops.push_back(std::move(h));
    }
    return hops;
}

inline std::vector<MicHop> hopsOf(const SyntheticDanceTrack& track) {
    return hopsOf(track.samples(), track.spec().sampleRate);
}

/// What the classical pipeline reported over a run.
struct ClassicalRun {
    std::vector<double> beatTimes;              ///< classical clock at each hop that beat
    std::vector<std::pair<double, double>> bpm; ///< (clock, bpm) after every hop
    std::vector<double> dropTimes;              ///< clock whenever the automatic count rose
    double firstArmedAt = -1;                   ///< clock when the detector first armed
};

/// Feeds the hops one at a time (beat timing at hop resolution).
inline ClassicalRun runClassical(EngineHost& host, const std::vector<MicHop>& hops) {
    ClassicalRun run;
    int drops = host.automaticDropCount();
    for (const MicHop& hop : hops) {
        host.updateClassical(std::span<const MicHop>(&hop, 1));
        const double clock = host.classicalClock();
        if (host.lastBeat().beat) {
            run.beatTimes.push_back(clock);
        }
        run.bpm.emplace_back(clock, host.lastBeat().bpm);
        if (host.automaticDropCount() != drops) {
            drops = host.automaticDropCount();
            run.dropTimes.push_back(clock);
        }
        if (run.firstArmedAt < 0 && host.dropArmed()) {
            run.firstArmedAt = clock;
        }
    }
    return run;
}

inline std::vector<double> from(const std::vector<double>& times, double start) {
    std::vector<double> out;
    for (double t : times) {
        if (t >= start) {
            out.push_back(t);
        }
    }
    return out;
}

/// Captures stdout around a block so tests can assert the script never threw ("JSC error: …").
/// Whatever was captured is echoed back so failure messages stay visible.
class ScriptErrorWatch {
public:
    ScriptErrorWatch() { ::testing::internal::CaptureStdout(); }
    std::string output() {
        if (!taken_) {
            text_ = ::testing::internal::GetCapturedStdout();
            std::fputs(text_.c_str(), stdout);
            taken_ = true;
        }
        return text_;
    }
    bool scriptThrew() { return output().find("JSC error") != std::string::npos; }
    ~ScriptErrorWatch() { output(); }

private:
    bool taken_ = false;
    std::string text_;
};

} // namespace kelvo::testing
