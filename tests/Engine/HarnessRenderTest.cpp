#include "Engine/HarnessRig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace kelvo {
namespace {

constexpr double tick = 1.0 / 60.0;
constexpr int ticksPerBeat = 30; // 120 BPM at 60 ticks a second

std::string frameJSON(int tickIndex, double drop = 0.0) {
    const bool beat = tickIndex % ticksPerBeat == 0;
    nlohmann::json f = {{"bpm", 120.0},
                        {"beat", beat},
                        {"beat_count", tickIndex / ticksPerBeat},
                        {"beat_confidence", 0.9},
                        {"downbeat", beat && (tickIndex / ticksPerBeat) % 4 == 0},
                        {"phase", (tickIndex % ticksPerBeat) / double(ticksPerBeat)},
                        {"drop", drop},
                        {"low", 0.7},
                        {"mid", 0.5},
                        {"high", 0.4},
                        {"all", 0.6},
                        {"onset", beat ? 3.0 : 0.5}};
    return f.dump();
}

/// A fixture of the demo show as patched: where its channels are and what they mean.
struct Patched {
    std::string id;
    std::string group;
    int universe;
    int address;
    int width;
    std::vector<std::string> channels;
    bool disabled;
};

std::vector<Patched> demoPatch() {
    const auto show = testing::demoBootstrap()["active_show"];
    std::vector<Patched> out;
    for (const auto& f : show["fixtures"]) {
        const auto& def = show["fixture_definitions"][f["fixture_type"].get<std::string>()];
        Patched p{f["id"], f["group_name"], f["universe"], f["address"], def["dmx_address_width"],
                  {},      f["is_disabled"]};
        if (f["fixture_type"] == "pelorin/manual-dimmer@1ch") {
            p.width = f["options"]["width"];
            p.channels.assign(p.width, "dimmer");
        } else {
            for (const auto& c : def["channels"]) {
                p.channels.push_back(c.is_string() ? c.get<std::string>()
                                                   : c["type"].get<std::string>());
            }
        }
        out.push_back(p);
    }
    return out;
}

std::uint8_t channel(const DmxFrame& dmx, const Patched& p, const std::string& kind) {
    const auto it = std::find(p.channels.begin(), p.channels.end(), kind);
    EXPECT_NE(it, p.channels.end()) << p.id << " has no " << kind;
    const auto index = static_cast<std::size_t>(p.address - 1 + (it - p.channels.begin()));
    return dmx.at(p.universe).at(index);
}

/// Channel indexes (0-based) of the enabled fixtures, by universe.
std::map<std::int64_t, std::set<std::size_t>> enabledChannels(const std::vector<Patched>& patch) {
    std::map<std::int64_t, std::set<std::size_t>> owned;
    for (const Patched& p : patch) {
        for (int c = 0; c < p.width && !p.disabled; ++c) {
            owned[p.universe].insert(static_cast<std::size_t>(p.address - 1 + c));
        }
    }
    return owned;
}

bool hasChannel(const Patched& p, const std::string& kind) {
    return std::find(p.channels.begin(), p.channels.end(), kind) != p.channels.end();
}

/// How bright a fixture is (0…255): its dimmer times its brightest colour channel; without a
/// dimmer channel the colour alone, without colour channels the dimmer alone.
int visible(const DmxFrame& dmx, const Patched& p) {
    int colour = -1;
    for (const char* kind : {"red", "green", "blue", "white"}) {
        if (hasChannel(p, kind)) {
            colour = std::max(colour, int(channel(dmx, p, kind)));
        }
    }
    if (!hasChannel(p, "dimmer")) {
        return std::max(colour, 0);
    }
    const int dimmer = channel(dmx, p, "dimmer");
    return colour < 0 ? dimmer : dimmer * colour / 255;
}

/// Music through the engine as the engine loop drives it: every 60 Hz tick takes the hops that
/// arrived since the last one (1 or 2 at 48 kHz) and steps the session with the frame.
std::vector<DmxFrame> runMusic(EngineHost& host, const std::vector<MicHop>& hops) {
    std::vector<DmxFrame> out;
    std::size_t next = 0;
    for (std::size_t t = 0; next < hops.size(); ++t) {
        // 48000 / 512 / 60 = 1.5625 hops a tick.
        const std::size_t count = std::min((t + 1) * 25 / 16 - t * 25 / 16, hops.size() - next);
        auto frame = count > 0 ? host.updateClassical(std::span(hops.data() + next, count))
                               : host.latestFrameJSON();
        next += count;
        auto dmx = host.step(frame.value_or("{}"), 1.0 / 60, t % 5 == 0);
        EXPECT_TRUE(dmx.has_value());
        out.push_back(dmx.value_or(DmxFrame{}));
    }
    return out;
}

class HarnessRender : public ::testing::Test {
protected:
    void SetUp() override {
        watch_ = std::make_unique<testing::ScriptErrorWatch>();
        load(host_);
    }
    void TearDown() override { EXPECT_FALSE(watch_->scriptThrew()); }

