#include "Audio/BandEnergyExtractor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace kelvo {
namespace {

TEST(BandEnergyExtractorEdges, MatchTheTableForEveryRateAndKeepEveryBandNonEmpty) {
    struct Edges {
        double rate, lowHz, highHz, ceilingHz;
        std::size_t low, mid, high;
    };
    const Edges table[] = {
        {44100, 250, 4000, 16000, 12, 186, 744}, {48000, 250, 4000, 16000, 11, 171, 683},
        {96000, 250, 4000, 16000, 6, 86, 342},   {22050, 250, 4000, 16000, 24, 372, 1024},
        {0, 250, 4000, 16000, 1022, 1023, 1024}, {48000, 1, 2, 3, 1, 2, 3},
    };
    for (const Edges& e : table) {
        BandEnergyExtractor extractor(e.rate, e.lowHz, e.highHz, e.ceilingHz);
        EXPECT_EQ(extractor.lowEnd(), e.low) << e.rate;
        EXPECT_EQ(extractor.midEnd(), e.mid) << e.rate;
        EXPECT_EQ(extractor.highEnd(), e.high) << e.rate;
    }
}

void feed(BandEnergyExtractor& extractor, const std::vector<float>& signal) {
    for (std::size_t hop = 0; hop * 512 < signal.size(); ++hop) {
        extractor.appendHopToRing(std::span<const float, 512>(signal.data() + hop * 512, 512));
        extractor.updateSpectrum();
    }
}

// Naive DFT of the windowed frame in double: an oracle independent of the FFT library.
std::vector<double> naiveMagnitudes(const std::vector<float>& frame) {
    std::vector<double> magnitudes(1024);
    for (std::size_t k = 0; k < 1024; ++k) {
        std::complex<double> sum = 0;
        for (std::size_t n = 0; n < 2048; ++n) {
            const double w = 0.42 - 0.5 * std::cos(2 * std::numbers::pi * n / 2048) +
                             0.08 * std::cos(4 * std::numbers::pi * n / 2048);
            sum += frame[n] * w * std::polar(1.0, -2 * std::numbers::pi * double(k * n) / 2048);
        }
        magnitudes[k] = (k == 0 ? std::abs(sum.real()) : std::abs(sum)) / 2048.0;
    }
    return magnitudes;
}

double naiveMeanDecibels(const std::vector<double>& smoothed, std::size_t from, std::size_t to) {
    double sum = 0;
    for (std::size_t k = from; k < to; ++k)
        sum += std::max(smoothed[k] > 0 ? 20 * std::log10(smoothed[k]) : -120.0, -120.0);
    return sum / double(to - from);
}

TEST(BandEnergyExtractorLevels, MatchANaiveDftOfEveryHopsFrame) {
    // 1 kHz in the mid band over a DC offset, which bin 0 alone must carry.
    std::vector<float> signal(4 * 512);
    for (std::size_t i = 0; i < signal.size(); ++i)
        signal[i] =
            static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 1000 * i / 48000) + 0.1);
    BandEnergyExtractor extractor(48000);
    feed(extractor, signal);

    // The smoothed spectrum still weighs the earlier, partly empty frames: the same recursion
    // over naive DFTs of every frame.
    std::vector<double> smoothed(1024, 0.0);
    for (std::size_t hop = 0; hop < 4; ++hop) {
        std::vector<float> frame(2048, 0.0f);
        const std::size_t filled = (hop + 1) * 512;
        std::copy(signal.begin(), signal.begin() + filled, frame.end() - filled);
        const std::vector<double> m = naiveMagnitudes(frame);
        for (std::size_t k = 0; k < 1024; ++k)
            smoothed[k] = 0.5 * smoothed[k] + 0.5 * m[k];
    }
    const BandDecibelLevels levels = extractor.levels();
    EXPECT_NEAR(levels.low, naiveMeanDecibels(smoothed, 0, 11), 0.05);
    EXPECT_NEAR(levels.mid, naiveMeanDecibels(smoothed, 11, 171), 0.05);
    EXPECT_NEAR(levels.high, naiveMeanDecibels(smoothed, 171, 683), 0.05);
    EXPECT_NEAR(levels.all, naiveMeanDecibels(smoothed, 0, 683), 0.05);
    EXPECT_DOUBLE_EQ(levels.lowDominance, BandDecibelLevels::lowDominanceFromBandDecibels(
                                              levels.low, levels.mid, levels.high));

    BandEnergyExtractor silent(48000);
    feed(silent, std::vector<float>(4 * 512, 0.0f));
    EXPECT_EQ(silent.levels(), BandDecibelLevels::silent());
}

TEST(BandEnergyExtractorOnset, CountsOnlyRisesWithTheThreeBandsWeighingEqually) {
    BandEnergyExtractor extractor(48000);
    unsigned seed = 1;
    for (float& s : extractor.ring()) // noise
        s = float(((seed = seed * 1103515245u + 12345u) >> 8) & 0xffff) / 65536.0f - 0.5f;
    extractor.updateSpectrum();
    // The first frame rises against nothing: every band's mean log rise, weighed equally.
    double low = 0, mid = 0, high = 0;
    const auto m = extractor.magnitudes();
    for (std::size_t k = 0; k < extractor.highEnd(); ++k)
        (k < 11 ? low : k < 171 ? mid : high) += std::log1p(1000.0 * m[k]);
    const double expected = (low / 11 + mid / (171 - 11) + high / (683 - 171)) / 3;
    EXPECT_NEAR(extractor.onset(), expected, 1e-3 * expected);

    for (float& s : extractor.ring())
        s *= 0.25f; // every bin falls: nothing counts
    extractor.updateSpectrum();
    EXPECT_EQ(extractor.onset(), 0.0);
}

} // namespace
} // namespace kelvo
