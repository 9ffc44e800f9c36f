// The development engine (devcloud/harness/engine.js) through the real engine host, against the
// demo show: what any engine must do with the channels, the modes, the dimmer, the drop and the
// cached show. Its beat tracking is judged against aubio by tools/beatcompare.

#include "Audio/BandEnergyExtractor.h"
#include "Engine/EngineHost.h"
#include "Show/BootstrapViewData.h"
#include "support/FileBytes.h"
#include "testmusic/SyntheticDanceTrack.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace kelvo {
namespace {

using nlohmann::json;

// The contract is about what the engine lights, not how fast: a loaded or sanitized build must
// not turn a slow step into "no frames".
struct ContractHost : EngineHost {
    ContractHost()
        : EngineHost(std::make_shared<SteadyMonotonicClock>(),
                     ScriptTimeLimits{std::chrono::seconds(2), std::chrono::seconds(20)}) {}
};

std::string readSourceFile(const std::string& relative) {
    return test::readText(KELVO_SOURCE_DIR "/" + relative);
}
const std::string harnessSource = readSourceFile("devcloud/harness/engine.js");
const json demoBootstrap = json::parse(readSourceFile("devcloud/data/bootstrap.json"));

/// The demo's control state as the bridge hands it over, with the mode replaced.
json demoControlState(const std::string& mode) {
    json state = demoBootstrap["control_state"];
    state["mode"] = mode;
    return state;
}

/// Mono audio cut into hops with levels from the real extractor, as the capture delivers them.
std::vector<MicHop> hopsOf(const std::vector<float>& samples, double rate = 48000) {
    BandEnergyExtractor extractor(rate);
    constexpr std::size_t hop = BandEnergyExtractor::hopSize;
    std::vector<MicHop> hops;
    for (std::size_t i = 0; i + hop <= samples.size(); i += hop) {
        extractor.appendHopToRing(std::span<const float, hop>(samples.data() + i, hop));
        extractor.updateSpectrum();
        hops.push_back({extractor.levels(), double(hop) / rate, {}, rate});
    }
    return hops;
}

/// An enabled demo fixture as patched: where its channels are and what they mean.
struct Patched {
    std::string id, group;
    int universe, address, width;
    std::vector<std::string> channels;
};

std::vector<Patched> enabledDemoFixtures() {
    const json show = demoBootstrap["active_show"];
    std::vector<Patched> out;
    for (const json& f : show["fixtures"]) {
        if (f["is_disabled"] == true)
            continue; // its channels must stay dark
        const json& def = show["fixture_definitions"][f["fixture_type"].get<std::string>()];
        Patched p{f["id"],      f["group_name"],          f["universe"],
                  f["address"], def["dmx_address_width"], {}};
        if (f["fixture_type"] == "pelorin/manual-dimmer@1ch")
            p.channels.assign(p.width = f["options"]["width"], "dimmer");
        for (const json& c : p.channels.empty() ? def["channels"] : json::array())
            p.channels.push_back(c.is_string() ? c.get<std::string>()
                                               : c["type"].get<std::string>());
        out.push_back(p);
    }
    return out;
}

bool hasChannel(const Patched& p, const std::string& kind) {
    return std::find(p.channels.begin(), p.channels.end(), kind) != p.channels.end();
}

int channel(const DmxFrame& dmx, const Patched& p, const std::string& kind) {
    const auto it = std::find(p.channels.begin(), p.channels.end(), kind);
    EXPECT_NE(it, p.channels.end()) << p.id << " has no " << kind;
    return dmx.at(p.universe).at(std::size_t(p.address - 1 + (it - p.channels.begin())));
}

/// How bright a fixture is (0…255): its dimmer times its brightest colour, or either alone.
int visible(const DmxFrame& dmx, const Patched& p) {
    int colour = -1;
    for (const char* kind : {"red", "green", "blue", "white"})
        if (hasChannel(p, kind))
            colour = std::max(colour, channel(dmx, p, kind));
    if (!hasChannel(p, "dimmer"))
        return std::max(colour, 0);
    const int dimmer = channel(dmx, p, "dimmer");
    return colour < 0 ? dimmer : dimmer * colour / 255;
}

/// A steady 120 BPM beat frame for tick `t` (60 ticks a second), with what the session reads.
std::string frameJSON(int t) {
    return json{{"bpm", 120}, {"beat", t % 30 == 0}, {"downbeat", t % 120 == 0},
                {"low", 0.7}, {"all", 0.6},          {"onset", t % 30 == 0 ? 3.0 : 0.5}}
        .dump();
}

class HarnessContract : public ::testing::Test {
protected:
    void SetUp() override { load(host_); }

