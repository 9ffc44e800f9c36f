#pragma once

#include "Audio/MicFeatures.h"
#include "Audio/MicHop.h"
#include "DMX/DmxFrame.h"
#include "Engine/DropDiagnostics.h"
#include "Engine/LightingPlot.h"
#include "Show/ShowOptions.h"

#include <nlohmann/json.hpp>

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

namespace script {
class ScriptContext;
class ProtectedValue;
} // namespace script

/// Live control handed to the director session; every field may be absent.
struct EngineControl {
    std::optional<std::string> modeId = std::nullopt;
    std::optional<std::string> modeTo = std::nullopt;
    std::optional<double> modeLerp = std::nullopt;
    std::optional<std::string> themeName = std::nullopt;
    std::optional<nlohmann::json> themes = std::nullopt; ///< array of theme objects
    std::optional<double> manualDimmer = std::nullopt;
};

/// Hosts the harness script in JavaScriptCore: runs the classical audio chain hop by hop, drives
/// the director session and turns its results into DMX buffers, the plot and the live scheme.
/// Main thread only. No operation throws; script exceptions are printed and swallowed.
class EngineHost {
public:
    EngineHost();
    ~EngineHost();
    EngineHost(const EngineHost&) = delete;
    EngineHost& operator=(const EngineHost&) = delete;

    void loadHarness(std::string_view source);
    void loadCachedShow(std::string_view subsetJSON);
    /// Builds the show subset in the script, loads it and applies fixture options and control
    /// state; the subset as UTF-8 JSON for the cache, or nullopt.
    std::optional<std::string> loadShow(const nlohmann::json& activeShow,
                                        const nlohmann::json& controlState);
    void applyControl(const EngineControl& control);
    void applyFixtureOptions(const nlohmann::json& fixtures);
    bool hasRealizedShow() const;
    void setForcedDrop(bool on);
    /// The session's "shiftLighting" and "shiftColorScheme" (no arguments); nothing without a
    /// session.
    void shiftLighting();
    void shiftColorScheme();
    void replaceDropDetector();
    std::optional<std::string> interpretationPayload();

    /// Feeds the hops through the classical chain; the beat frame's JSON, or nullopt.
    std::optional<std::string> updateClassical(std::span<const MicHop> hops);
    /// The last beat frame again with its beat flags cleared, for ticks without new audio.
    std::optional<std::string> latestFrameJSON();
    /// One session step; nullopt without a realized show.
    std::optional<DmxFrame> step(std::string_view frameJSON, double dt, bool refreshVisuals);

    DropDiagnostics dropDiagnostics() const;

    const MicBands& lastNormalizedBands() const { return lastNormalizedBands_; }
    const BeatReadout& lastBeat() const { return lastBeat_; }
    const LightingPlot& lightingPlot() const { return lightingPlot_; }
    const std::vector<ThemePaletteColor>& liveScheme() const { return liveScheme_; }
    double classicalClock() const { return classicalClock_; }
    int automaticDropCount() const { return automaticDropCount_; }
    const std::vector<std::string>& recentDrops() const { return recentDrops_; }
    bool dropArmed() const { return dropArmed_; }
    bool hasContext() const { return context_ != nullptr; }
    bool hasSession() const;

    /// The manual dimmer a control-state map asks for: "manual_dimmer", else the largest of
    /// "manual_fixture_dimmers", clamped to 0...1; nullopt when neither gives a number.
    static std::optional<double> manualDimmer(const nlohmann::json& controlState);

    /// Fixture id → (x, y) from a show subset's JSON text.
    static std::map<std::string, std::pair<double, double>>
    fixturePositionsFromSubset(std::string_view subsetJSON);

    static constexpr std::size_t maximumRecentDrops = 8;

private:
    struct Names;
    struct Scripts;

    /// One hop through the classical chain; false when it produced no beat frame.
    bool updateFrame(const MicHop& hop, bool& beat, bool& downbeat);
    void releaseScriptObjects();

    std::unique_ptr<script::ScriptContext> context_;
    std::unique_ptr<Scripts> scripts_; // session, trackers, detector: all die before the context
    bool dropArmed_ = false;
    int automaticDropCount_ = 0;
    std::vector<std::string> recentDrops_;
    double classicalClock_ = 0;
    MicBands lastNormalizedBands_;
    BeatReadout lastBeat_;
    LightingPlot lightingPlot_;
    std::vector<ThemePaletteColor> liveScheme_;
    std::map<std::string, std::pair<double, double>> fixturePositions_;
    std::unique_ptr<const Names> names_;
};

} // namespace kelvo
