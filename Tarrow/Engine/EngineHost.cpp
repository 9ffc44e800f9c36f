#include "Engine/EngineHost.h"

#include "Engine/BundledHarness.h"
#include "Engine/Script/ScriptContext.h"
#include "Engine/Script/ScriptString.h"
#include "Engine/Script/ScriptValue.h"
#include "Show/JsonValueReaders.h"

#include <QStringDecoder>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace kelvo {

using script::ProtectedValue;
using script::ScriptContext;
using script::ScriptString;
using script::Value;

struct EngineHost::Names {
    ScriptString performance{"performance"}, now{"now"};
    ScriptString bridgeEngine{"BridgeEngine"}, beatTracker{"BeatTracker"},
        classicalBeatTracker{"ClassicalBeatTracker"}, bandNormalizer{"AdaptiveBandNormalizer"},
        decibelWindow{"AdaptiveDecibelWindow"}, session{"RuntimeDirectorSession"},
        dropDetector{"DropSignalDetector"}, buildShowSnapshotSubset{"buildShowSnapshotSubset"};
    ScriptString update{"update"}, isArmed{"isArmed"}, extend{"extend"}, get{"get"},
        toJson{"toJson"};
    ScriptString bpm{"bpm"}, beatCount{"beat_count"}, beat{"beat"},
        beatConfidence{"beat_confidence"}, downbeat{"downbeat"}, drop{"drop"};
    ScriptString loadShow{"loadShow"}, applyControl{"applyControl"},
        applyFixtureOptions{"applyFixtureOptions"}, setForcedDrop{"setForcedDrop"},
        shiftLighting{"shiftLighting"}, shiftColorScheme{"shiftColorScheme"},
        toInterpretationPayload{"toInterpretationPayload"}, step{"step"}, director{"director"},
        getRealized{"getRealized"};
    ScriptString json{"JSON"}, stringify{"stringify"};
    ScriptString low{"low"}, mid{"mid"}, high{"high"}, all{"all"}, lowDominance{"low_dominance"},
        onset{"onset"}, sustainedLow{"sustained_low"}, freqLow{"freq_low"};
    ScriptString dmx{"dmx"}, fixtures{"fixtures"}, colorPalette{"color_palette"}, length{"length"},
        id{"id"}, color{"color"}, r{"r"}, g{"g"}, b{"b"}, dimmer{"dimmer"}, strobe{"strobe"};
};

struct EngineHost::Scripts {
    ProtectedValue session;
    ProtectedValue beatTracker;
    ProtectedValue bandNormalizer;
    ProtectedValue decibelWindow;
    ProtectedValue dropDetectorConstructor;
    ProtectedValue dropDetector;
    ProtectedValue lastFrame;
    ProtectedValue lastStep;     // the last step's result that finished in time, for the visuals
    ProtectedValue stagedSubset; // a show built for the next switch
};

namespace {

// performance.now(): wall-clock milliseconds since 1970, fractional.
JSValueRef performanceNow(JSContextRef context, JSObjectRef, JSObjectRef, size_t,
                          const JSValueRef[], JSValueRef*) {
    const auto since = std::chrono::system_clock::now().time_since_epoch();
    return JSValueMakeNumber(context, std::chrono::duration<double, std::milli>(since).count());
}

// JSON text for the script. Strings from outside may hold invalid UTF-8; they are passed on with
// replacement characters rather than throwing out of the host.
std::string scriptText(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string scriptText(const nlohmann::ordered_json& value) {
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

bool isValidUTF8(std::string_view bytes) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(QByteArrayView(bytes.data(), qsizetype(bytes.size())));
    return !decoder.hasError();
}

double finiteOrZero(double value) {
    return std::isfinite(value) ? value : 0.0;
}

double clampUnit(double value) {
    return std::isnan(value) ? 0.0 : std::clamp(value, 0.0, 1.0);
}

std::optional<double> jsonNumber(const nlohmann::json& object, const char* key) {
    return json_read::jsonDouble(json_read::member(object, key));
}

std::optional<std::string> jsonString(const nlohmann::json& object, const char* key) {
    return json_read::jsonString(json_read::member(object, key));
}

bool isArrayOfObjects(const nlohmann::json& value) {
    return value.is_array() &&
           std::all_of(value.begin(), value.end(), [](const auto& e) { return e.is_object(); });
}

std::string formatSeconds(double seconds) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1fs", seconds);
    return text;
}

/// Loading a show may take longer than one call of a running show.
class LoadTimeLimit {
public:
    LoadTimeLimit(ScriptContext& context, const ScriptTimeLimits& limits)
        : context_(context), limits_(limits) {
        context_.setTimeLimit(limits_.load);
    }
    ~LoadTimeLimit() { context_.setTimeLimit(limits_.call); }
    LoadTimeLimit(const LoadTimeLimit&) = delete;
    LoadTimeLimit& operator=(const LoadTimeLimit&) = delete;

private:
    ScriptContext& context_;
    const ScriptTimeLimits& limits_;
};

constexpr const char* stepFailedText = "Lighting engine script error — holding the last look.";
constexpr const char* stoppedRespondingText =
    "Lighting engine script stopped responding — holding the last look and retrying.";
constexpr const char* loadTookTooLongText =
    "Lighting engine script took too long to load — running the built-in engine.";

} // namespace

