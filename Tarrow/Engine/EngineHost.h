#pragma once

#include "Audio/MicFeatures.h"
#include "Audio/MicHop.h"
#include "DMX/DmxFrame.h"
#include "Engine/DropDiagnostics.h"
#include "Engine/LightingPlot.h"
#include "Show/ShowOptions.h"
#include "Support/MonotonicClock.h"

#include <QObject>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
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
class Value;
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

/// Why the harness script is not lighting the show as it should.
enum class EngineScriptFault {
    stepFailed,        ///< its step threw
    stoppedResponding, ///< a call ran out of time; the script is left alone for a while
    loadTookTooLong,   ///< the harness ran out of time at load; the built-in one runs instead
};

/// The operator-facing text of a fault.
const char* description(EngineScriptFault fault);

/// How long the script may run. Each call while the show runs must leave a 60 Hz tick on time;
/// loading the harness, its constructors and a show may take longer.
struct ScriptTimeLimits {
    std::chrono::microseconds call = std::chrono::milliseconds(10);
    std::chrono::microseconds load = std::chrono::seconds(1);
};

/// Hosts the harness script in JavaScriptCore: runs the classical audio chain hop by hop, drives
/// the director session and turns its results into DMX buffers, the plot and the live scheme.
/// Main thread only. No operation throws; script exceptions are printed and swallowed.
///
/// Every call into the script is bounded in time. After a call runs out, the script is left
/// alone (every operation is a no-op, `step` yields nothing, so the last buffers keep going out)
/// for `firstRetryDelay`, doubling with each further timeout up to `longestRetryDelay`; a step
/// that finishes in time starts over.
class EngineHost : public QObject {
    Q_OBJECT
public:
    static constexpr MonotonicClock::Duration firstRetryDelay = std::chrono::seconds(1);
    static constexpr MonotonicClock::Duration longestRetryDelay = std::chrono::seconds(8);

    explicit EngineHost(QObject* parent = nullptr);
    EngineHost(std::shared_ptr<const MonotonicClock> clock, ScriptTimeLimits limits,
               QObject* parent = nullptr);
    ~EngineHost() override;

    /// Loads the harness. One that runs out of time at load is not used: the built-in engine is
    /// loaded instead and false returned.
    bool loadHarness(std::string_view source);
    /// Builds the harness in a context of its own while the running one keeps stepping; it
    /// takes over at the next staged show's switch, or at `installStagedHarness`. A show staged
    /// meanwhile is built by it. False when it ran out of time (the built-in one is staged).
    bool stageHarness(std::string_view source);
    /// The same build in pieces short enough for the gaps between ticks: `beginHarness` drops
    /// any other build and touches no script; each `continueHarness` runs one piece and says
    /// whether the build is complete. Only a complete build is staged.
    std::uint64_t beginHarness(std::string_view source);
    bool continueHarness();
    /// Drops the build, unless it is complete or another one replaced it.
    void abandonHarness(std::uint64_t build);
    /// The engine it replaces is kept, untouched, until `releaseRetiredEngine`: tearing a
    /// script engine down takes longer than a gap between ticks, so the owner does it in a
    /// slot of its own when told by `engineRetired`.
    void installStagedHarness();
    bool hasStagedHarness() const;
    void releaseRetiredEngine();
    bool hasRetiredEngine() const { return retired_ != nullptr; }
    void loadCachedShow(std::string_view subsetJSON);
    /// Builds the show subset in the script, loads it and applies fixture options and control
    /// state; the subset as UTF-8 JSON for the cache, or nullopt.
    std::optional<std::string> loadShow(const nlohmann::json& activeShow,
                                        const nlohmann::json& controlState);

