#include "Audio/BandEnergyExtractor.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <numbers>

namespace kelvo {

namespace {

// FFTW's planner is not thread safe; captures may start on any thread.
std::mutex& fftwPlannerMutex() {
    static std::mutex mutex;
    return mutex;
}

struct FftwFree {
    void operator()(void* p) const { fftwf_free(p); }
};
template <typename T> using FftwArray = std::unique_ptr<T[], FftwFree>;

FftwArray<float> allocateReal(std::size_t n) {
    FftwArray<float> array(fftwf_alloc_real(n));
    if (!array) {
        std::fputs("BandEnergyExtractor: out of memory\n", stderr);
        std::abort();
    }
    std::fill_n(array.get(), n, 0.0f);
    return array;
}

[[noreturn]] void fatal(const char* message) {
    std::fprintf(stderr, "BandEnergyExtractor: %s\n", message);
    std::abort();
}

std::int64_t ceilingBin(double hz, double binWidth) {
    const double value = std::ceil(hz / binWidth);
    // 2^63 is the first double past int64's range.
    if (!std::isfinite(value) || value < -9223372036854775808.0 || value >= 9223372036854775808.0)
        fatal("band cut-off is not a finite bin index");
    return static_cast<std::int64_t>(value);
}

} // namespace

struct BandEnergyExtractor::Buffers {
    FftwArray<float> window = allocateReal(frameSize);
    FftwArray<float> ring = allocateReal(frameSize);
    FftwArray<float> windowed = allocateReal(frameSize);
    FftwArray<fftwf_complex> spectrum{fftwf_alloc_complex(binCount + 1)};
    FftwArray<float> magnitudes = allocateReal(binCount);
    FftwArray<float> smoothed = allocateReal(binCount);
    FftwArray<float> previousCompressed = allocateReal(binCount);
    fftwf_plan plan = nullptr;