    void load(EngineHost& host, const std::string& mode = "static") {
        host.loadHarness(testing::harnessSource());
        subset_ =
            host.loadShow(testing::demoBootstrap()["active_show"], testing::demoControlState(mode));
        host.applyControl({.themes = testing::demoThemesForEngine()});
        ASSERT_TRUE(host.hasRealizedShow());
    }
    static nlohmann::json interpretation(EngineHost& host) {
        const auto text = host.interpretationPayload();
        EXPECT_TRUE(text.has_value());
        return nlohmann::json::parse(text.value_or("null"));
    }
    static void mode(EngineHost& host, const std::string& id, std::optional<std::string> to = {},
                     double lerp = 0) {
        host.applyControl({.modeId = id, .modeTo = to, .modeLerp = lerp});
    }
    /// Steps `ticks` ticks from `start`; the buffers of every tick.
    static std::vector<DmxFrame> run(EngineHost& host, int ticks, int start = 0, double drop = 0) {
        std::vector<DmxFrame> out;
        for (int i = start; i < start + ticks; ++i) {
            auto dmx = host.step(frameJSON(i, drop), tick, i % 5 == 0);
            EXPECT_TRUE(dmx.has_value());
            out.push_back(dmx.value_or(DmxFrame{}));
        }
        return out;
    }

