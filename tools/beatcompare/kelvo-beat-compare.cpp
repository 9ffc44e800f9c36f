// Runs the development harness's beat tracker (through the engine host and the band extractor)
// and aubio's on the same generated files and prints Markdown tables of BPM error and beat
// F-measure (±70 ms and ±35 ms), judged after the first 8 seconds.
//
// aubio runs as it comes (`aubio tempo` for the BPM, `aubiotrack` for the beats) and, through
// aubio-beats.py beside this file, with each onset detection function its tempo tracker takes;
// its best method per file is the one with the highest F ±70 ms (then ±35 ms).
//
//   kelvo-beat-compare [--work DIR] [--aubio PATH] [--python PATH] [--check]
//   kelvo-beat-compare --trace FILE.wav
//
// --trace runs only the harness on a recording and prints, one a line, "beat T" for each beat,
// "bpm T BPM CONFIDENCE" every quarter second and "drop T" where the drop detector fires; the
// real-music comparison (real-music.py beside this file) reads it.
//
// Without --check the real recordings follow (real-music.py beside this file, with mir_eval).
// With --check the exit status is 1 when the harness is less accurate than aubio's best on any
// file (a larger BPM error than both aubio BPMs, or a lower F-measure than any method reaches),
// so the comparison can run as a test.

#include "Audio/BandEnergyExtractor.h"
#include "Engine/EngineHost.h"
#include "Support/MonotonicClock.h"
#include "testmusic/SyntheticDanceTrack.h"
#include "testmusic/WavWriter.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sndfile.h>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using kelvo::test::DanceTrackSpec;
using kelvo::test::SyntheticDanceTrack;

constexpr double settleSeconds = 8.0;

// Onset detection functions aubio's tempo tracker accepts; its "default" is specflux.
constexpr std::string_view aubioMethods[] = {"default", "hfc",      "energy", "complex", "specflux",
                                             "phase",   "specdiff", "kl",     "mkl"};

struct Case {
    std::string name;
    DanceTrackSpec spec;
};

struct Result {
    double bpm = 0;
    std::vector<double> beats;
};

struct Score {
    std::string_view method;
    double f70 = 0;
    double f35 = 0;
    double bpm = 0; ///< from the mean interval between beats
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
    DanceTrackSpec plain;
    plain.bpm = 128;
    plain.seconds = 30;
    plain.hats = false;
    out.push_back({"kick-bass-128", plain});
    for (double bpm : {110.0, 150.0}) {
        DanceTrackSpec swung;
        swung.bpm = bpm;
        swung.seconds = 30;
        swung.swing = true;
        out.push_back({"swing-" + std::to_string(static_cast<int>(bpm)), swung});
    }
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

std::vector<double> after(const std::vector<double>& times, double start) {
    std::vector<double> out;
    std::copy_if(times.begin(), times.end(), std::back_inserter(out),
                 [start](double t) { return t >= start; });
    return out;
}

/// Feeds mono samples through the band extractor and the harness, hop by hop. The run is offline
/// and far faster than real time, so a call that overran the live limit (a stall of the machine)
/// would leave the script alone for seconds of wall time, the rest of the file: the limits here
/// only catch a harness that hangs. Timing is the benchmarks' business.
template <typename OnHop>
void feedHarness(const std::vector<float>& samples, double sampleRate, const std::string& harness,
                 OnHop&& onHop) {
    kelvo::ScriptTimeLimits limits;
    limits.call = std::chrono::seconds(1);
    limits.load = std::chrono::seconds(10);
    kelvo::EngineHost host(std::make_shared<kelvo::SteadyMonotonicClock>(), limits);
    if (!host.loadHarness(harness)) {
        std::fputs("kelvo-beat-compare: the harness did not load in time\n", stderr);
        std::exit(1);
    }
    kelvo::BandEnergyExtractor extractor(sampleRate);
    constexpr std::size_t hopSize = kelvo::BandEnergyExtractor::hopSize;
    for (std::size_t i = 0; i + hopSize <= samples.size(); i += hopSize) {
        extractor.appendHopToRing(std::span<const float, hopSize>(samples.data() + i, hopSize));
        extractor.updateSpectrum();
        kelvo::MicHop hop;
        hop.levels = extractor.levels();
        hop.dt = static_cast<double>(hopSize) / sampleRate;
        hop.sampleRate = sampleRate;
        host.updateClassical(std::span<const kelvo::MicHop>(&hop, 1));
        onHop(host);
    }
}

/// Prints the harness's beats, tempo and drops on a recording (any channel count, mixed down).
int traceRecording(const std::string& path, const std::string& harness) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        std::fprintf(stderr, "kelvo-beat-compare: cannot read %s: %s\n", path.c_str(),
                     sf_strerror(nullptr));
        return 1;
    }
    std::vector<float> frames(static_cast<std::size_t>(info.frames) *
                              static_cast<std::size_t>(info.channels));
    const sf_count_t read = sf_readf_float(file, frames.data(), info.frames);
    sf_close(file);
    std::vector<float> mono(static_cast<std::size_t>(read));
    for (std::size_t i = 0; i < mono.size(); ++i) {
        float sum = 0;
        for (int c = 0; c < info.channels; ++c) {
            sum +=
                frames[i * static_cast<std::size_t>(info.channels) + static_cast<std::size_t>(c)];
        }
        mono[i] = sum / static_cast<float>(info.channels);
    }
    double nextTempo = 0;
    bool dropping = false;
    feedHarness(mono, info.samplerate, harness, [&](const kelvo::EngineHost& host) {
        const double t = host.classicalClock();
        const auto& beat = host.lastBeat();
        if (beat.beat) {
            std::printf("beat %.4f\n", t);
        }
        if (t >= nextTempo) {
            std::printf("bpm %.3f %.3f %.3f\n", t, beat.bpm, beat.confidence);
            nextTempo += 0.25;
        }
        if (beat.drop >= 1 && !dropping) {
            std::printf("drop %.3f\n", t);
        }
        dropping = beat.drop >= 1;
    });
    return 0;
}