const char* description(EngineScriptFault fault) {
    switch (fault) {
    case EngineScriptFault::stepFailed:
        return stepFailedText;
    case EngineScriptFault::stoppedResponding:
        return stoppedRespondingText;
    case EngineScriptFault::loadTookTooLong:
        return loadTookTooLongText;
    }
    return stepFailedText;
}

EngineHost::EngineHost(QObject* parent)
    : EngineHost(std::make_shared<SteadyMonotonicClock>(), ScriptTimeLimits{}, parent) {}

EngineHost::EngineHost(std::shared_ptr<const MonotonicClock> clock, ScriptTimeLimits limits,
                       QObject* parent)
    : QObject(parent), clock_(std::move(clock)), limits_(limits),
      scripts_(std::make_unique<Scripts>()), names_(std::make_unique<Names>()) {}

EngineHost::~EngineHost() {
    releaseScriptObjects();
}

void EngineHost::releaseScriptObjects() {
    *scripts_ = Scripts{};
    stagedShowId_ = 0;
}

bool EngineHost::hasSession() const {
    return scripts_->session.isPresent();
}

// Serialises through the script's own global JSON.stringify.
static std::optional<std::string> stringify(ScriptContext& context, const Value& value,
                                            const ScriptString& jsonName,
                                            const ScriptString& stringifyName) {
    const Value json = context.global().get(jsonName);
    if (!json.isPresent())
        return std::nullopt;
    const Value text = json.call(stringifyName, {value});
    if (!text.isPresent())
        return std::nullopt;
    return text.toString();
}

bool EngineHost::scriptMayRun() {
    if (!context_)
        return false;
    if (!context_->isSuspended())
        return true;
    if (!retryAt_ || clock_->now() < *retryAt_)
        return false;
    retryAt_.reset();
    context_->resume();
    return true;
}

Value EngineHost::readySession() {
    if (!scriptMayRun())
        return {};
    Value session = scripts_->session.view();
    const bool heldBack = heldBackForcedDrop_ || heldBackControl_;
    if (heldBack && session.isPresent() && !applyHeldBack(session))
        return {};
    return session;
}

bool EngineHost::applyHeldBack(const Value& session) {
    if (const auto on = std::exchange(heldBackForcedDrop_, std::nullopt)) {
        session.call(names_->setForcedDrop, {context_->boolean(*on)});
        if (context_->isSuspended())
            return false;
    }
    if (const auto control = std::exchange(heldBackControl_, std::nullopt)) {
        nlohmann::ordered_json map = nlohmann::ordered_json::object();
        if (control->themes)
            map["themes"] = *control->themes;
        if (control->modeId) {
            map["modeId"] = *control->modeId;
            map["modeTo"] = control->modeTo ? nlohmann::ordered_json(*control->modeTo) : nullptr;
            map["modeLerp"] = control->modeLerp.value_or(0.0);
        }
        if (control->themeName)
            map["themeName"] = *control->themeName;
        if (control->manualDimmer)
            map["manualDimmer"] = clampUnit(*control->manualDimmer);
        session.call(names_->applyControl, {context_->parseJSON(scriptText(map))});
        if (context_->isSuspended())
            return false;
    }
    return true;
}

void EngineHost::scriptTimedOut() {
    retryAt_ = clock_->now() + retryDelay_;
    retryDelay_ = std::min(retryDelay_ * 2, longestRetryDelay);
    setFaults(EngineScriptFault::stoppedResponding, loadFault_);
}

void EngineHost::setFaults(std::optional<EngineScriptFault> run,
                           std::optional<EngineScriptFault> load) {
    const std::optional<EngineScriptFault> before = fault();
    runFault_ = run;
    loadFault_ = load;
    if (fault() != before)
        emit faultChanged(before, fault());
}

// A harness is built in steps, each one call into a fresh context, so that each can have a slot
// of its own between ticks: the context with the bridge's globals, the script, the classical
// chain's objects, the session.
enum class EngineHost::BuildStep { context, evaluate, classicalChain, session, done };

