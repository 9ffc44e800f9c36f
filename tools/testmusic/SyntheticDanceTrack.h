#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelvo::test {

/// A span of the track in which kick and bass are out (a break); the bass returns at its end.
/// Both ends are moved to the nearest beat of the grid.
struct DanceBreak {
    double start = 0.0;
    double length = 0.0;
    friend bool operator==(const DanceBreak&, const DanceBreak&) = default;
};

/// A step change of the whole mix level from `at` seconds on.
struct DanceLevelChange {
    double at = 0.0;
    double gainDecibels = 0.0;
    friend bool operator==(const DanceLevelChange&, const DanceLevelChange&) = default;
};

struct DanceTrackSpec {
    double bpm = 120.0;
    double seconds = 30.0;
    double sampleRate = 48000.0;
    double firstBeat = 0.25;     ///< time of the first kick
    double gainDecibels = -6.0;  ///< overall level
    double noiseDecibels = -200; ///< white noise floor relative to full scale; -200 = none
    bool hats = true;            ///< off-beat hats; without them only kick, bass and pad play
    /// Swing without a kick: the bass plucks each beat and the swung eighth two thirds into it,
    /// and the hats play the swung eighth.
    bool swing = false;
    std::vector<DanceBreak> breaks = {};
    std::vector<DanceLevelChange> levelChanges = {};
    std::uint32_t seed = 1;
};

/// Ground truth of a generated track.
struct DanceTrackTruth {
    std::vector<double> beats; ///< every beat of the grid, in seconds
    std::vector<double> kicks; ///< beats that carry a kick (outside breaks)
    std::vector<double> drops; ///< moments the bass returns after a break
};

/// Deterministic synthetic dance music: a kick on every beat, off-beat hats, a bass line that
/// changes note every bar, and a quiet pad; breaks take kick and bass out. Mono float samples.
class SyntheticDanceTrack {
public:
    explicit SyntheticDanceTrack(DanceTrackSpec spec);

    const DanceTrackSpec& spec() const { return spec_; }
    const std::vector<float>& samples() const { return samples_; }
    const DanceTrackTruth& truth() const { return truth_; }

    /// The truth as a small JSON text (for the side file next to a written WAV).
    std::string truthJSON() const;

private:
    bool inBreak(double t) const;
    void render();

    DanceTrackSpec spec_;
    std::vector<float> samples_;
    DanceTrackTruth truth_;
};

/// F-measure of detected beat times against reference times with a symmetric tolerance; each
/// reference matches at most one detection.
double beatFMeasure(const std::vector<double>& detected, const std::vector<double>& reference,
                    double tolerance);

} // namespace kelvo::test
