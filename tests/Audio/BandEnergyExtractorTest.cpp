#include "Audio/BandEnergyExtractor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace kelvo {
namespace {

struct Edges {
    double rate;
    std::size_t low, mid, high;
};

TEST(BandEnergyExtractorEdges, MatchTheTableForEveryRate) {
    const Edges table[] = {
        {44100, 12, 186, 744},  {48000, 11, 171, 683}, {88200, 6, 93, 372},    {96000, 6, 86, 342},
        {22050, 24, 372, 1024}, {0, 1022, 1023, 1024}, {-5, 1022, 1023, 1024},
    };
    for (const Edges& e : table) {
        BandEnergyExtractor extractor(e.rate);
        EXPECT_EQ(extractor.lowEnd(), e.low) << e.rate;
        EXPECT_EQ(extractor.midEnd(), e.mid) << e.rate;
        EXPECT_EQ(extractor.highEnd(), e.high) << e.rate;
    }
}

TEST(BandEnergyExtractorEdges, CustomCutoffsKeepEveryBandNonEmpty) {
    BandEnergyExtractor tiny(48000, 1, 2, 3);
    EXPECT_EQ(tiny.lowEnd(), 1u);
    EXPECT_EQ(tiny.midEnd(), 2u);
    EXPECT_EQ(tiny.highEnd(), 3u);
}

TEST(BandEnergyExtractorDeath, NonFiniteCutoffIsFatal) {
    EXPECT_DEATH(BandEnergyExtractor(48000, 250, 4000, INFINITY), "finite");
}

TEST(BandEnergyExtractorWindow, IsThePeriodicBlackman) {
    BandEnergyExtractor extractor(48000);
    const auto w = extractor.window();
    EXPECT_NEAR(w[0], 0.0f, 1e-7);
    EXPECT_NEAR(w[1024], 1.0f, 1e-7);
    // Periodic form: symmetric about N/2, so w[N-n] == w[n] and w[2047] != w[0].
    for (std::size_t n = 1; n < 1024; ++n)
        ASSERT_FLOAT_EQ(w[n], w[2048 - n]) << n;
    EXPECT_GT(w[2047], 0.0f);
    const double expected = 0.42 - 0.5 * std::cos(2 * std::numbers::pi * 300 / 2048) +
                            0.08 * std::cos(4 * std::numbers::pi * 300 / 2048);
    EXPECT_FLOAT_EQ(w[300], static_cast<float>(expected));
}

void feedHop(BandEnergyExtractor& extractor, const std::vector<float>& signal, std::size_t hop) {
    std::span<const float, 512> view(signal.data() + hop * 512, 512);
    extractor.appendHopToRing(view);
    extractor.updateSpectrum();
}

std::vector<float> sine(double hz, double rate, double amplitude, std::size_t n) {
    std::vector<float> out(n);
    for (std::size_t i = 0; i < n; ++i)
        out[i] = static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * hz * i / rate));
    return out;
}

