#pragma once

namespace kelvo {

/// Per-hop audio features: mean band levels in dB (floor -120), the low band's share of the
/// three bands' linear amplitude, and the spectral-flux onset.
struct BandDecibelLevels {
    static constexpr double silenceDecibels = -120.0;

    double low = silenceDecibels;
    double mid = silenceDecibels;
    double high = silenceDecibels;
    double all = silenceDecibels;
    double lowDominance = 0.0;
    double onset = 0.0;

    static constexpr BandDecibelLevels silent() { return {}; }

    /// Low band weight / sum of the three weights, each weight being the band's linear amplitude
    /// relative to the loudest band. Non-finite levels count as silence.
    static double lowDominanceFromBandDecibels(double low, double mid, double high);

    friend bool operator==(const BandDecibelLevels&, const BandDecibelLevels&) = default;
};

} // namespace kelvo