Result runHarness(const SyntheticDanceTrack& track, const std::string& harness) {
    Result result;
    std::vector<double> settled;
    feedHarness(track.samples(), track.spec().sampleRate, harness,
                [&](const kelvo::EngineHost& host) {
                    if (host.lastBeat().beat) {
                        result.beats.push_back(host.classicalClock());
                    }
                    if (host.classicalClock() >= settleSeconds) {
                        settled.push_back(host.lastBeat().bpm);
                    }
                });
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

/// The first number on each line the command prints; `ok` is false unless it exits with 0.
std::vector<double> commandNumbers(const std::string& command, bool& ok) {
    std::vector<double> numbers;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) {
        ok = false;
        return numbers;
    }
    char buffer[256];
    while (std::fgets(buffer, sizeof buffer, pipe.get()) != nullptr) {
        double value = 0;
        if (std::sscanf(buffer, "%lf", &value) == 1) {
            numbers.push_back(value);
        }
    }
    ok = pclose(pipe.release()) == 0;
    return numbers;
}

Score score(std::string_view method, const std::vector<double>& beats,
            const std::vector<double>& reference) {
    const auto settled = after(beats, settleSeconds);
    // The mean interval, as `aubio tempo` takes it: aubio's beats step by its coarse period
    // estimate (here up to 2 % off) and jump now and then to keep the phase, so a median would
    // report that estimate rather than the rate of the beats.
    const double interval = settled.size() < 2 ? 0.0
                                               : (settled.back() - settled.front()) /
                                                     static_cast<double>(settled.size() - 1);
    return {method, kelvo::test::beatFMeasure(settled, reference, 0.070),
            kelvo::test::beatFMeasure(settled, reference, 0.035),
            interval > 0 ? 60.0 / interval : 0.0};
}

} // namespace