    /// The same load in pieces short enough for the gaps between ticks. The running show keeps
    /// stepping until `switchToStagedShow`, which loads the staged one, its fixture options and
    /// control state in one go. A newer stage, or a new harness, drops the older stage.
    struct StagedShow {
        std::uint64_t id = 0; ///< 0: nothing staged (no session)
    };
    /// The texts the script needs, made from outside data on any thread.
    struct ShowTexts {
        std::string showJSON, controlStateJSON;
        std::string fixtureOptionsJSON; ///< empty: none to apply
        std::string sampleShowJSON;     ///< the show with its first fixture only; empty: none
        EngineControl control;          ///< the control state's own fields
    };
    static ShowTexts showTexts(const nlohmann::json& activeShow,
                               const nlohmann::json& controlState);
    /// Builds the show subset in the script and holds it.
    StagedShow stageShow(const ShowTexts& texts);
    /// The staged subset as UTF-8 JSON for the cache and the fixture positions, or nullopt.
    std::optional<std::string> stagedShowText(StagedShow staged);
    /// Switches to the staged show; false when it is no longer staged or the script may not run.
    bool switchToStagedShow(StagedShow staged, const ShowTexts& texts,
                            std::map<std::string, std::pair<double, double>> positions);
    /// A show staged in a new engine, whose session nothing steps yet, may take its show and
    /// then its fixture options there ahead of the switch, one piece per call; the switch then
    /// only adds the control state and installs. Cold code in a fresh context runs slowest, so
    /// the session first loads a one-fixture sample of the show: compiling the script's show
    /// code and loading the whole show then fall in pieces of their own.
    bool canLoadStagedShowAhead(StagedShow staged) const;
    void loadStagedShowAhead(StagedShow staged, const ShowTexts& texts);
    /// While the script is left alone after a timeout, the newest control and forced-drop
    /// state wait and reach it when it is retried (a drop released meanwhile is not lost); a
    /// new engine drops them, as it starts from the control state it is built with.
    void applyControl(const EngineControl& control);
    void applyFixtureOptions(const nlohmann::json& fixtures);
    bool hasRealizedShow();
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
    /// One session step; nullopt without a realized show, or when the step threw, ran out of
    /// time or gave no `dmx` object (the caller keeps its last buffers).
    std::optional<DmxFrame> step(std::string_view frameJSON, double dt, bool refreshVisuals);
    /// Reads the plot and the live scheme from the last step that finished in time (a step with
    /// `refreshVisuals` does it itself); nothing after a step that failed. Split from the step so
    /// the tick can send its DMX first.
    void refreshVisuals();

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
    /// The fault shown to the operator: a running fault before a load fault.
    std::optional<EngineScriptFault> fault() const { return runFault_ ? runFault_ : loadFault_; }

    /// The manual dimmer a control-state map asks for: "manual_dimmer", else the largest of
    /// "manual_fixture_dimmers", clamped to 0...1; nullopt when neither gives a number.
    static std::optional<double> manualDimmer(const nlohmann::json& controlState);

    /// Fixture id → (x, y) from a show subset's JSON text.
    static std::map<std::string, std::pair<double, double>>
    fixturePositionsFromSubset(std::string_view subsetJSON);

    static constexpr std::size_t maximumRecentDrops = 8;

signals:
    /// The fault shown to the operator changed; either may be absent.
    void faultChanged(std::optional<EngineScriptFault> previous,
                      std::optional<EngineScriptFault> current);
    /// A new engine took over; the old one waits for `releaseRetiredEngine`.
    void engineRetired();

private:
    struct Names;
    struct Scripts;

    enum class BuildStep;
    struct CompiledHarness;
    /// One piece of a build, within the load limit.
    void buildStep(CompiledHarness& build);
    void dropStagedShow();
    /// Where a show is staged: the staged harness when one waits, else the running one.
    script::ScriptContext* stagingContext();
    Scripts& stagingScripts();
    /// True when a context exists and may be called now; ends a back-off that is over.
    bool scriptMayRun();
    /// The director session when it may be called now, else absent. Every session call goes
    /// through here.
    script::Value readySession();
    /// Passes on what `applyControl` and `setForcedDrop` held back; false when the script ran
    /// out of time doing so.
    bool applyHeldBack(const script::Value& session);
    void scriptTimedOut();
    /// Loads the show's one-fixture sample into a new engine's session, quietly.
    void loadSample(script::ScriptContext& context, const script::Value& session,
                    const ShowTexts& texts);
    void setFaults(std::optional<EngineScriptFault> run, std::optional<EngineScriptFault> load);
    /// One hop through the classical chain; false when it produced no beat frame.
    bool updateFrame(const MicHop& hop, bool& beat, bool& downbeat);
    void releaseScriptObjects();

    std::shared_ptr<const MonotonicClock> clock_;
    ScriptTimeLimits limits_;
    std::optional<MonotonicClock::Duration> retryAt_; // left alone until then after a timeout
    std::optional<EngineControl> heldBackControl_;
    std::optional<bool> heldBackForcedDrop_;
    MonotonicClock::Duration retryDelay_ = firstRetryDelay;
    std::optional<EngineScriptFault> runFault_;
    std::optional<EngineScriptFault> loadFault_;
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
    std::uint64_t stagedShowId_ = 0; // the subset held in Scripts::stagedSubset
    enum class LoadedAhead { nothing, sample, show, fixtureOptions };
    LoadedAhead loadedAhead_ = LoadedAhead::nothing; // of it, in a new engine before the switch
    std::unique_ptr<CompiledHarness> stagedHarness_;
    std::unique_ptr<CompiledHarness> retired_;
    std::unique_ptr<const Names> names_;
};

} // namespace kelvo
