#pragma once

#include <vector>

namespace kelvo {

/// The engine's normalised bands, nominally 0...1.
struct MicBands {
    double low = 0.0;
    double mid = 0.0;
    double high = 0.0;
    double all = 0.0;
    friend bool operator==(const MicBands&, const MicBands&) = default;
};

/// The engine's beat state as the BPM readout shows it.
struct BeatReadout {
    double bpm = 0.0;
    int beatCount = 0;
    bool beat = false;
    double confidence = 0.0;
    double drop = 0.0;
    friend bool operator==(const BeatReadout&, const BeatReadout&) = default;
};

/// Scrolling band history behind the microphone meter: rises instantly, falls smoothly.
struct MicBandTrace {
    static constexpr std::size_t capacity = 160;
    static constexpr double fallFraction = 0.35;

    std::vector<double> low;
    std::vector<double> mid;
    std::vector<double> high;

    static void push(std::vector<double>& trace, double level);

    friend bool operator==(const MicBandTrace&, const MicBandTrace&) = default;
};

} // namespace kelvo
