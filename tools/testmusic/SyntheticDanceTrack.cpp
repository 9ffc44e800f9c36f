#include "testmusic/SyntheticDanceTrack.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <numbers>
#include <utility>

namespace kelvo::test {

namespace {

constexpr double twoPi = 2.0 * std::numbers::pi;

class XorShift {
public:
    explicit XorShift(std::uint32_t seed) : state_(seed == 0 ? 0x9e3779b9u : seed) {}
    /// Uniform in [-1, 1).
    double next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return static_cast<double>(state_) / 2147483648.0 - 1.0;
    }

private:
    std::uint32_t state_;
};

double decibelsToGain(double db) {
    return std::pow(10.0, db / 20.0);
}

// Bass notes (Hz), one per bar: a minor riff around A1.
constexpr double bassNotes[] = {55.0, 55.0, 65.41, 49.0};

// Where a swung eighth falls, in beats after the beat.
constexpr double swungEighth = 2.0 / 3.0;

} // namespace

SyntheticDanceTrack::SyntheticDanceTrack(DanceTrackSpec spec) : spec_(std::move(spec)) {
    // Breaks start and end on a beat, as they do in the music.
    const double period = 60.0 / spec_.bpm;
    auto onGrid = [&](double t) {
        return spec_.firstBeat + std::round((t - spec_.firstBeat) / period) * period;
    };
    for (DanceBreak& b : spec_.breaks) {
        const double start = onGrid(b.start);
        b.length = onGrid(b.start + b.length) - start;
        b.start = start;
    }
    render();
}

bool SyntheticDanceTrack::inBreak(double t) const {
    return std::any_of(spec_.breaks.begin(), spec_.breaks.end(),
                       [t](const DanceBreak& b) { return t >= b.start && t < b.start + b.length; });
}

void SyntheticDanceTrack::render() {
    const double rate = spec_.sampleRate;
    const auto count = static_cast<std::size_t>(std::max(0.0, spec_.seconds) * rate);
    samples_.assign(count, 0.0f);
    const double period = 60.0 / spec_.bpm;

    for (double beat = spec_.firstBeat; beat < spec_.seconds; beat += period) {
        truth_.beats.push_back(beat);
        if (!inBreak(beat) && !spec_.swing) {
            truth_.kicks.push_back(beat);
        }
    }
    for (const DanceBreak& b : spec_.breaks) {
        truth_.drops.push_back(b.start + b.length);
    }

    XorShift noise(spec_.seed);
    XorShift hatNoise(spec_.seed * 7919u + 1u);
    double hatPrevious = 0.0;
    double kickPhase = 0.0;
    double bassPhase = 0.0;
    std::vector<double> mix(count, 0.0);

    for (std::size_t n = 0; n < count; ++n) {
        const double t = static_cast<double>(n) / rate;
        const double sinceFirst = t - spec_.firstBeat;
        const double beatPos = sinceFirst / period;
        const double beatIndex = std::floor(beatPos);
        const double sinceBeat = sinceFirst >= 0 ? (beatPos - beatIndex) * period : 1e9;
        const bool breakNow = inBreak(t);
        // The kick that started at the last beat belongs to the break only if that beat did.
        const bool kickOut = inBreak(t - sinceBeat);
        double v = 0.0;

        // Kick: pitch sweep 150 -> 45 Hz with a fast exponential decay.
        if (sinceFirst >= 0 && !kickOut && !spec_.swing && sinceBeat < 0.35) {
            const double freq = 45.0 + 105.0 * std::exp(-sinceBeat / 0.03);
            kickPhase += twoPi * freq / rate;
            v += 0.9 * std::sin(kickPhase) * std::exp(-sinceBeat / 0.09);
        } else {
            kickPhase = 0.0;
        }

        // Off-beat hats: differentiated noise burst.
        const double offBeat = period * (spec_.swing ? swungEighth : 0.5);
        const double sinceHat = sinceBeat >= offBeat ? sinceBeat - offBeat : 1e9;
        const double white = hatNoise.next();
        const double hp = white - hatPrevious;
        hatPrevious = white;
        if (spec_.hats && sinceFirst >= 0 && sinceHat < 0.06) {
            v += 0.12 * hp * std::exp(-sinceHat / 0.015);
        }

        // Bass: three harmonics, ducked after each kick, note per bar.
        if (sinceFirst >= 0 && !breakNow) {
            const auto bar = static_cast<std::size_t>(beatIndex / 4.0);
            const double freq = bassNotes[bar % std::size(bassNotes)];
            bassPhase += twoPi * freq / rate;
            const double tone =
                std::sin(bassPhase) + 0.4 * std::sin(2 * bassPhase) + 0.2 * std::sin(3 * bassPhase);
            if (spec_.swing) {
                // Two plucked notes a beat, alike: the swung one's rise is the clearer, as the
                // beat's comes so soon after it.
                const double sinceSwung = sinceBeat - swungEighth * period;
                const double since = sinceSwung >= 0 ? sinceSwung : sinceBeat;
                v += 0.4 * std::exp(-since / 0.05) * tone;
            } else {
                const double duck = 1.0 - 0.8 * std::exp(-sinceBeat / 0.08);
                v += 0.22 * duck * tone;
            }
        }

        // Pad: a quiet chord in the mid band that plays throughout.
        v += 0.03 * (std::sin(twoPi * 440.0 * t) + std::sin(twoPi * 554.37 * t) +
                     std::sin(twoPi * 659.25 * t));

        double gainDb = spec_.gainDecibels;
        for (const DanceLevelChange& change : spec_.levelChanges) {
            if (t >= change.at) {
                gainDb = spec_.gainDecibels + change.gainDecibels;
            }
        }
        v *= decibelsToGain(gainDb);
        if (spec_.noiseDecibels > -199) {
            v += decibelsToGain(spec_.noiseDecibels) * noise.next();
        }
        mix[n] = v;
    }
    for (std::size_t n = 0; n < count; ++n) {
        samples_[n] = static_cast<float>(std::clamp(mix[n], -1.0, 1.0));
    }
}

