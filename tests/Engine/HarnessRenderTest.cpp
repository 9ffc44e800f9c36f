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

class HarnessRender : public ::testing::Test {
protected:
    void SetUp() override {
        watch_ = std::make_unique<testing::ScriptErrorWatch>();
        load(host_);
    }
    void TearDown() override { EXPECT_FALSE(watch_->scriptThrew()); }

    void load(EngineHost& host, const std::string& mode = "static") {
        host.loadHarness(testing::harnessSource());
        auto boot = testing::demoBootstrap();
        boot["control_state"]["mode"] = mode;
        subset_ = host.loadShow(boot["active_show"], boot["control_state"]);
        EngineControl themes;
        themes.themes = testing::demoThemesForEngine();
        host.applyControl(themes);
        ASSERT_TRUE(host.hasRealizedShow());
    }
    static void mode(EngineHost& host, const std::string& id, std::optional<std::string> to = {},
                     double lerp = 0) {
        EngineControl c;
        c.modeId = id;
        c.modeTo = to;
        c.modeLerp = lerp;
        host.applyControl(c);
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
        if (p.group == "Strobes") {
            EXPECT_EQ(channel(dmx, p, "dimmer"), 0) << "strobes stay out of a wash";
        }
    }
}

TEST_F(HarnessRender, OnlyEnabledFixturesLightInEveryMode) {
    auto owned = enabledChannels(patch_);
    const auto disabled =
        std::find_if(patch_.begin(), patch_.end(), [](auto& p) { return p.disabled; });
    ASSERT_NE(disabled, patch_.end());
    for (const char* m : {"static", "pulse", "chase", "strobe", "cycle", "party", "blackout"}) {
        mode(host_, m);
        host_.setForcedDrop(std::string(m) == "party");
        for (const auto& dmx : run(host_, 40)) {
            ASSERT_EQ(dmx.size(), 3u);
            for (int c = 0; c < disabled->width; ++c) {
                ASSERT_EQ(dmx.at(disabled->universe).at(disabled->address - 1 + c), 0) << m;
            }
            for (const auto& [universe, bytes] : dmx) {
                for (std::size_t i = 0; i < bytes.size(); ++i) {
                    ASSERT_TRUE(bytes[i] == 0 || owned[universe].count(i))
                        << m << ": universe " << universe << " channel " << i + 1;
                }
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
    for (std::size_t i = 0; i < modes.size(); ++i) {
        for (std::size_t j = i + 1; j < modes.size(); ++j) {
            EXPECT_NE(looks[modes[i]], looks[modes[j]]) << modes[i] << " vs " << modes[j];
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
    mode(host_, "static");
    const auto full = run(host_, 5).back();
    EngineControl half;
    half.manualDimmer = 0.5;
    host_.applyControl(half);
    const auto halved = run(host_, 5, 5).back();
    EngineControl off;
    off.manualDimmer = 0.0;
    host_.applyControl(off);
    const auto dark = run(host_, 5, 10).back();
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
            if (p.disabled || !hasChannel(p, "dimmer")) {
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

    EngineControl ocean;
    ocean.themeName = "Ocean";
    host_.applyControl(ocean);
    const auto blue = run(host_, 1, 10).back();
    EXPECT_NE(rave, blue);
    const Patched& par = patch_.front();
    EXPECT_EQ(channel(blue, par, "red"), 0);
    EXPECT_EQ(channel(blue, par, "green"), 102);
    EXPECT_EQ(channel(blue, par, "blue"), 255);
    const auto configDocument = testing::demoConfig();
    const auto& config = configDocument["theme_color_examples"];
    const auto oceanTheme =
        std::find_if(config.begin(), config.end(), [](auto& t) { return t["name"] == "Ocean"; });
    ASSERT_EQ(host_.liveScheme().size(), (*oceanTheme)["palette"].size());
    for (std::size_t i = 0; i < host_.liveScheme().size(); ++i) {
        const auto& c = (*oceanTheme)["palette"][i];
        EXPECT_EQ(host_.liveScheme()[i], (ThemePaletteColor{c[0], c[1], c[2]}));
    }

    // An unknown theme falls back to "Rave" rather than going dark.
    EngineControl unknown;
    unknown.themeName = "No Such Theme";
    host_.applyControl(unknown);
    EXPECT_EQ(run(host_, 1, 15).back(), rave);
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
    EngineControl rave;
    rave.themeName = "Rave";
    reference.applyControl(rave);
    EXPECT_EQ(run(restored, 30), run(reference, 30));
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
}

} // namespace
} // namespace kelvo