struct EngineHost::CompiledHarness {
    std::unique_ptr<ScriptContext> context; // null once complete: none could be built in time
    Scripts scripts;                        // dies before its context
    std::optional<EngineScriptFault> loadFault;
    std::string source;                         // until converted for the script engine
    std::optional<script::ScriptString> script; // until evaluated
    BuildStep next = BuildStep::context;
    bool ranOutOfTime = false;
    std::uint64_t id = 0;
    bool complete() const { return next == BuildStep::done; }
};

bool EngineHost::loadHarness(std::string_view source) {
    const bool inTime = stageHarness(source);
    installStagedHarness();
    releaseRetiredEngine(); // nothing is ticking on this path
    return inTime;
}

bool EngineHost::stageHarness(std::string_view source) {
    beginHarness(source);
    while (!continueHarness()) {
    }
    return stagedHarness_->loadFault != EngineScriptFault::loadTookTooLong;
}

bool EngineHost::hasStagedHarness() const {
    return stagedHarness_ && stagedHarness_->complete();
}

void EngineHost::dropStagedShow() {
    scripts_->stagedSubset = ProtectedValue(); // built by the engine being replaced
    stagedShowId_ = 0;
}

std::uint64_t EngineHost::beginHarness(std::string_view source) {
    static std::uint64_t lastBuild = 0;
    stagedHarness_.reset();
    dropStagedShow();
    stagedHarness_ = std::make_unique<CompiledHarness>();
    stagedHarness_->source = std::string(source);
    stagedHarness_->id = ++lastBuild;
    return stagedHarness_->id;
}

bool EngineHost::continueHarness() {
    if (!stagedHarness_ || stagedHarness_->complete())
        return true;
    CompiledHarness& build = *stagedHarness_;
    buildStep(build);
    if (build.ranOutOfTime) {
        build.scripts = Scripts{};
        build.context.reset();
        if (build.loadFault) {
            build.next = BuildStep::done; // even the built-in one hangs: no engine at all
        } else {
            // A harness that hangs at load would hang every start from the cache.
            build.source = bundledHarnessScript();
            build.next = BuildStep::context;
            build.ranOutOfTime = false;
            build.loadFault = EngineScriptFault::loadTookTooLong;
        }
    }
    if (!build.complete())
        return false;
    dropStagedShow(); // one staged meanwhile was built by the engine being replaced
    return true;
}

void EngineHost::abandonHarness(std::uint64_t build) {
    if (stagedHarness_ && stagedHarness_->id == build && !stagedHarness_->complete())
        stagedHarness_.reset();
}

void EngineHost::installStagedHarness() {
    if (!hasStagedHarness())
        return;
    const std::unique_ptr<CompiledHarness> compiled = std::move(stagedHarness_);
    releaseRetiredEngine(); // two take-overs without a slot between: the older goes now
    if (context_) {
        retired_ = std::make_unique<CompiledHarness>();
        retired_->scripts = std::move(*scripts_);
        retired_->context = std::move(context_);
    }
    releaseScriptObjects();
    *scripts_ = std::move(compiled->scripts);
    context_ = std::move(compiled->context);
    if (context_)
        context_->setTimeoutHandler([this] { scriptTimedOut(); });
    retryAt_.reset();
    retryDelay_ = firstRetryDelay;
    heldBackControl_.reset();
    heldBackForcedDrop_.reset();
    // One that ran out of time while staged (loading its show ahead) is left alone, then retried.
    const bool timedOut = context_ && context_->isSuspended();
    if (timedOut)
        retryAt_ = clock_->now() + retryDelay_;
    classicalClock_ = 0;
    lastNormalizedBands_ = {};
    lastBeat_ = {};
    lightingPlot_ = {};
    liveScheme_.clear();
    fixturePositions_.clear();
    dropArmed_ = false;
    automaticDropCount_ = 0;
    recentDrops_.clear();
    setFaults(timedOut ? std::optional(EngineScriptFault::stoppedResponding) : std::nullopt,
              compiled->loadFault);
    if (retired_)
        emit engineRetired();
}

void EngineHost::releaseRetiredEngine() {
    retired_.reset();
}