    void load(EngineHost& host, const std::string& mode = "static") {
        host.loadHarness(harnessSource);
        host.loadShow(demoBootstrap["active_show"], demoControlState(mode));
        json themes = json::array();
        for (const ThemeOption& theme :
             BootstrapViewData::extractThemeOptions(readSourceFile("devcloud/data/config.json")))
            themes.push_back(theme.enginePayload());
        host.applyControl({.themes = themes});
        ASSERT_TRUE(host.hasRealizedShow());
    }
    /// The buffers of `ticks` ticks from tick `start`.
    static std::vector<DmxFrame> run(EngineHost& host, int ticks, int start = 0) {
        std::vector<DmxFrame> out;
        for (int t = start; t < start + ticks; ++t) {
            const auto dmx = host.step(frameJSON(t), 1.0 / 60, t % 5 == 0);
            EXPECT_TRUE(dmx.has_value());
            out.push_back(dmx.value_or(DmxFrame{}));
        }
        return out;
    }
    /// Music as the engine loop feeds it: 48 kHz hops, 1 or 2 per 60 Hz tick.
    static std::vector<DmxFrame> runMusic(EngineHost& host, const std::vector<MicHop>& hops) {
        std::vector<DmxFrame> out;
        for (std::size_t t = 0, next = 0; next < hops.size(); ++t) {
            const std::size_t count = std::min((t + 1) * 25 / 16 - t * 25 / 16, hops.size() - next);
            const auto frame = count > 0 ? host.updateClassical(std::span(&hops[next], count))
                                         : host.latestFrameJSON();
            next += count;
            out.push_back(
                host.step(frame.value_or("{}"), 1.0 / 60, t % 5 == 0).value_or(DmxFrame{}));
        }
        return out;
    }