    EngineHost host_;
    std::optional<std::string> subset_;
    std::unique_ptr<testing::ScriptErrorWatch> watch_;
    const std::vector<Patched> patch_ = demoPatch();
};

TEST_F(HarnessRender, UniversesAndChannelLayoutsFollowTheFixtureDefinitions) {
    const auto dmx = run(host_, 10).back();
    ASSERT_EQ(dmx.size(), 3u);
    EXPECT_EQ(dmx.at(1).size(), 196u); // last wash ends at 101 + 12 × 8 − 1
    EXPECT_EQ(dmx.at(2).size(), 58u);  // last batten cell ends at 11 + 16 × 3 − 1
    EXPECT_EQ(dmx.at(3).size(), 13u);  // dimmer channels of widths 1, 2, 4 and 6

    for (const Patched& p : patch_) {
        if (p.disabled) {
            continue;
        }
        if (hasChannel(p, "dimmer") && p.group != "Strobes") {
            EXPECT_GT(channel(dmx, p, "dimmer"), 200) << p.id; // a static wash is bright
        }
        if (hasChannel(p, "zoom")) {
            EXPECT_EQ(channel(dmx, p, "zoom"), 128) << p.id; // defaults hold
        }
        if (p.group == "Front pars") {
            // The first group wears the first colour of "Rave": (1, 0, 0.6).
            EXPECT_EQ(channel(dmx, p, "red"), 255);
            EXPECT_EQ(channel(dmx, p, "green"), 0);
            EXPECT_EQ(channel(dmx, p, "blue"), 153);
        }
    }
    // Strobe heads cannot wear a colour: in a wash they only punch the downbeat (tick 0).
    const auto midBar = run(host_, 50, 10).back();
    for (const Patched& p : patch_) {
        if (p.group == "Strobes") {
            EXPECT_EQ(channel(midBar, p, "dimmer"), 0) << p.id;
        }
    }
}

TEST_F(HarnessRender, EveryModeLightsEachEnabledFixtureAndOnlyThose) {
    testing::DanceTrackSpec spec{.bpm = 128, .seconds = 9};
    const auto hops = testing::hopsOf(testing::SyntheticDanceTrack(spec));
    const auto owned = enabledChannels(patch_);
    const auto modes = testing::demoLightingModes();
    ASSERT_EQ(modes.size(), 8u);
    for (const LightingModeOption& m : modes) {
        EngineHost host;
        load(host, m.key);
        host.setForcedDrop(m.key == "finale"); // the drop look too stays on its channels
        const auto frames = runMusic(host, hops);
        std::map<std::string, int> brightest, strobe;
        for (std::size_t t = 0; t < frames.size(); ++t) {
            const DmxFrame& dmx = frames[t];
            ASSERT_EQ(dmx.size(), 3u);
            for (const auto& [universe, bytes] : dmx) {
                for (std::size_t i = 0; i < bytes.size(); ++i) {
                    ASSERT_TRUE(bytes[i] == 0 || owned.at(universe).count(i))
                        << m.key << ": universe " << universe << " channel " << i + 1;
                }
            }
            if (t < 3 * 60) {
                continue; // the beat tracker locks within the first seconds
            }
            for (const Patched& p : patch_) {
                brightest[p.id] = std::max(brightest[p.id], visible(dmx, p));
                if (hasChannel(p, "strobe")) {
                    strobe[p.id] = std::max(strobe[p.id], int(channel(dmx, p, "strobe")));
                }
            }
        }
        for (const Patched& p : patch_) {
            if (p.disabled || m.key == "blackout") {
                EXPECT_EQ(brightest[p.id], 0) << m.key << " " << p.id;
            } else {
                EXPECT_GE(brightest[p.id], 100) << m.key << ": " << p.id << " never lights";
            }
            if (!hasChannel(p, "strobe") || p.disabled) {
                continue;
            }
            // Strobe channels run in the strobe looks (and drops), and nowhere else.
            if (m.key == "strobe") {
                EXPECT_GT(strobe[p.id], 100) << p.id << " never strobes";
            } else if (m.key != "party" && m.key != "finale") {
                EXPECT_EQ(strobe[p.id], 0) << m.key << " strobes " << p.id;
            }
        }
    }
}

TEST_F(HarnessRender, BlackoutIsAllZero) {
    mode(host_, "blackout");
    for (const auto& dmx : run(host_, 120)) {
        ASSERT_EQ(dmx.size(), 3u);
        for (const auto& [universe, bytes] : dmx) {
            EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(), [](auto b) { return b == 0; }))
                << "universe " << universe;
        }
    }
}

TEST_F(HarnessRender, EveryModeIsItsOwnLookAndTheAnimatedOnesMove) {
    const std::vector<std::string> modes = {"blackout", "static", "pulse", "chase",
                                            "strobe",   "cycle",  "party"};
    std::map<std::string, std::vector<DmxFrame>> looks;
    for (const auto& m : modes) {
        EngineHost host;
        load(host, m);
        looks[m] = run(host, 240);
    }
    // The drop look is its own too: the strobe mode is not a drop.
    EngineHost dropping;
    load(dropping, "static");
    dropping.setForcedDrop(true);
    looks["drop"] = run(dropping, 240);
    for (auto i = looks.begin(); i != looks.end(); ++i) {
        for (auto j = std::next(i); j != looks.end(); ++j) {
            EXPECT_NE(i->second, j->second) << i->first << " vs " << j->first;
        }
    }
    for (const char* m : {"pulse", "chase", "strobe", "cycle", "party"}) {
        const auto& seq = looks[m];
        std::set<DmxFrame> distinct(seq.begin(), seq.end());
        EXPECT_GT(distinct.size(), 20u) << m << " does not follow the music";
    }
    // A show mode resolves to its core look; an unknown mode lights the room.
    EngineHost finale;
    load(finale, "finale");
    EXPECT_EQ(run(finale, 240), looks["party"]);
    EngineHost unknown;
    load(unknown, "no-such-mode");
    EXPECT_EQ(run(unknown, 240), looks["static"]);
}