void EngineHost::buildStep(CompiledHarness& build) {
    const Names& n = *names_;
    Scripts& scripts = build.scripts;
    switch (build.next) {
    case BuildStep::context: {
        build.context = std::make_unique<ScriptContext>();
        ScriptContext& context = *build.context;
        context.setTimeoutHandler([&build] { build.ranOutOfTime = true; });
        context.setTimeLimit(limits_.load);
        Value performance = context.newObject();
        const Value now(
            context, JSObjectMakeFunctionWithCallback(context.get(), n.now.get(), performanceNow));
        performance.set(n.now, now);
        context.global().set(n.performance, performance);
        // Converting a large script costs a few tenths of a millisecond: not in the evaluation's
        // piece, the largest.
        build.script.emplace(build.source);
        std::string().swap(build.source);
        build.next = BuildStep::evaluate;
        return;
    }
    case BuildStep::evaluate:
        build.context->evaluate(*build.script);
        build.script.reset();
        build.next = BuildStep::classicalChain;
        return;
    case BuildStep::classicalChain:
        if (const Value engine = build.context->global().get(n.bridgeEngine); engine.isPresent()) {
            Value tracker = engine.get(n.beatTracker);
            if (!tracker.isPresent())
                tracker = engine.get(n.classicalBeatTracker);
            scripts.beatTracker = ProtectedValue(tracker.construct());
            scripts.bandNormalizer = ProtectedValue(engine.get(n.bandNormalizer).construct());
            scripts.decibelWindow = ProtectedValue(engine.get(n.decibelWindow).construct());
        }
        build.next = BuildStep::session;
        return;
    case BuildStep::session:
        if (const Value engine = build.context->global().get(n.bridgeEngine); engine.isPresent()) {
            scripts.session = ProtectedValue(engine.get(n.session).construct());
            const Value detector = engine.get(n.dropDetector);
            if (detector.isPresent()) {
                scripts.dropDetectorConstructor = ProtectedValue(detector);
                scripts.dropDetector = ProtectedValue(detector.construct());
            }
        }
        if (!build.ranOutOfTime) {
            // While staged it must not report for the engine still running; taking over
            // finds it suspended and reports then.
            build.context->setTimeoutHandler([] {});
            build.context->setTimeLimit(limits_.call);
        }
        build.next = BuildStep::done;
        return;
    case BuildStep::done:
        return;
    }
}

void EngineHost::replaceDropDetector() {
    // While the script is left alone the old detector stays; only the counts start over.
    const Value constructor = scripts_->dropDetectorConstructor.view();
    if (!context_ || !context_->isSuspended())
        scripts_->dropDetector =
            constructor.isPresent() ? ProtectedValue(constructor.construct()) : ProtectedValue();
    dropArmed_ = false;
    automaticDropCount_ = 0;
    recentDrops_.clear();
}

std::map<std::string, std::pair<double, double>>
EngineHost::fixturePositionsFromSubset(std::string_view subsetJSON) {
    std::map<std::string, std::pair<double, double>> positions;
    const nlohmann::json subset = nlohmann::json::parse(subsetJSON, nullptr, false);
    if (!subset.is_object())
        return positions;
    const auto fixtures = subset.find("fixtures");
    if (fixtures == subset.end() || !isArrayOfObjects(*fixtures))
        return positions;
    for (const nlohmann::json& fixture : *fixtures) {
        const auto id = fixture.find("id");
        if (id == fixture.end() || !id->is_string())
            continue;
        if (const auto disabled = fixture.find("is_disabled");
            disabled != fixture.end() && disabled->is_boolean() && disabled->get<bool>())
            continue;
        const auto x = fixture.find("x"), y = fixture.find("y");
        if (x == fixture.end() || y == fixture.end() || !x->is_number() || !y->is_number())
            continue;
        positions[id->get<std::string>()] = {x->get<double>(), y->get<double>()};
    }
    return positions;
}

void EngineHost::loadCachedShow(std::string_view subsetJSON) {
    const Value session = readySession();
    if (!session.isPresent() || !isValidUTF8(subsetJSON))
        return;
    const LoadTimeLimit limit(*context_, limits_);
    const Value subset = context_->evaluate("(" + std::string(subsetJSON) + ")");
    session.call(names_->loadShow, {subset});
    fixturePositions_ = fixturePositionsFromSubset(subsetJSON);
}

std::optional<std::string> EngineHost::loadShow(const nlohmann::json& activeShow,
                                                const nlohmann::json& controlState) {
    const ShowTexts texts = showTexts(activeShow, controlState);
    const StagedShow staged = stageShow(texts);
    std::optional<std::string> text = stagedShowText(staged);
    auto positions = text ? fixturePositionsFromSubset(*text)
                          : std::map<std::string, std::pair<double, double>>{};
    switchToStagedShow(staged, texts, std::move(positions));
    return text;
}

