// Runs the development harness's beat tracker (through the engine host and the band extractor)
// and aubio (`aubio tempo`, `aubio beat`) on the same generated files and prints a Markdown table
// of BPM error and beat F-measure (±70 ms and ±35 ms), judged after the first 8 seconds.
//
//   kelvo-beat-compare [--work DIR] [--aubio PATH] [--check]
//
// With --check the exit status is 1 when the harness is less accurate than aubio on any file
// (a larger BPM error, or a lower F-measure), so the comparison can run as a test.

#include "Audio/BandEnergyExtractor.h"
#include "Engine/EngineHost.h"
#include "support/SyntheticDanceTrack.h"
#include "testmusic/WavWriter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using kelvo::testing::DanceTrackSpec;
using kelvo::testing::SyntheticDanceTrack;

constexpr double settleSeconds = 8.0;

struct Case {
    std::string name;
    DanceTrackSpec spec;
};

struct Result {
    double bpm = 0;
    std::vector<double> beats;
    bool ok = true;
};

std::vector<Case> cases() {
    std::vector<Case> out;
    for (double bpm : {100.0, 120.0, 128.0, 140.0, 174.0}) {
        DanceTrackSpec s;
        s.bpm = bpm;
        s.seconds = 30;
        out.push_back({"steady-" + std::to_string(static_cast<int>(bpm)), s});
    }
    for (double bpm : {100.0, 128.0, 174.0}) {
        DanceTrackSpec s;
        s.bpm = bpm;
        s.seconds = 30;
        s.sampleRate = 44100;
        s.noiseDecibels = -35;
        s.gainDecibels = -20;
        s.levelChanges.push_back({12.0, -15.0});
        out.push_back({"noisy-quiet-" + std::to_string(static_cast<int>(bpm)), s});
    }
    DanceTrackSpec drop;
    drop.bpm = 124;
    drop.seconds = 60;
    drop.breaks.push_back({35.0, 10.0});
    out.push_back({"break-drop-124", drop});
    return out;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

Result runHarness(const SyntheticDanceTrack& track, const std::string& harness) {
    Result result;
    kelvo::EngineHost host;
    host.loadHarness(harness);
    kelvo::BandEnergyExtractor extractor(track.spec().sampleRate);
    const auto& samples = track.samples();
    constexpr std::size_t hopSize = kelvo::BandEnergyExtractor::hopSize;
    std::vector<double> settled;
    for (std::size_t i = 0; i + hopSize <= samples.size(); i += hopSize) {
        extractor.appendHopToRing(std::span<const float, hopSize>(samples.data() + i, hopSize));
        extractor.updateSpectrum();
        kelvo::MicHop hop;
        hop.levels = extractor.levels();
        hop.dt = static_cast<double>(hopSize) / track.spec().sampleRate;
        hop.sampleRate = track.spec().sampleRate;
        host.updateClassical(std::span<const kelvo::MicHop>(&hop, 1));
        if (host.lastBeat().beat) {
            result.beats.push_back(host.classicalClock());
        }
        if (host.classicalClock() >= settleSeconds) {
            settled.push_back(host.lastBeat().bpm);
        }
    }
    result.bpm = median(settled);
    return result;
}

std::string shellQuote(const std::string& s) {
    std::string out = "'";
    for (char c : s) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

std::vector<std::string> commandLines(const std::string& command, bool& ok) {
    std::vector<std::string> lines;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) {
        ok = false;
        return lines;
    }
    char buffer[256];
    while (std::fgets(buffer, sizeof buffer, pipe.get()) != nullptr) {
        lines.emplace_back(buffer);
    }
    ok = pclose(pipe.release()) == 0;
    return lines;
}

Result runAubio(const std::string& aubio, const std::string& wav) {
    Result result;
    bool ok = false;
    for (const auto& line : commandLines(shellQuote(aubio) + " tempo -i " + shellQuote(wav), ok)) {
        std::sscanf(line.c_str(), "%lf", &result.bpm);
    }
    result.ok = ok;
    for (const auto& line : commandLines(shellQuote(aubio) + " beat -i " + shellQuote(wav), ok)) {
        double t = 0;
        if (std::sscanf(line.c_str(), "%lf", &t) == 1) {
            result.beats.push_back(t);
        }
    }
    result.ok = result.ok && ok;
    return result;
}

std::vector<double> after(const std::vector<double>& times, double start) {
    std::vector<double> out;
    std::copy_if(times.begin(), times.end(), std::back_inserter(out),
                 [start](double t) { return t >= start; });
    return out;
}

} // namespace