TEST_F(HarnessRender, PulseFollowsTheBeat) {
    mode(host_, "pulse");
    const auto seq = run(host_, 120);
    const Patched& par = patch_.front();
    // Brightest on the beat tick, falling until the next one.
    const int onBeat = channel(seq[60], par, "dimmer");
    const int midBeat = channel(seq[75], par, "dimmer");
    const int beforeNext = channel(seq[89], par, "dimmer");
    EXPECT_GT(onBeat, 200);
    EXPECT_LT(midBeat, onBeat);
    EXPECT_LT(beforeNext, midBeat);
}

TEST_F(HarnessRender, ManualDimmerScalesEveryDimmer) {
    // Each compared at the same point of a bar: the strobe heads punch the downbeat.
    mode(host_, "static");
    const auto full = run(host_, 5).back();
    host_.applyControl({.manualDimmer = 0.5});
    const auto halved = run(host_, 5, 4 * ticksPerBeat).back();
    host_.applyControl({.manualDimmer = 0.0});
    const auto dark = run(host_, 5, 8 * ticksPerBeat).back();
    for (const Patched& p : patch_) {
        if (p.disabled) {
            continue;
        }
        for (const auto& kind : {"dimmer", "red", "green", "blue"}) {
            // Without a dimmer channel the colour carries the intensity.
            const bool scaled = std::string(kind) == "dimmer" || !hasChannel(p, "dimmer");
            if (!hasChannel(p, kind) || !scaled) {
                continue;
            }
            EXPECT_EQ(channel(dark, p, kind), 0) << p.id << " " << kind;
            EXPECT_NEAR(channel(halved, p, kind), channel(full, p, kind) / 2.0, 1.0) << p.id;
        }
    }
}

TEST_F(HarnessRender, AHalfBlendLiesBetweenTheTwoModes) {
    EngineHost wash, chase, blend;
    load(wash, "static");
    load(chase, "chase");
    load(blend, "static");
    mode(blend, "static", "chase", 0.5);
    const auto a = run(wash, 100);
    const auto b = run(chase, 100);
    const auto m = run(blend, 100);
    int strictlyBetween = 0;
    for (std::size_t t = 0; t < m.size(); ++t) {
        for (const Patched& p : patch_) {
            if (p.disabled) {
                continue;
            }
            for (const auto& kind : p.channels) {
                if (kind == "zoom" || kind == "macro" || kind == "speed" || kind == "mode") {
                    continue;
                }
                const int va = channel(a[t], p, kind), vb = channel(b[t], p, kind);
                const int vm = channel(m[t], p, kind);
                ASSERT_GE(vm, std::min(va, vb) - 1) << p.id << " " << kind << " tick " << t;
                ASSERT_LE(vm, std::max(va, vb) + 1) << p.id << " " << kind << " tick " << t;
                strictlyBetween += vm > std::min(va, vb) + 1 && vm < std::max(va, vb) - 1;
            }
        }
    }
    EXPECT_GT(strictlyBetween, 100);
    // The ends of the blend are the modes themselves.
    mode(blend, "static", "chase", 1.0);
    EXPECT_EQ(run(blend, 1, 100).back(), run(chase, 1, 100).back());
}