std::string SyntheticDanceTrack::truthJSON() const {
    auto list = [](const std::vector<double>& values) {
        std::string out = "[";
        char buffer[32];
        for (std::size_t i = 0; i < values.size(); ++i) {
            std::snprintf(buffer, sizeof buffer, "%s%.6f", i ? ", " : "", values[i]);
            out += buffer;
        }
        return out + "]";
    };
    char head[128];
    std::snprintf(head, sizeof head, "{\"bpm\": %.3f, \"seconds\": %.3f, \"sample_rate\": %.0f, ",
                  spec_.bpm, spec_.seconds, spec_.sampleRate);
    return std::string(head) + "\"beats\": " + list(truth_.beats) +
           ", \"kicks\": " + list(truth_.kicks) + ", \"drops\": " + list(truth_.drops) + "}\n";
}

double beatFMeasure(const std::vector<double>& detected, const std::vector<double>& reference,
                    double tolerance) {
    if (detected.empty() && reference.empty()) {
        return 1.0;
    }
    if (detected.empty() || reference.empty()) {
        return 0.0;
    }
    std::vector<bool> used(detected.size(), false);
    std::size_t hits = 0;
    for (double ref : reference) {
        std::size_t best = detected.size();
        double bestError = tolerance;
        for (std::size_t i = 0; i < detected.size(); ++i) {
            const double error = std::abs(detected[i] - ref);
            if (!used[i] && error <= bestError) {
                best = i;
                bestError = error;
            }
        }
        if (best < detected.size()) {
            used[best] = true;
            ++hits;
        }
    }
    const double precision = static_cast<double>(hits) / static_cast<double>(detected.size());
    const double recall = static_cast<double>(hits) / static_cast<double>(reference.size());
    return precision + recall > 0 ? 2 * precision * recall / (precision + recall) : 0.0;
}

} // namespace kelvo::test
