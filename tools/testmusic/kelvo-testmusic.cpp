// Writes synthetic dance music with known ground truth: a WAV file and, next to it, a
// ".truth.json" side file with the true beat, kick and drop times.
//
//   kelvo-testmusic -o track.wav [--bpm 128] [--seconds 60] [--rate 48000] [--gain -6]
//                   [--noise -40] [--break START:LENGTH]... [--level AT:DB]... [--seed N]

#include "testmusic/SyntheticDanceTrack.h"
#include "testmusic/WavWriter.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using kelvo::test::DanceTrackSpec;

int usage() {
    std::fputs(
        "usage: kelvo-testmusic -o FILE.wav [--bpm N] [--seconds S] [--rate HZ] [--gain DB]\n"
        "                       [--noise DB] [--break START:LENGTH]... [--level AT:DB]...\n"
        "                       [--seed N]\n",
        stderr);
    return 2;
}

bool parseNumber(const char* text, double& out) {
    char* end = nullptr;
    out = std::strtod(text, &end);
    return end != text && *end == '\0';
}

bool parsePair(const char* text, double& first, double& second) {
    const std::string s(text);
    const auto colon = s.find(':');
    return colon != std::string::npos && parseNumber(s.substr(0, colon).c_str(), first) &&
           parseNumber(s.substr(colon + 1).c_str(), second);
}

} // namespace

int main(int argc, char** argv) {
    DanceTrackSpec spec;
    spec.seconds = 60;
    std::string output;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (i + 1 >= argc) {
            return usage();
        }
        const char* value = argv[++i];
        double a = 0;
        double b = 0;
        bool ok = true;
        if (arg == "-o") {
            output = value;
        } else if (arg == "--bpm") {
            ok = parseNumber(value, spec.bpm) && spec.bpm >= 30 && spec.bpm <= 300;
        } else if (arg == "--seconds") {
            ok = parseNumber(value, spec.seconds) && spec.seconds > 0 && spec.seconds <= 3600;
        } else if (arg == "--rate") {
            ok = parseNumber(value, spec.sampleRate) && spec.sampleRate >= 8000 &&
                 spec.sampleRate <= 192000;
        } else if (arg == "--gain") {
            ok = parseNumber(value, spec.gainDecibels);
        } else if (arg == "--noise") {
            ok = parseNumber(value, spec.noiseDecibels);
        } else if (arg == "--break") {
            ok = parsePair(value, a, b) && a >= 0 && b > 0;
            spec.breaks.push_back({a, b});
        } else if (arg == "--level") {
            ok = parsePair(value, a, b);
            spec.levelChanges.push_back({a, b});
        } else if (arg == "--seed") {
            ok = parseNumber(value, a) && a >= 0;
            spec.seed = static_cast<std::uint32_t>(a);
        } else {
            return usage();
        }
        if (!ok) {
            std::fprintf(stderr, "kelvo-testmusic: bad value for %s: %s\n", argv[i - 1], value);
            return 2;
        }
    }
    if (output.empty()) {
        return usage();
    }
    const kelvo::test::SyntheticDanceTrack track(spec);
    std::string error =
        kelvo::test::writeMonoWav(output, track.samples(), static_cast<int>(spec.sampleRate));
    if (error.empty()) {
        const auto dot = output.rfind(".wav");
        const std::string base = dot == std::string::npos ? output : output.substr(0, dot);
        error = kelvo::test::writeTextFile(base + ".truth.json", track.truthJSON());
    }
    if (!error.empty()) {
        std::fprintf(stderr, "kelvo-testmusic: %s\n", error.c_str());
        return 1;
    }
    std::printf("%s: %.0f BPM, %.1f s, %zu beats, %zu drops\n", output.c_str(), spec.bpm,
                spec.seconds, track.truth().beats.size(), track.truth().drops.size());
    return 0;
}