TEST_F(HarnessRender, AForcedDropPlaysTheDropLookWhileHeld) {
    mode(host_, "static");
    const auto before = run(host_, 30).back();
    host_.setForcedDrop(true);
    const auto held = run(host_, 30, 30);
    for (const Patched& p : patch_) {
        if (p.disabled) {
            continue;
        }
        if (hasChannel(p, "dimmer")) {
            EXPECT_EQ(channel(held.back(), p, "dimmer"), 255) << p.id;
        }
        if (p.group == "Strobes") {
            EXPECT_GT(channel(held.front(), p, "strobe"), 200) << "strobes fire at the drop";
        }
    }
    EXPECT_NE(held.back(), before);
    host_.setForcedDrop(false);
    const auto after = run(host_, 240, 60);
    EXPECT_EQ(after.back(), run(host_, 1, 300).back()); // settled
    for (const Patched& p : patch_) {
        if (!p.disabled && p.group == "Front pars") {
            EXPECT_EQ(channel(after.back(), p, "red"), channel(before, p, "red"));
            EXPECT_EQ(channel(after.back(), p, "blue"), channel(before, p, "blue"));
        }
    }
}

TEST_F(HarnessRender, AnAutomaticDropInTheFrameAlsoPlaysTheDropLook) {
    mode(host_, "cycle");
    const auto calm = run(host_, 2, 0, 0.0).back();
    const auto dropping = run(host_, 2, 0, 1.0).back();
    EXPECT_NE(calm, dropping);
    const Patched& strobe =
        *std::find_if(patch_.begin(), patch_.end(), [](auto& p) { return p.group == "Strobes"; });
    EXPECT_EQ(channel(dropping, strobe, "dimmer"), 255);
}

TEST_F(HarnessRender, ThemesChangeTheColoursAndTheLiveScheme) {
    mode(host_, "static");
    run(host_, 5);
    const auto rave = run(host_, 1, 5).back();
    ASSERT_FALSE(host_.liveScheme().empty());
    EXPECT_EQ(host_.liveScheme().front(), (ThemePaletteColor{1, 0, 0.6}));

    host_.applyControl({.themeName = "Ocean"});
    const auto blue = run(host_, 1, 10).back();
    EXPECT_NE(rave, blue);
    const Patched& par = patch_.front();
    EXPECT_EQ(channel(blue, par, "red"), 0);
    EXPECT_EQ(channel(blue, par, "green"), 102);
    EXPECT_EQ(channel(blue, par, "blue"), 255);

    // An unknown theme falls back to "Rave" rather than going dark.
    host_.applyControl({.themeName = "No Such Theme"});
    const auto fallback = run(host_, 1, 15).back();
    for (const Patched& p : patch_) {
        for (const char* kind : {"red", "green", "blue"}) {
            if (hasChannel(p, kind)) {
                EXPECT_EQ(channel(fallback, p, kind), channel(rave, p, kind)) << p.id;
            }
        }
    }
}

TEST_F(HarnessRender, AColourSchemeShiftStepsThroughThePalettesAndRainbowOnlyWhereAllowed) {
    const std::vector<ThemeOption> themes = testing::demoThemes();
    ASSERT_EQ(themes.size(), 6u);
    const ThemePalette rainbow = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 1, 1}, {0, 0, 1}, {1, 0, 1}};
    EngineHost builtin; // never told the themes: its own must be the configured ones
    builtin.loadHarness(testing::harnessSource());
    builtin.loadShow(testing::demoBootstrap()["active_show"], testing::demoControlState("static"));
    const Patched& par = patch_.front();
    int tick = 0;
    for (const ThemeOption& theme : themes) {
        std::vector<ThemePalette> schemes = {theme.palette};
        schemes.insert(schemes.end(), theme.palettes.begin(), theme.palettes.end());
        if (theme.allowsRainbow || theme.alwaysRainbow) {
            schemes.push_back(rainbow);
        }
        host_.applyControl({.themeName = theme.name});
        builtin.applyControl({.themeName = theme.name});
        // Twice round: the steps wrap, and a theme without the flags never turns rainbow.
        for (std::size_t k = 0; k < 2 * schemes.size(); ++k, tick += 5) {
            const auto dmx = run(host_, 1, tick).back();
            run(builtin, 1, tick);
            const ThemePalette& expected = schemes[k % schemes.size()];
            EXPECT_EQ(host_.liveScheme(), expected) << theme.name << " after " << k << " shifts";
            EXPECT_EQ(builtin.liveScheme(), expected) << "built-in " << theme.name;
            // The front pars wear the scheme's first colour.
            EXPECT_NEAR(channel(dmx, par, "red"), 255 * expected.front().r, 1.0) << theme.name;
            EXPECT_NEAR(channel(dmx, par, "blue"), 255 * expected.front().b, 1.0) << theme.name;
            host_.shiftColorScheme();
            builtin.shiftColorScheme();
        }
    }
    EXPECT_EQ(nlohmann::json::parse(*builtin.interpretationPayload())["theme_name"],
              themes.back().name);
}