namespace {
nlohmann::json fixtureOptionsList(const nlohmann::json& fixtures) {
    nlohmann::json list = nlohmann::json::array();
    for (const nlohmann::json& fixture : fixtures) {
        if (!fixture.is_object())
            continue;
        const auto id = fixture.find("id");
        if (id == fixture.end() || !id->is_string())
            continue;
        const auto options = fixture.find("options");
        list.push_back({{"id", *id},
                        {"options", options != fixture.end() && options->is_object()
                                        ? *options
                                        : nlohmann::json::object()}});
    }
    return list;
}
} // namespace

EngineHost::ShowTexts EngineHost::showTexts(const nlohmann::json& activeShow,
                                            const nlohmann::json& controlState) {
    ShowTexts texts;
    texts.showJSON = scriptText(activeShow);
    texts.controlStateJSON = scriptText(controlState);
    if (activeShow.is_object()) {
        if (const auto fixtures = activeShow.find("fixtures");
            fixtures != activeShow.end() && isArrayOfObjects(*fixtures))
            if (const nlohmann::json list = fixtureOptionsList(*fixtures); !list.empty())
                texts.fixtureOptionsJSON = scriptText(list);
        if (const auto fixtures = activeShow.find("fixtures");
            fixtures != activeShow.end() && fixtures->is_array() && fixtures->size() > 1) {
            nlohmann::json sample = activeShow;
            sample["fixtures"] = nlohmann::json::array({fixtures->front()});
            texts.sampleShowJSON = scriptText(sample);
        }
    }
    texts.control.modeId = jsonString(controlState, "mode");
    texts.control.modeTo = jsonString(controlState, "mode_to");
    texts.control.modeLerp = jsonNumber(controlState, "mode_lerp").value_or(0.0);
    texts.control.themeName = jsonString(controlState, "theme_name");
    texts.control.manualDimmer = manualDimmer(controlState);
    return texts;
}

ScriptContext* EngineHost::stagingContext() {
    if (hasStagedHarness())
        return stagedHarness_->context.get();
    return readySession().isPresent() ? context_.get() : nullptr;
}

EngineHost::Scripts& EngineHost::stagingScripts() {
    return hasStagedHarness() ? stagedHarness_->scripts : *scripts_;
}

EngineHost::StagedShow EngineHost::stageShow(const ShowTexts& texts) {
    const Names& n = *names_;
    stagingScripts().stagedSubset = ProtectedValue();
    stagedShowId_ = 0;
    ScriptContext* context = stagingContext();
    if (!context || !stagingScripts().session.isPresent())
        return {};
    const Value engine = context->global().get(n.bridgeEngine);
    const Value build = engine.get(n.buildShowSnapshotSubset);
    if (!engine.isPresent() || !build.isPresent())
        return {};
    const LoadTimeLimit limit(*context, limits_);
    const Value show = context->parseJSON(texts.showJSON);
    const Value control = context->parseJSON(texts.controlStateJSON);
    const Value subset = build.callAsFunction(engine, {show, control});
    if (!subset.isPresent())
        return {};
    stagingScripts().stagedSubset = ProtectedValue(subset);
    static std::uint64_t lastStage = 0;
    stagedShowId_ = ++lastStage;
    loadedAhead_ = LoadedAhead::nothing;
    return {stagedShowId_};
}

std::optional<std::string> EngineHost::stagedShowText(StagedShow staged) {
    ScriptContext* context = stagingContext();
    if (staged.id == 0 || staged.id != stagedShowId_ || !context)
        return std::nullopt;
    const LoadTimeLimit limit(*context, limits_);
    return stringify(*context, stagingScripts().stagedSubset.view(), names_->json,
                     names_->stringify);
}

bool EngineHost::switchToStagedShow(StagedShow staged, const ShowTexts& texts,
                                    std::map<std::string, std::pair<double, double>> positions) {
    if (staged.id == 0 || staged.id != stagedShowId_)
        return false;
    const LoadedAhead loadedAhead = loadedAhead_;
    installStagedHarness(); // the show was built by it: both switch together
    const Value session = readySession();
    if (!session.isPresent())
        return false;
    const Value subset = scripts_->stagedSubset.view();
    {
        const LoadTimeLimit limit(*context_, limits_);
        if (loadedAhead < LoadedAhead::show)
            session.call(names_->loadShow, {subset});
        // A script that ran out of time above is left alone; these become no-ops.
        if (!texts.fixtureOptionsJSON.empty() && loadedAhead < LoadedAhead::fixtureOptions)
            if (const Value ready = readySession(); ready.isPresent())
                ready.call(names_->applyFixtureOptions,
                           {context_->parseJSON(texts.fixtureOptionsJSON)});
        applyControl(texts.control);
    }
    fixturePositions_ = std::move(positions);
    scripts_->stagedSubset = ProtectedValue();
    stagedShowId_ = 0;
    return true;
}