TEST(BandEnergyExtractorLevels, DigitalSilenceIsTheSilentValue) {
    BandEnergyExtractor extractor(48000);
    const std::vector<float> zeros(4 * 512, 0.0f);
    for (std::size_t hop = 0; hop < 4; ++hop)
        feedHop(extractor, zeros, hop);
    EXPECT_EQ(extractor.levels(), BandDecibelLevels::silent());
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

TEST(BandEnergyExtractorLevels, ToneLandsInItsBandAtTheLevelOfANaiveDft) {
    const double rate = 48000;
    // 1 kHz sits in the mid band; add a DC offset to check bin 0 carries DC only.
    std::vector<float> signal = sine(1000, rate, 0.5, 4 * 512);
    for (float& s : signal)
        s += 0.1f;
    BandEnergyExtractor extractor(rate);
    for (std::size_t hop = 0; hop < 4; ++hop)
        feedHop(extractor, signal, hop);

    const std::vector<double> expected = naiveMagnitudes(signal);
    const auto actual = extractor.magnitudes();
    for (std::size_t k = 0; k < 1024; ++k)
        ASSERT_NEAR(actual[k], expected[k], 2e-5 + 1e-3 * expected[k]) << "bin " << k;

    const std::size_t peak = std::max_element(actual.begin(), actual.end()) - actual.begin();
    EXPECT_EQ(peak, std::size_t(std::lround(1000 / (rate / 2048))));
    // The Blackman main lobe of a sine of amplitude A peaks near 0.42 * A / 2.
    EXPECT_NEAR(actual[peak], 0.42 * 0.5 / 2, 0.02);

    // Smoothed spectrum after four hops: the earlier, partly empty frames still weigh in, so
    // compare the levels against the same recursion run over naive DFTs of every frame.
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
    EXPECT_GT(levels.mid, levels.high);
    EXPECT_EQ(levels.onset, extractor.onset());
}

TEST(BandEnergyExtractorLevels, LowToneDominates) {
    const std::vector<float> signal = sine(80, 44100, 0.8, 8 * 512);
    BandEnergyExtractor extractor(44100);
    for (std::size_t hop = 0; hop < 8; ++hop)
        feedHop(extractor, signal, hop);
    const BandDecibelLevels levels = extractor.levels();
    EXPECT_GT(levels.low, levels.mid);
    EXPECT_GT(levels.lowDominance, 0.5);
    EXPECT_DOUBLE_EQ(levels.lowDominance, BandDecibelLevels::lowDominanceFromBandDecibels(
                                              levels.low, levels.mid, levels.high));
}

TEST(BandEnergyExtractorLevels, EmptyRangeIsNaN) {
    BandEnergyExtractor extractor(48000);
    EXPECT_TRUE(std::isnan(extractor.meanDecibels(5, 5)));
}

TEST(BandEnergyExtractorOnset, FirstHopRisesAgainstZerosThenOnlyRisesCount) {
    BandEnergyExtractor extractor(48000);
    EXPECT_EQ(extractor.onset(), 0.0);
    // A constant ring analysed twice: the second pass has no rise at all.
    std::vector<float> noise(2048);
    unsigned seed = 1;
    for (float& s : noise) {
        seed = seed * 1103515245u + 12345u;
        s = float((seed >> 8) & 0xffff) / 65536.0f - 0.5f;
    }
    std::copy(noise.begin(), noise.end(), extractor.ring().begin());
    extractor.updateSpectrum();
    EXPECT_GT(extractor.onset(), 0.0);
    extractor.updateSpectrum();
    EXPECT_EQ(extractor.onset(), 0.0);

    // Quieter everywhere: every bin falls, so nothing counts.
    for (float& s : extractor.ring())
        s *= 0.25f;
    extractor.updateSpectrum();
    EXPECT_EQ(extractor.onset(), 0.0);

    // Louder again: a positive onset.
    for (float& s : extractor.ring())
        s *= 8.0f;
    extractor.updateSpectrum();
    EXPECT_GT(extractor.onset(), 0.0);
}

TEST(BandEnergyExtractorOnset, BandMeansWeighEqually) {
    // A rise confined to the low band: onset = lowFlux / lowEnd / 3.
    BandEnergyExtractor extractor(48000);
    const std::vector<float> signal = sine(100, 48000, 0.5, 2048);
    std::copy(signal.begin(), signal.end(), extractor.ring().begin());
    extractor.updateSpectrum();
    double lowFlux = 0, midFlux = 0, highFlux = 0;
    const auto m = extractor.magnitudes();
    for (std::size_t k = 0; k < extractor.highEnd(); ++k) {
        const double c = std::log1p(1000.0 * m[k]);
        (k < 11 ? lowFlux : k < 171 ? midFlux : highFlux) += c;
    }
    const double expected = (highFlux / (683 - 171) + lowFlux / 11 + midFlux / (171 - 11)) / 3;
    EXPECT_NEAR(extractor.onset(), expected, 1e-3 * expected);
}

TEST(BandEnergyExtractorRing, AppendShiftsByOneHop) {
    BandEnergyExtractor extractor(48000);
    std::vector<float> hop(512);
    for (int round = 1; round <= 5; ++round) {
        std::fill(hop.begin(), hop.end(), float(round));
        extractor.appendHopToRing(std::span<const float, 512>(hop.data(), 512));
    }
    const auto ring = extractor.ring();
    EXPECT_EQ(ring[0], 2.0f);
    EXPECT_EQ(ring[511], 2.0f);
    EXPECT_EQ(ring[512], 3.0f);
    EXPECT_EQ(ring[2047], 5.0f);
}

} // namespace
} // namespace kelvo