TEST_F(HarnessRender, AlwaysRainbowTurnsTheColourModesRainbowAndNothingElse) {
    auto themes = testing::demoThemes();
    const auto always =
        std::find_if(themes.begin(), themes.end(), [](auto& t) { return t.alwaysRainbow; });
    ASSERT_NE(always, themes.end());
    ThemeOption plain = *always;
    plain.name = "Plain";
    plain.alwaysRainbow = false;
    themes.push_back(plain);
    std::map<std::string, std::map<std::string, std::vector<DmxFrame>>> looks;
    for (const std::string& name : {always->name, plain.name}) {
        for (const char* m : {"static", "pulse", "cycle"}) {
            EngineHost host;
            load(host, m);
            host.applyControl({.themeName = name, .themes = testing::enginePayloads(themes)});
            looks[m][name] = run(host, 120);
        }
    }
    EXPECT_NE(looks["cycle"][always->name], looks["cycle"][plain.name]);
    EXPECT_EQ(looks["static"][always->name], looks["static"][plain.name]);
    EXPECT_EQ(looks["pulse"][always->name], looks["pulse"][plain.name]);
}

TEST_F(HarnessRender, ALightingShiftReDealsTheLooksOfEveryMode) {
    for (const char* m : {"static", "pulse", "chase", "strobe", "cycle", "party"}) {
        EngineHost before, after;
        load(before, m);
        load(after, m);
        after.shiftLighting();
        EXPECT_NE(run(before, 120), run(after, 120)) << m;
        const auto a = interpretation(before)["tree"]["children"];
        const auto b = interpretation(after)["tree"]["children"];
        ASSERT_EQ(a.size(), 5u);
        ASSERT_EQ(b.size(), 5u);
        for (std::size_t g = 0; g < a.size(); ++g) {
            // Every group runs another interpreter and starts on another colour.
            for (std::size_t node = 0; node < 2; ++node) {
                EXPECT_EQ(a[g]["children"][node]["category"], b[g]["children"][node]["category"]);
                EXPECT_NE(a[g]["children"][node]["label"], b[g]["children"][node]["label"])
                    << m << " " << a[g]["label"];
            }
        }
        // The shifted interpreters are the mode's own, dealt round: shifting on comes back.
        std::set<std::string> dealt;
        for (int shift = 0; shift < 60; ++shift) {
            const auto tree = interpretation(after)["tree"];
            for (const auto& g : tree["children"]) {
                dealt.insert(g["children"][0]["label"].get<std::string>());
            }
            after.shiftLighting();
        }
        EXPECT_GE(dealt.size(), 3u) << m;
        EXPECT_LE(dealt.size(), 5u) << m;
    }
    // The colour the interpretation names is the colour the group wears.
    mode(host_, "static");
    int checked = 0;
    for (int shift = 0; shift < 6; ++shift, host_.shiftLighting()) {
        const auto dmx = run(host_, 1, 5 * shift).back();
        const auto tree = interpretation(host_)["tree"];
        for (const auto& g : tree["children"]) {
            if (g["children"][0]["label"] != "Static wash") {
                continue;
            }
            const std::string named = g["children"][1]["label"]; // "Rave palette, colour n"
            const auto colour =
                host_.liveScheme().at(std::stoul(named.substr(named.rfind(' '))) - 1);
            for (const Patched& p : patch_) {
                if (p.group == g["label"] && !p.disabled && hasChannel(p, "dimmer") &&
                    hasChannel(p, "red")) {
                    EXPECT_NEAR(channel(dmx, p, "red"), 255 * colour.r, 1.0)
                        << p.id << " " << named;
                    EXPECT_NEAR(channel(dmx, p, "green"), 255 * colour.g, 1.0)
                        << p.id << " " << named;
                    EXPECT_NEAR(channel(dmx, p, "blue"), 255 * colour.b, 1.0)
                        << p.id << " " << named;
                    ++checked;
                }
            }
        }
    }
    EXPECT_GT(checked, 40);

    // Nothing to re-deal in a blackout.
    mode(host_, "blackout");
    const auto dark = run(host_, 10);
    host_.shiftLighting();
    EXPECT_EQ(run(host_, 10), dark);
}