bool EngineHost::canLoadStagedShowAhead(StagedShow staged) const {
    return staged.id != 0 && staged.id == stagedShowId_ && hasStagedHarness() &&
           stagedHarness_->context && !stagedHarness_->context->isSuspended() &&
           loadedAhead_ != LoadedAhead::fixtureOptions;
}

void EngineHost::loadStagedShowAhead(StagedShow staged, const ShowTexts& texts) {
    if (!canLoadStagedShowAhead(staged))
        return;
    ScriptContext& context = *stagedHarness_->context;
    const Scripts& scripts = stagedHarness_->scripts;
    const LoadTimeLimit limit(context, limits_);
    const Value session = scripts.session.view();
    switch (loadedAhead_) {
    case LoadedAhead::nothing:
        loadedAhead_ = LoadedAhead::sample;
        if (!texts.sampleShowJSON.empty()) {
            loadSample(context, session, texts);
            return;
        }
        [[fallthrough]];
    case LoadedAhead::sample:
        session.call(names_->loadShow, {scripts.stagedSubset.view()});
        loadedAhead_ = LoadedAhead::show;
        return;
    case LoadedAhead::show:
        if (!texts.fixtureOptionsJSON.empty())
            session.call(names_->applyFixtureOptions,
                         {context.parseJSON(texts.fixtureOptionsJSON)});
        loadedAhead_ = LoadedAhead::fixtureOptions;
        return;
    case LoadedAhead::fixtureOptions:
        return;
    }
}

void EngineHost::loadSample(ScriptContext& context, const Value& session, const ShowTexts& texts) {
    const Value engine = context.global().get(names_->bridgeEngine);
    const Value build = engine.get(names_->buildShowSnapshotSubset);
    if (!build.isPresent())
        return;
    // The whole show loads next: what the sample does wrong is not the operator's concern.
    auto previous = context.setExceptionHandler([](const std::string&) {});
    const Value subset = build.callAsFunction(engine, {context.parseJSON(texts.sampleShowJSON),
                                                       context.parseJSON(texts.controlStateJSON)});
    if (subset.isPresent())
        session.call(names_->loadShow, {subset});
    context.setExceptionHandler(std::move(previous));
}

void EngineHost::applyFixtureOptions(const nlohmann::json& fixtures) {
    const Value session = readySession();
    if (!session.isPresent() || !fixtures.is_array())
        return;
    const nlohmann::json list = fixtureOptionsList(fixtures);
    if (list.empty())
        return;
    session.call(names_->applyFixtureOptions, {context_->parseJSON(scriptText(list))});
}

void EngineHost::applyControl(const EngineControl& control) {
    if (!context_)
        return;
    // Merged into what still waits: each field keeps its newest value.
    EngineControl& held = heldBackControl_ ? *heldBackControl_ : heldBackControl_.emplace();
    if (control.themes)
        held.themes = control.themes;
    if (control.modeId && !control.modeId->empty()) {
        held.modeId = control.modeId;
        held.modeTo = control.modeTo;
        held.modeLerp = control.modeLerp;
    }
    if (control.themeName && !control.themeName->empty())
        held.themeName = control.themeName;
    if (control.manualDimmer)
        held.manualDimmer = control.manualDimmer;
    if (!held.themes && !held.modeId && !held.themeName && !held.manualDimmer)
        heldBackControl_.reset();
    readySession(); // passes it on now, or once the script may run again
}

std::optional<double> EngineHost::manualDimmer(const nlohmann::json& controlState) {
    if (const auto dimmer = jsonNumber(controlState, "manual_dimmer"))
        return clampUnit(*dimmer);
    if (!controlState.is_object())
        return std::nullopt;
    const auto perFixture = controlState.find("manual_fixture_dimmers");
    if (perFixture == controlState.end() || !perFixture->is_object())
        return std::nullopt;
    std::optional<double> largest;
    for (const auto& [id, value] : perFixture->items()) {
        if (!value.is_number() && !value.is_boolean())
            continue;
        const double number =
            value.is_boolean() ? (value.get<bool>() ? 1.0 : 0.0) : value.get<double>();
        if (!largest || number > *largest)
            largest = number;
    }
    if (!largest)
        return std::nullopt;
    return clampUnit(*largest);
}

bool EngineHost::hasRealizedShow() {
    const Value session = readySession();
    if (!session.isPresent())
        return false;
    const Value director = session.get(names_->director);
    if (!director.isPresent())
        return false;
    return director.call(names_->getRealized).isPresent();
}