    ~Buffers() {
        if (plan) {
            std::lock_guard lock(fftwPlannerMutex());
            fftwf_destroy_plan(plan);
        }
    }
};

BandEnergyExtractor::BandEnergyExtractor(double sampleRate, double lowCutoffHz, double highCutoffHz,
                                         double highCeilingHz)
    : buffers_(std::make_unique<Buffers>()) {
    Buffers& b = *buffers_;
    if (!b.spectrum)
        fatal("out of memory");
    {
        // An estimated plan is the same on every run (a measured one is picked by timing and
        // can round differently from run to run) and costs no measuring; the hop is as fast.
        std::lock_guard lock(fftwPlannerMutex());
        b.plan = fftwf_plan_dft_r2c_1d(static_cast<int>(frameSize), b.windowed.get(),
                                       b.spectrum.get(), FFTW_ESTIMATE);
    }
    if (!b.plan)
        fatal("cannot create the FFT plan");
    std::fill_n(b.windowed.get(), frameSize, 0.0f);

    // Periodic Blackman: denominator N, so w[0] = 0 and the window is not symmetric.
    for (std::size_t n = 0; n < frameSize; ++n) {
        const double phase = 2.0 * std::numbers::pi * static_cast<double>(n) / frameSize;
        b.window[n] = static_cast<float>(0.42 - 0.5 * std::cos(phase) + 0.08 * std::cos(2 * phase));
    }

    // A rate of 0, below 0 or NaN falls back to 1 Hz; every edge then hits its clamp.
    const double rate = sampleRate >= 1.0 ? sampleRate : 1.0;
    const double binWidth = rate / static_cast<double>(frameSize);
    const std::int64_t lowCeiling = ceilingBin(lowCutoffHz, binWidth);
    const std::int64_t highCeiling = ceilingBin(highCutoffHz, binWidth);
    const std::int64_t topCeiling = ceilingBin(highCeilingHz, binWidth);

    const std::int64_t low = std::clamp<std::int64_t>(lowCeiling, 1, 1022);
    const std::int64_t mid = highCeiling >= 1023 ? 1023 : std::max(low + 1, highCeiling);
    const std::int64_t high = std::max(mid + 1, std::min<std::int64_t>(topCeiling, binCount));
    lowEnd_ = static_cast<std::size_t>(low);
    midEnd_ = static_cast<std::size_t>(mid);
    highEnd_ = static_cast<std::size_t>(high);
}

BandEnergyExtractor::~BandEnergyExtractor() = default;

std::span<float, BandEnergyExtractor::frameSize> BandEnergyExtractor::ring() {
    return std::span<float, frameSize>(buffers_->ring.get(), frameSize);
}

void BandEnergyExtractor::appendHopToRing(std::span<const float, hopSize> hop) {
    float* ring = buffers_->ring.get();
    std::memmove(ring, ring + hopSize, (frameSize - hopSize) * sizeof(float));
    std::memcpy(ring + (frameSize - hopSize), hop.data(), hopSize * sizeof(float));
}

std::span<const float, BandEnergyExtractor::frameSize> BandEnergyExtractor::window() const {
    return std::span<const float, frameSize>(buffers_->window.get(), frameSize);
}

std::span<const float, BandEnergyExtractor::binCount> BandEnergyExtractor::magnitudes() const {
    return std::span<const float, binCount>(buffers_->magnitudes.get(), binCount);
}

std::span<const float, BandEnergyExtractor::binCount> BandEnergyExtractor::smoothed() const {
    return std::span<const float, binCount>(buffers_->smoothed.get(), binCount);
}

void BandEnergyExtractor::updateSpectrum() {
    Buffers& b = *buffers_;
    for (std::size_t n = 0; n < frameSize; ++n)
        b.windowed[n] = b.ring[n] * b.window[n];
    fftwf_execute(b.plan);

    // |X[k]| / N. The Nyquist term (k = N/2) is dropped, so bin 0 carries the DC term only.
    constexpr float scale = 1.0f / static_cast<float>(frameSize);
    for (std::size_t k = 0; k < binCount; ++k) {
        const float re = b.spectrum[k][0];
        const float im = k == 0 ? 0.0f : b.spectrum[k][1];
        b.magnitudes[k] = std::sqrt(re * re + im * im) * scale;
    }

    updateOnset();

    for (std::size_t k = 0; k < binCount; ++k)
        b.smoothed[k] = 0.5f * b.smoothed[k] + 0.5f * b.magnitudes[k];
}

void BandEnergyExtractor::updateOnset() {
    Buffers& b = *buffers_;
    float lowFlux = 0, midFlux = 0, highFlux = 0;
    for (std::size_t k = 0; k < highEnd_; ++k) {
        const float compressed = std::log1p(1000.0f * b.magnitudes[k]);
        const float rise = compressed - b.previousCompressed[k];
        if (rise > 0) {
            if (k < lowEnd_)
                lowFlux += rise;
            else if (k < midEnd_)
                midFlux += rise;
            else
                highFlux += rise;
        }
        b.previousCompressed[k] = compressed;
    }
    for (std::size_t k = highEnd_; k < binCount; ++k)
        b.previousCompressed[k] = std::log1p(1000.0f * b.magnitudes[k]);

    const double lowMean = static_cast<double>(lowFlux) / static_cast<double>(lowEnd_);
    const double midMean = static_cast<double>(midFlux) / static_cast<double>(midEnd_ - lowEnd_);
    const double highMean = static_cast<double>(highFlux) / static_cast<double>(highEnd_ - midEnd_);
    onset_ = (highMean + (lowMean + midMean)) / 3.0;
}

double BandEnergyExtractor::meanDecibels(std::size_t from, std::size_t to) const {
    const float* smoothed = buffers_->smoothed.get();
    double sum = 0.0;
    for (std::size_t k = from; k < to; ++k) {
        const double value = smoothed[k];
        const double level =
            value > 0 ? 20.0 * std::log10(value) : BandDecibelLevels::silenceDecibels;
        sum += std::max(level, BandDecibelLevels::silenceDecibels);
    }
    return sum / static_cast<double>(to > from ? to - from : 0);
}

BandDecibelLevels BandEnergyExtractor::levels() const {
    // One pass over [0, highEnd): each bin's level is taken once and counted in its band and in
    // the running total, in the same order as separate means would add them.
    const float* smoothed = buffers_->smoothed.get();
    double bandSums[3] = {0, 0, 0};
    double allSum = 0;
    const std::size_t ends[3] = {lowEnd_, midEnd_, highEnd_};
    std::size_t k = 0;
    for (int band = 0; band < 3; ++band) {
        for (; k < ends[band]; ++k) {
            const double value = smoothed[k];
            const double level =
                value > 0 ? std::max(20.0 * std::log10(value), BandDecibelLevels::silenceDecibels)
                          : BandDecibelLevels::silenceDecibels;
            bandSums[band] += level;
            allSum += level;
        }
    }
    BandDecibelLevels levels;
    levels.low = bandSums[0] / static_cast<double>(lowEnd_);
    levels.mid = bandSums[1] / static_cast<double>(midEnd_ - lowEnd_);
    levels.high = bandSums[2] / static_cast<double>(highEnd_ - midEnd_);
    levels.all = allSum / static_cast<double>(highEnd_);
    levels.lowDominance =
        BandDecibelLevels::lowDominanceFromBandDecibels(levels.low, levels.mid, levels.high);
    levels.onset = onset_;
    return levels;
}

} // namespace kelvo