TEST_F(HarnessRender, TheLightingPlotSamplesTheFixtures) {
    mode(host_, "static");
    run(host_, 5);
    const auto& lamps = host_.lightingPlot().lamps;
    ASSERT_EQ(lamps.size(), 14u);
    for (const PlotLamp& lamp : lamps) {
        EXPECT_GE(lamp.x, 0.0);
        EXPECT_LE(lamp.x, 1.0);
        EXPECT_GE(lamp.dimmer, 0.0);
        EXPECT_LE(lamp.dimmer, 1.0);
    }
    EXPECT_GT(lamps.front().dimmer, 0.8);
    EXPECT_EQ(lamps.front().red, 1.0);
}

TEST_F(HarnessRender, TheCachedSubsetLightsTheSameShowOffline) {
    ASSERT_TRUE(subset_.has_value());
    const auto subset = nlohmann::json::parse(*subset_);
    EXPECT_EQ(subset["summary"]["id"], "show-demo");
    EXPECT_EQ(subset["summary"]["name"], "Demo Club Night");
    EXPECT_EQ(subset["revision"], 3);
    EXPECT_EQ(subset["fixtures"].size(), 48u);
    EXPECT_EQ(subset["fixture_definitions"].size(), 5u);
    EXPECT_EQ(subset["control_state"]["mode"], "static");
    EXPECT_EQ(subset["control_state"]["theme_name"], "Rave");

    mode(host_, "party");
    const auto live = run(host_, 200);

    EngineHost offline;
    offline.loadHarness(testing::harnessSource());
    EXPECT_FALSE(offline.hasRealizedShow());
    offline.loadCachedShow(*subset_);
    ASSERT_TRUE(offline.hasRealizedShow());
    mode(offline, "party");
    EXPECT_EQ(run(offline, 200), live);

    // Without a later control change the cached control state picks the mode.
    EngineHost restored;
    restored.loadHarness(testing::harnessSource());
    restored.loadCachedShow(*subset_);
    EngineHost reference;
    load(reference, "static");
    reference.applyControl({.themeName = "Rave"});
    EXPECT_EQ(run(restored, 30), run(reference, 30));

    // Per-fixture manual dimmers survive the cache: an offline restart dims as before.
    auto control = testing::demoControlState("static");
    control.erase("manual_dimmer");
    control["manual_fixture_dimmers"] = {{"fx-par-01", 0.25}, {"fx-par-02", 0.5}};
    EngineHost dimmed;
    dimmed.loadHarness(testing::harnessSource());
    const auto dimmedSubset = dimmed.loadShow(testing::demoBootstrap()["active_show"], control);
    ASSERT_TRUE(dimmedSubset.has_value());
    EXPECT_EQ(nlohmann::json::parse(*dimmedSubset)["control_state"]["manual_fixture_dimmers"],
              control["manual_fixture_dimmers"]);
    EngineHost restart;
    restart.loadHarness(testing::harnessSource());
    restart.loadCachedShow(*dimmedSubset);
    const auto full = run(reference, 1, 30).back();
    const auto half = run(restart, 1, 30).back();
    for (const Patched& p : patch_) {
        if (!p.disabled && hasChannel(p, "dimmer") && p.group != "Strobes") {
            EXPECT_NEAR(channel(half, p, "dimmer"), channel(full, p, "dimmer") / 2.0, 1.0) << p.id;
        }
    }
}