void EngineHost::setForcedDrop(bool on) {
    if (!context_)
        return;
    heldBackForcedDrop_ = on;
    readySession(); // passes it on now, or once the script may run again
}

void EngineHost::shiftLighting() {
    const Value session = readySession();
    if (session.isPresent())
        session.call(names_->shiftLighting);
}

void EngineHost::shiftColorScheme() {
    const Value session = readySession();
    if (session.isPresent())
        session.call(names_->shiftColorScheme);
}

std::optional<std::string> EngineHost::interpretationPayload() {
    if (!hasRealizedShow())
        return std::nullopt;
    const Value payload = scripts_->session.view().call(names_->toInterpretationPayload);
    return stringify(*context_, payload, names_->json, names_->stringify);
}

bool EngineHost::updateFrame(const MicHop& hop, bool& beat, bool& downbeat) {
    const Names& n = *names_;
    const Value tracker = scripts_->beatTracker.view();
    const Value normalizer = scripts_->bandNormalizer.view();
    if (!scriptMayRun() || !tracker.isPresent() || !normalizer.isPresent())
        return false;
    ScriptContext& js = *context_;
    // The clock and the decibel window never see a negative duration; the detector and the
    // tracker get the hop's own.
    const double dt = std::max(hop.dt, 0.0);
    classicalClock_ += dt;

    Value bands = js.newObject();
    bands.set(n.low, js.number(hop.levels.low));
    bands.set(n.mid, js.number(hop.levels.mid));
    bands.set(n.high, js.number(hop.levels.high));
    bands.set(n.all, js.number(hop.levels.all));
    bands.set(n.lowDominance, js.number(hop.levels.lowDominance));
    bands.set(n.onset, js.number(hop.levels.onset));
    if (const Value window = scripts_->decibelWindow.view(); window.isPresent())
        bands = window.call(n.update, {bands, js.number(dt)});

    const Value normalized = normalizer.call(n.update, {bands, js.number(classicalClock_)});
    if (!normalized.isPresent())
        return false;
    lastNormalizedBands_ = {normalized.number(n.low), normalized.number(n.mid),
                            normalized.number(n.high), normalized.number(n.all)};

    double level = 0.0;
    const Value detector = scripts_->dropDetector.view();
    if (detector.isPresent()) {
        Value input = js.newObject();
        input.set(n.freqLow, js.number(normalized.number(n.low)));
        input.set(n.sustainedLow, js.number(normalized.number(n.sustainedLow)));
        input.set(n.lowDominance, js.number(normalized.number(n.lowDominance)));
        const Value result = detector.call(n.update, {input, js.number(hop.dt)});
        level = result.isPresent() ? finiteOrZero(result.toNumber()) : 0.0;
    }
    normalized.set(n.drop, js.number(level));

    const Value frame = tracker.call(n.update, {normalized, js.number(hop.dt)});
    if (!frame.isPresent())
        return false;
    Value extension = js.newObject();
    extension.set(n.drop, js.number(level));
    frame.call(n.extend, {extension});

    if (level >= 1.0 && lastBeat_.drop <= 0.0) {
        ++automaticDropCount_;
        recentDrops_.insert(recentDrops_.begin(), formatSeconds(classicalClock_));
        if (recentDrops_.size() > maximumRecentDrops)
            recentDrops_.resize(maximumRecentDrops);
    }
    dropArmed_ = detector.isPresent() && detector.call(n.isArmed).toBoolean();

    const double beatCount = frame.number(n.beatCount);
    lastBeat_ = {frame.number(n.bpm),
                 std::isfinite(beatCount)
                     ? static_cast<int>(std::clamp(beatCount, -2147483648.0, 2147483647.0))
                     : 0,
                 frame.boolean(n.beat), frame.number(n.beatConfidence),
                 frame.callNumber(n.get, js.string("drop"))};
    beat = beat || lastBeat_.beat;
    downbeat = downbeat || frame.boolean(n.downbeat);
    scripts_->lastFrame = ProtectedValue(frame);
    return true;
}

std::optional<std::string> EngineHost::updateClassical(std::span<const MicHop> hops) {
    if (!scriptMayRun() || hops.empty())
        return std::nullopt;
    bool beat = false, downbeat = false, produced = false;
    for (const MicHop& hop : hops)
        produced = updateFrame(hop, beat, downbeat) || produced;
    if (!produced)
        return std::nullopt;
    // A beat in a middle hop of the batch must not be lost to the last hop's frame.
    const Value frame = scripts_->lastFrame.view();
    if (beat) {
        frame.set(names_->beat, context_->boolean(true));
        lastBeat_.beat = true;
    }
    if (downbeat)
        frame.set(names_->downbeat, context_->boolean(true));
    return stringify(*context_, frame.call(names_->toJson), names_->json, names_->stringify);
}