int main(int argc, char** argv) {
    std::string work = (std::filesystem::temp_directory_path() / "kelvo-beat-compare").string();
    std::string aubio = "aubio";
    // python3-aubio is Debian's, for Debian's interpreter.
    std::string python = "/usr/bin/python3";
    bool check = false;
    std::string trace;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "--check") {
            check = true;
        } else if (arg == "--trace" && i + 1 < argc) {
            trace = argv[++i];
        } else if (arg == "--work" && i + 1 < argc) {
            work = argv[++i];
        } else if (arg == "--aubio" && i + 1 < argc) {
            aubio = argv[++i];
        } else if (arg == "--python" && i + 1 < argc) {
            python = argv[++i];
        } else {
            std::fputs("usage: kelvo-beat-compare [--work DIR] [--aubio PATH] [--python PATH] "
                       "[--check]\n       kelvo-beat-compare --trace FILE.wav\n",
                       stderr);
            return 2;
        }
    }
    const std::string source = KELVO_SOURCE_DIR;
    const std::string harness = readFile(source + "/devcloud/harness/engine.js");
    if (harness.empty()) {
        std::fputs("kelvo-beat-compare: cannot read devcloud/harness/engine.js\n", stderr);
        return 1;
    }
    if (!trace.empty()) {
        return traceRecording(trace, harness);
    }
    std::filesystem::create_directories(work);
    const std::string aubioBeats =
        shellQuote(python) + " " + shellQuote(source + "/tools/beatcompare/aubio-beats.py");

    std::printf(
        "| file | true BPM | ours BPM (error) | aubio tempo BPM (error) | aubio best method "
        "| its BPM (error) | F ±70 ms: ours / aubio default / aubio best "
        "| F ±35 ms: ours / aubio default / aubio best |\n");
    std::printf("|---|---|---|---|---|---|---|---|\n");
    std::string methodTable = "| file |";
    for (std::string_view method : aubioMethods) {
        methodTable += " " + std::string(method) + " |";
    }
    methodTable += "\n|---|";
    for (std::size_t i = 0; i < std::size(aubioMethods); ++i) {
        methodTable += "---|";
    }
    methodTable += "\n";
    int failures = 0;
    for (const Case& c : cases()) {
        const SyntheticDanceTrack track(c.spec);
        const std::string wav = work + "/" + c.name + ".wav";
        if (const auto error = kelvo::test::writeMonoWav(wav, track.samples(),
                                                         static_cast<int>(c.spec.sampleRate));
            !error.empty()) {
            std::fprintf(stderr, "kelvo-beat-compare: %s\n", error.c_str());
            return 1;
        }
        kelvo::test::writeTextFile(work + "/" + c.name + ".truth.json", track.truthJSON());
        // Judged on the beat grid, through a break and in swing (no kick) too.
        const auto reference = after(track.truth().beats, settleSeconds);

        const Result harnessResult = runHarness(track, harness);
        const Score ours = score("ours", harnessResult.beats, reference);
        bool ok = true;
        const auto tempo = commandNumbers(shellQuote(aubio) + " tempo -i " + shellQuote(wav), ok);
        const double aubioBpm = tempo.empty() ? 0.0 : tempo.back();
        std::vector<Score> theirs;
        methodTable += "| " + c.name + " |";
        for (std::string_view method : aubioMethods) {
            bool ran = true;
            const std::string command =
                method == "default"
                    ? "aubiotrack -i " + shellQuote(wav)
                    : aubioBeats + " " + std::string(method) + " " + shellQuote(wav);
            theirs.push_back(score(method, commandNumbers(command, ran), reference));
            ok = ok && ran;
            char cell[48];
            std::snprintf(cell, sizeof cell, " %.3f / %.3f |", theirs.back().f70,
                          theirs.back().f35);
            methodTable += cell;
        }
        methodTable += "\n";
        if (!ok) {
            std::fprintf(stderr, "kelvo-beat-compare: aubio failed on %s\n", wav.c_str());
            ++failures;
        }
        const Score& best =
            *std::max_element(theirs.begin(), theirs.end(), [](const Score& a, const Score& b) {
                return std::pair(a.f70, a.f35) < std::pair(b.f70, b.f35);
            });
        const double bestF35 =
            std::max_element(theirs.begin(), theirs.end(), [](const Score& a, const Score& b) {
                return a.f35 < b.f35;
            })->f35;
        const double ourError = std::abs(harnessResult.bpm - c.spec.bpm);
        const double tempoError = std::abs(aubioBpm - c.spec.bpm);
        const double bestError = std::abs(best.bpm - c.spec.bpm);
        std::printf("| %s | %.0f | %.2f (%.2f) | %.2f (%.2f) | %s | %.2f (%.2f) "
                    "| %.3f / %.3f / %.3f | %.3f / %.3f / %.3f |\n",
                    c.name.c_str(), c.spec.bpm, harnessResult.bpm, ourError, aubioBpm, tempoError,
                    std::string(best.method).c_str(), best.bpm, bestError, ours.f70,
                    theirs.front().f70, best.f70, ours.f35, theirs.front().f35, best.f35);
        if (check && (ourError > std::min(tempoError, bestError) || ours.f70 < best.f70 ||
                      ours.f35 < bestF35)) {
            std::fprintf(stderr, "kelvo-beat-compare: less accurate than aubio on %s\n",
                         c.name.c_str());
            ++failures;
        }
        std::fflush(stdout);
    }
    std::printf("\naubio F ±70 ms / ±35 ms by onset method (default through aubiotrack):\n\n%s",
                methodTable.c_str());
    if (!check) {
        // The real recordings beside the generated files, scored by mir_eval.
        std::printf("\nReal recordings (tools/beatcompare/real-music.json), scored by mir_eval:\n");
        std::fflush(stdout);
        const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
        const std::string real =
            shellQuote(python) + " " + shellQuote(source + "/tools/beatcompare/real-music.py") +
            " --binary " + shellQuote(self) + " --work " + shellQuote(work + "/real");
        if (const int status = std::system(real.c_str()); status != 0) {
            std::fprintf(stderr, "kelvo-beat-compare: the real-music comparison failed (%d)\n",
                         status);
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}