TEST_F(HarnessRender, FixtureOptionsResizeManualDimmers) {
    auto fixtures = testing::demoBootstrap()["active_show"]["fixtures"];
    for (auto& f : fixtures) {
        if (f["id"] == "fx-dimmer-4") {
            f["options"]["width"] = 9;
        }
    }
    host_.applyFixtureOptions(fixtures);
    const auto dmx = run(host_, 2).back();
    EXPECT_EQ(dmx.at(3).size(), 16u); // address 8, now 9 wide
    for (std::size_t i = 7; i < 16; ++i) {
        EXPECT_GT(dmx.at(3)[i], 200) << i;
    }
}

TEST_F(HarnessRender, TheInterpretationNamesTheInterpretersOfEveryGroup) {
    mode(host_, "party");
    const auto payload = host_.interpretationPayload();
    ASSERT_TRUE(payload.has_value());
    const auto j = nlohmann::json::parse(*payload);
    ASSERT_TRUE(j["tree"].is_object());
    EXPECT_EQ(j["tree"]["mode"], "party");
    const auto& groups = j["tree"]["children"];
    ASSERT_EQ(groups.size(), 5u);
    std::set<std::string> labels;
    std::set<std::string> animations;
    std::size_t fixtures = 0;
    for (const auto& g : groups) {
        EXPECT_EQ(g["kind"], "group");
        labels.insert(g["label"].get<std::string>());
        ASSERT_TRUE(g["children"].is_array());
        for (const auto& node : g["children"]) {
            EXPECT_EQ(node["kind"], "interpreter");
            EXPECT_TRUE(node["label"].is_string());
            EXPECT_TRUE(node["fixture_label"].is_string());
            ASSERT_TRUE(node["fixtures"].is_array());
            for (const auto& id : node["fixtures"]) {
                EXPECT_TRUE(id.is_string());
                EXPECT_NE(id, "fx-wash-12"); // disabled
            }
            if (node["category"] == "Animation") {
                animations.insert(node["label"].get<std::string>());
                fixtures += node["fixtures"].size();
            } else {
                EXPECT_EQ(node["category"], "Color");
            }
        }
    }
    EXPECT_EQ(labels, (std::set<std::string>{"Front pars", "Back washes", "Strobes", "Battens",
                                             "House dimmers"}));
    EXPECT_EQ(fixtures, 47u);
    EXPECT_GE(animations.size(), 3u) << "party deals several interpreters";

    mode(host_, "pulse");
    const auto pulse = nlohmann::json::parse(*host_.interpretationPayload());
    EXPECT_EQ(pulse["tree"]["mode"], "pulse");
    EXPECT_EQ(pulse["tree"]["children"][0]["children"][0]["label"], "Beat pulse");

    // While blending, each group also names what the blend target deals it, on the same
    // fixtures (one row of the interpretation screen).
    mode(host_, "pulse", "chase", 0.4);
    const auto blend = interpretation(host_);
    EXPECT_EQ(blend["tree"]["mode"], "pulse");
    EXPECT_EQ(blend["mode_to"], "chase");
    mode(host_, "chase");
    const auto chase = interpretation(host_);
    ASSERT_EQ(blend["tree"]["children"].size(), 5u);
    for (std::size_t g = 0; g < 5; ++g) {
        const auto& nodes = blend["tree"]["children"][g]["children"];
        ASSERT_EQ(nodes.size(), 3u);
        EXPECT_EQ(nodes[0], pulse["tree"]["children"][g]["children"][0]);
        EXPECT_EQ(nodes[1]["category"], "Blend");
        EXPECT_EQ(nodes[1]["label"], chase["tree"]["children"][g]["children"][0]["label"]);
        EXPECT_EQ(nodes[1]["fixtures"], nodes[0]["fixtures"]);
        EXPECT_EQ(nodes[2]["category"], "Color");
    }
}

} // namespace
} // namespace kelvo
