#pragma once

#include "Audio/BandDecibelLevels.h"

#include <cstddef>
#include <memory>
#include <span>

namespace kelvo {

/// Band levels and spectral-flux onset of a sliding 2048-sample frame (Blackman window, real
/// FFT). One per capture run, used only on that run's audio thread. Every buffer is allocated
/// in the constructor; nothing is allocated per hop.
class BandEnergyExtractor {
public:
    static constexpr std::size_t frameSize = 2048;
    static constexpr std::size_t binCount = frameSize / 2;
    static constexpr std::size_t hopSize = 512;
    static constexpr unsigned log2n = 11;

    static constexpr double defaultLowCutoffHz = 250.0;
    static constexpr double defaultHighCutoffHz = 4000.0;
    static constexpr double defaultHighCeilingHz = 16000.0;

    BandEnergyExtractor(double sampleRate, double lowCutoffHz = defaultLowCutoffHz,
                        double highCutoffHz = defaultHighCutoffHz,
                        double highCeilingHz = defaultHighCeilingHz);
    ~BandEnergyExtractor();
    BandEnergyExtractor(const BandEnergyExtractor&) = delete;
    BandEnergyExtractor& operator=(const BandEnergyExtractor&) = delete;

    /// The analysis frame, newest samples at the end.
    std::span<float, frameSize> ring();
    /// Shifts the ring left by one hop and appends `hop` at its end.
    void appendHopToRing(std::span<const float, hopSize> hop);

    /// Analyses the current ring: magnitudes, onset, then the smoothed spectrum.
    void updateSpectrum();

    /// Mean of the smoothed bins [from, to) in dB, each bin floored at -120 dB.
    double meanDecibels(std::size_t from, std::size_t to) const;

    /// The four band means, the low dominance and the onset of the newest frame.
    BandDecibelLevels levels() const;

    std::size_t lowEnd() const { return lowEnd_; }
    std::size_t midEnd() const { return midEnd_; }
    std::size_t highEnd() const { return highEnd_; }
    double onset() const { return onset_; }

    std::span<const float, frameSize> window() const;
    std::span<const float, binCount> magnitudes() const;
    std::span<const float, binCount> smoothed() const;

private:
    void updateOnset();

    struct Buffers;
    std::unique_ptr<Buffers> buffers_;
    std::size_t lowEnd_ = 0;
    std::size_t midEnd_ = 0;
    std::size_t highEnd_ = 0;
    double onset_ = 0.0;
};

} // namespace kelvo