std::optional<std::string> EngineHost::latestFrameJSON() {
    const Value frame = scripts_->lastFrame.view();
    if (!scriptMayRun() || !frame.isPresent())
        return std::nullopt;
    frame.set(names_->beat, context_->boolean(false));
    frame.set(names_->downbeat, context_->boolean(false));
    lastBeat_.beat = false;
    lastBeat_.drop = frame.callNumber(names_->get, context_->string("drop"));
    return stringify(*context_, frame.call(names_->toJson), names_->json, names_->stringify);
}

std::optional<DmxFrame> EngineHost::step(std::string_view frameJSON, double dt,
                                         bool refreshVisuals) {
    const Names& n = *names_;
    scripts_->lastStep.reset();
    if (!hasRealizedShow())
        return std::nullopt;
    ScriptContext& js = *context_;
    // Parsed as JSON, not compiled as a program: a fresh program every tick cost more than
    // the step itself.
    const Value frame = js.parseJSON(frameJSON);
    const std::uint64_t exceptionsBefore = js.exceptionCount();
    const Value result = scripts_->session.view().call(n.step, {frame, js.number(dt)});
    if (js.isSuspended())
        return std::nullopt; // ran out of time: already reported
    if (js.exceptionCount() != exceptionsBefore) {
        setFaults(EngineScriptFault::stepFailed, loadFault_);
        return std::nullopt;
    }
    retryDelay_ = firstRetryDelay;
    setFaults(std::nullopt, loadFault_);
    scripts_->lastStep = ProtectedValue(result);

    std::optional<DmxFrame> buffers;
    if (const Value dmx = result.get(n.dmx); dmx.isObject()) {
        if (const std::optional<std::string> text = stringify(js, dmx, n.json, n.stringify))
            buffers = parseDmxBuffersJSON(*text);
    }
    if (refreshVisuals)
        this->refreshVisuals();
    return buffers;
}

void EngineHost::refreshVisuals() {
    const Names& n = *names_;
    const Value result = scripts_->lastStep.view();
    if (!result.isPresent() || !scriptMayRun())
        return;
    // Plot: at most 14 fixtures, evenly strided, each at its known position.
    std::vector<FixtureSample> samples;
    const Value fixtures = result.get(n.fixtures);
    const double length = fixtures.isPresent() ? fixtures.number(n.length) : 0.0;
    if (length > 0) {
        const auto count = static_cast<long long>(std::min(length, 1e9));
        const long long stride =
            count >= LightingPlot::maximumLamps ? count / LightingPlot::maximumLamps : 1;
        for (long long i = 0; i < count && samples.size() < std::size_t(LightingPlot::maximumLamps);
             i += stride) {
            const Value fixture = fixtures.at(static_cast<unsigned>(i));
            const std::optional<std::string> id = fixture.get(n.id).toString();
            const auto position = id ? fixturePositions_.find(*id) : fixturePositions_.end();
            if (position == fixturePositions_.end())
                continue;
            const Value color = fixture.get(n.color);
            samples.push_back({position->second.first, position->second.second, color.number(n.r),
                               color.number(n.g), color.number(n.b),
                               fixture.number(n.dimmer) / 255.0, fixture.number(n.strobe) / 255.0});
        }
    }
    lightingPlot_ = fitLightingPlot(samples);

    liveScheme_.clear();
    const Value palette = result.get(n.colorPalette);
    if (palette.isPresent()) {
        const double entries = palette.number(n.length);
        for (unsigned i = 0; std::isfinite(entries) && i < entries && i < 4096u; ++i) {
            const Value color = palette.at(i);
            if (!color.isPresent())
                continue;
            const auto component = [&](unsigned k) {
                const Value v = color.at(k);
                return v.isPresent() ? v.toNumber() : 0.0;
            };
            liveScheme_.push_back({component(0), component(1), component(2)});
        }
    }
}

DropDiagnostics EngineHost::dropDiagnostics() const {
    DropDiagnostics diagnostics;
    if (lastBeat_.drop > 0)
        diagnostics.status = "drop";
    else if (dropArmed_)
        diagnostics.status = "armed";
    else if (scripts_->dropDetector.isPresent())
        diagnostics.status = "listening";
    else
        diagnostics.status = "Not loaded";
    diagnostics.architecture = "classical";
    diagnostics.audioSeconds = classicalClock_;
    diagnostics.eventCount = automaticDropCount_;
    diagnostics.recentEvents = recentDrops_;
    return diagnostics;
}

} // namespace kelvo