int main(int argc, char** argv) {
    std::string work = (std::filesystem::temp_directory_path() / "kelvo-beat-compare").string();
    std::string aubio = "aubio";
    bool check = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "--check") {
            check = true;
        } else if (arg == "--work" && i + 1 < argc) {
            work = argv[++i];
        } else if (arg == "--aubio" && i + 1 < argc) {
            aubio = argv[++i];
        } else {
            std::fputs("usage: kelvo-beat-compare [--work DIR] [--aubio PATH] [--check]\n", stderr);
            return 2;
        }
    }
    std::filesystem::create_directories(work);
    const std::string harness =
        readFile(std::string(KELVO_SOURCE_DIR) + "/devcloud/harness/engine.js");
    if (harness.empty()) {
        std::fputs("kelvo-beat-compare: cannot read devcloud/harness/engine.js\n", stderr);
        return 1;
    }

    std::printf(
        "| file | true BPM | ours BPM (error) | aubio BPM (error) | ours F ±70 ms | aubio F ±70 ms "
        "| ours F ±35 ms | aubio F ±35 ms |\n");
    std::printf("|---|---|---|---|---|---|---|---|\n");
    int failures = 0;
    for (const Case& c : cases()) {
        const SyntheticDanceTrack track(c.spec);
        const std::string wav = work + "/" + c.name + ".wav";
        if (const auto error = kelvo::testing::writeMonoWav(wav, track.samples(),
                                                            static_cast<int>(c.spec.sampleRate));
            !error.empty()) {
            std::fprintf(stderr, "kelvo-beat-compare: %s\n", error.c_str());
            return 1;
        }
        kelvo::testing::writeTextFile(work + "/" + c.name + ".truth.json", track.truthJSON());
        const Result ours = runHarness(track, harness);
        const Result theirs = runAubio(aubio, wav);
        if (!theirs.ok) {
            std::fprintf(stderr, "kelvo-beat-compare: aubio failed on %s\n", wav.c_str());
            ++failures;
        }
        // Steady files are judged on the kicks; through a break on the beat grid.
        const auto& truth = c.spec.breaks.empty() ? track.truth().kicks : track.truth().beats;
        const auto reference = after(truth, settleSeconds);
        auto f = [&](const Result& r, double tolerance) {
            return kelvo::testing::beatFMeasure(after(r.beats, settleSeconds), reference,
                                                tolerance);
        };
        const double ourError = std::abs(ours.bpm - c.spec.bpm);
        const double theirError = std::abs(theirs.bpm - c.spec.bpm);
        std::printf("| %s | %.0f | %.2f (%.2f) | %.2f (%.2f) | %.3f | %.3f | %.3f | %.3f |\n",
                    c.name.c_str(), c.spec.bpm, ours.bpm, ourError, theirs.bpm, theirError,
                    f(ours, 0.070), f(theirs, 0.070), f(ours, 0.035), f(theirs, 0.035));
        if (check && (ourError > theirError || f(ours, 0.070) < f(theirs, 0.070) ||
                      f(ours, 0.035) < f(theirs, 0.035))) {
            std::fprintf(stderr, "kelvo-beat-compare: less accurate than aubio on %s\n",
                         c.name.c_str());
            ++failures;
        }
        std::fflush(stdout);
    }
    return failures == 0 ? 0 : 1;
}
