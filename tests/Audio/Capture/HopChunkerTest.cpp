#include "Audio/Capture/HopChunker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace kelvo {
namespace {

HopChunker makeChunker(double rate, std::optional<int> channels = std::nullopt) {
    return HopChunker(std::make_unique<BandEnergyExtractor>(rate), rate, channels);
}

// Frame f of channel c: distinct per channel and frame so a wrong stride shows.
float sample(std::size_t f, std::size_t c) {
    return static_cast<float>(0.5 * std::sin(0.01 * double(f) * double(c + 1)) + 0.01 * double(c));
}

std::vector<float> interleaved(std::size_t frames, std::size_t channels, std::size_t start = 0) {
    std::vector<float> out(frames * channels);
    for (std::size_t f = 0; f < frames; ++f)
        for (std::size_t c = 0; c < channels; ++c)
            out[f * channels + c] = sample(start + f, c);
    return out;
}

std::vector<float> planar(std::size_t frames, std::size_t channel, std::size_t start = 0) {
    std::vector<float> out(frames);
    for (std::size_t f = 0; f < frames; ++f)
        out[f] = sample(start + f, channel);
    return out;
}

TEST(HopChunkerMix, InterleavedAndNonInterleavedStereoGiveTheSameMono) {
    auto a = makeChunker(48000);
    auto b = makeChunker(48000);
    const auto both = interleaved(512, 2);
    const auto left = planar(512, 0), right = planar(512, 1);
    const AudioBuffer one[] = {{2, both.data()}};
    const AudioBuffer two[] = {{1, left.data()}, {1, right.data()}};
    const auto hopsA = a.pushMono(one, 512);
    const auto hopsB = b.pushMono(two, 512);
    ASSERT_EQ(hopsA.size(), 1u);
    EXPECT_EQ(hopsA, hopsB);
    EXPECT_FLOAT_EQ(hopsA[0].samples[100], (sample(100, 0) + sample(100, 1)) / 2);
}

TEST(HopChunkerMix, TheRequestedChannelsAreCountedAcrossBuffersUpToWhatThereIs) {
    const auto sixteen = interleaved(512, 16), stereo = interleaved(512, 2);
    const auto third = planar(512, 2), fourth = planar(512, 3);
    struct Case {
        int requested;
        std::vector<AudioBuffer> list;
        std::size_t mixed;
    };
    const Case cases[] = {
        {2, {{16, sixteen.data()}}, 2},
        {4, {{2, stereo.data()}}, 2},
        // [stereo, (no data), mono, mono]: left, right, then the first mono buffer; the null
        // buffer does not use up a channel.
        {3, {{2, stereo.data()}, {1, nullptr}, {1, third.data()}, {1, fourth.data()}}, 3},
    };
    for (const Case& c : cases) {
        auto chunker = makeChunker(48000, c.requested);
        const auto hops = chunker.pushMono(c.list, 512);
        ASSERT_EQ(hops.size(), 1u) << c.requested;
        for (std::size_t f : {0u, 9u, 511u}) {
            float sum = 0;
            for (std::size_t channel = 0; channel < c.mixed; ++channel)
                sum += sample(f, channel);
            EXPECT_FLOAT_EQ(hops[0].samples[f], sum / float(c.mixed)) << c.requested << " " << f;
        }
    }
}

TEST(HopChunkerMix, NoUsableChannelOrNoFramesGivesNoHop) {
    auto chunker = makeChunker(48000);
    const auto mono = planar(2048, 0);
    EXPECT_TRUE(chunker.pushMono({}, 2048).empty());
    const AudioBuffer zeroChannels[] = {{0, mono.data()}};
    EXPECT_TRUE(chunker.pushMono(zeroChannels, 2048).empty());
    const AudioBuffer list[] = {{1, mono.data()}};
    EXPECT_TRUE(chunker.pushMono(list, 0).empty());
    EXPECT_EQ(chunker.carried(), 0u);
}

TEST(HopChunkerCarry, SixBuffersOfOneHundredFramesMakeOneHopAndCarryEightyEight) {
    auto chunker = makeChunker(48000);
    const auto signal = planar(600, 0);
    std::vector<MicHop> hops;
    for (std::size_t i = 0; i < 6; ++i) {
        const AudioBuffer list[] = {{1, signal.data() + i * 100}};
        auto got = chunker.pushMono(list, 100);
        if (i < 5) {
            EXPECT_TRUE(got.empty()) << i;
        }
        hops.insert(hops.end(), got.begin(), got.end());
    }
    ASSERT_EQ(hops.size(), 1u);
    EXPECT_EQ(chunker.carried(), 88u);
    EXPECT_EQ(hops[0].samples, std::vector<float>(signal.begin(), signal.begin() + 512));
}

TEST(HopChunkerCarry, ALongBufferYieldsItsHopsInOrderWithTheSameLevelsAsOneByOne) {
    auto whole = makeChunker(44100);
    auto pieces = makeChunker(44100);
    const auto signal = planar(2048, 0);
    const AudioBuffer list[] = {{1, signal.data()}};
    const auto hops = whole.pushMono(list, 2048);
    ASSERT_EQ(hops.size(), 4u);
    std::vector<MicHop> piecewise;
    for (std::size_t start = 0; start < 2048; start += 333) {
        const std::uint32_t n =
            static_cast<std::uint32_t>(std::min<std::size_t>(333, 2048 - start));
        const AudioBuffer piece[] = {{1, signal.data() + start}};
        for (auto& hop : pieces.pushMono(piece, n))
            piecewise.push_back(std::move(hop));
    }
    EXPECT_EQ(hops, piecewise);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(hops[i].samples.front(), signal[i * 512]);
        EXPECT_DOUBLE_EQ(hops[i].dt, 512.0 / 44100.0);
        EXPECT_EQ(hops[i].sampleRate, 44100.0);
    }
}

TEST(HopChunkerLevels, MatchTheExtractorFedTheSameHops) {
    auto chunker = makeChunker(48000);
    BandEnergyExtractor reference(48000);
    std::vector<float> tone(4 * 512);
    for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] =
            static_cast<float>(0.3 * std::sin(2 * std::numbers::pi * 100.0 * double(i) / 48000));
    const AudioBuffer list[] = {{1, tone.data()}};
    const auto hops = chunker.pushMono(list, static_cast<std::uint32_t>(tone.size()));
    ASSERT_EQ(hops.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        reference.appendHopToRing(std::span<const float, 512>(tone.data() + i * 512, 512));
        reference.updateSpectrum();
        EXPECT_EQ(hops[i].levels, reference.levels()) << i;
    }
    // A 100 Hz tone is a low-band signal.
    EXPECT_GT(hops[3].levels.low, hops[3].levels.high);
    EXPECT_GT(hops[3].levels.lowDominance, 0.5);
}

} // namespace
} // namespace kelvo