    ContractHost host_;
    const std::vector<Patched> enabled_ = enabledDemoFixtures();
};

TEST_F(HarnessContract, UniversesAndChannelsFollowTheDefinitionsAndTheFixtureOptions) {
    const auto dmx = run(host_, 10).back();
    ASSERT_EQ(dmx.size(), 3u);
    EXPECT_EQ(dmx.at(1).size(), 196u); // last wash ends at 101 + 12 × 8 − 1
    EXPECT_EQ(dmx.at(2).size(), 58u);  // last batten cell ends at 11 + 16 × 3 − 1
    EXPECT_EQ(dmx.at(3).size(), 13u);  // dimmer packs of widths 1, 2, 4 and 6
    for (const Patched& p : enabled_) {
        if (hasChannel(p, "dimmer") && p.group != "Strobes") { // strobes punch the downbeat
            EXPECT_GT(channel(dmx, p, "dimmer"), 200) << p.id;
        }
        if (p.group == "Front pars") { // the first colour of "Rave": (1, 0, 0.6)
            EXPECT_EQ((std::vector{channel(dmx, p, "red"), channel(dmx, p, "green"),
                                   channel(dmx, p, "blue")}),
                      (std::vector{255, 0, 153}));
        }
    }
    json fixtures = demoBootstrap["active_show"]["fixtures"];
    for (json& f : fixtures)
        if (f["id"] == "fx-dimmer-4")
            f["options"]["width"] = 9;
    host_.applyFixtureOptions(fixtures);
    const auto wider = run(host_, 1, 10).back().at(3);
    ASSERT_EQ(wider.size(), 16u); // address 8, now 9 wide
    EXPECT_TRUE(std::all_of(wider.begin() + 7, wider.end(), [](auto b) { return b > 200; }));
}

TEST_F(HarnessContract, EveryModeLightsEachEnabledFixtureAndOnlyThose) {
    const auto hops = hopsOf(test::SyntheticDanceTrack({.bpm = 128, .seconds = 9}).samples());
    std::map<std::int64_t, std::set<std::size_t>> owned; // channel indexes of enabled fixtures
    for (const Patched& p : enabled_)
        for (int c = 0; c < p.width; ++c)
            owned[p.universe].insert(std::size_t(p.address - 1 + c));
    // The demo's modes; a show mode ("finale") and an unknown one light the room too.
    const std::vector<std::string> modes = {"blackout", "static", "pulse",  "chase",       "strobe",
                                            "cycle",    "party",  "finale", "no-such-mode"};
    for (const std::string& mode : modes) {
        SCOPED_TRACE(mode);
        ContractHost host;
        load(host, "blackout");
        host.applyControl({.modeId = mode});
        host.setForcedDrop(mode == "finale"); // the drop look too stays on its channels
        const auto frames = runMusic(host, hops);
        std::map<std::string, int> brightest;
        for (std::size_t t = 0; t < frames.size(); ++t) {
            ASSERT_EQ(frames[t].size(), 3u);
            for (const auto& [universe, bytes] : frames[t])
                for (std::size_t i = 0; i < bytes.size(); ++i)
                    ASSERT_TRUE(bytes[i] == 0 ||
                                (mode != "blackout" && owned.at(universe).count(i)))
                        << "universe " << universe << " channel " << i + 1 << " tick " << t;
            if (t < 3 * 60)
                continue; // the beat tracker locks within the first seconds
            for (const Patched& p : enabled_)
                brightest[p.id] = std::max(brightest[p.id], visible(frames[t], p));
        }
        for (const Patched& p : mode == "blackout" ? std::vector<Patched>{} : enabled_)
            EXPECT_GE(brightest[p.id], 100) << p.id << " never lights";
    }
}

TEST_F(HarnessContract, TheDimmerAndABlendScaleEveryDimmerAndAForcedDropHoldsThenLetsGo) {
    // Each compared at the same point of a bar: the strobe heads punch the downbeat.
    const auto full = run(host_, 5).back();
    host_.applyControl({.modeId = "static", .modeTo = "blackout", .modeLerp = 0.5});
    const auto blended = run(host_, 5, 120).back();
    host_.applyControl({.modeId = "static", .manualDimmer = 0.5});
    const auto halved = run(host_, 5, 240).back();
    host_.applyControl({.manualDimmer = 0.0});
    const auto dark = run(host_, 5, 360).back();
    host_.applyControl({.manualDimmer = 1.0});
    const auto before = run(host_, 30, 365).back();
    host_.setForcedDrop(true);
    const auto held = run(host_, 30, 395);
    host_.setForcedDrop(false);
    const auto after = run(host_, 240, 425);
    EXPECT_EQ(after.back(), run(host_, 1, 665).back()) << "settled";
    for (const Patched& p : enabled_) {
        for (const char* kind : {"dimmer", "red", "green", "blue"}) {
            // Without a dimmer channel the colour carries the intensity.
            if (!hasChannel(p, kind) || (std::string(kind) != "dimmer" && hasChannel(p, "dimmer")))
                continue;
            EXPECT_EQ(channel(dark, p, kind), 0) << p.id << " " << kind;
            EXPECT_NEAR(channel(halved, p, kind), channel(full, p, kind) / 2.0, 1.0) << p.id;
            EXPECT_NEAR(channel(blended, p, kind), channel(full, p, kind) / 2.0, 1.0) << p.id;
        }
        if (hasChannel(p, "dimmer")) {
            EXPECT_EQ(channel(held.back(), p, "dimmer"), 255) << p.id;
        }
        if (p.group == "Strobes") {
            EXPECT_GT(channel(held.front(), p, "strobe"), 200) << "strobes fire at the drop";
        }
        for (const char* kind : {"red", "green", "blue"}) {
            if (p.group == "Front pars") {
                EXPECT_EQ(channel(after.back(), p, kind), channel(before, p, kind)) << p.id;
            }
        }
    }
}

TEST_F(HarnessContract, TheCachedSubsetLightsTheShowOfflineWithItsControlState) {
    // The cached control state picks the mode and per-fixture manual dimmers (the largest wins).
    json control = demoControlState("chase");
    control.erase("manual_dimmer");
    control["manual_fixture_dimmers"] = {{"fx-par-01", 0.25}, {"fx-par-02", 0.5}};
    ContractHost live, offline;
    live.loadHarness(harnessSource);
    const auto subset = live.loadShow(demoBootstrap["active_show"], control);
    ASSERT_TRUE(subset.has_value());
    offline.loadHarness(harnessSource);
    offline.loadCachedShow(*subset);
    ASSERT_TRUE(offline.hasRealizedShow());
    load(host_, "chase");
    host_.applyControl({.manualDimmer = 0.5});
    EXPECT_EQ(run(offline, 120), run(host_, 120));
}

} // namespace
} // namespace kelvo
