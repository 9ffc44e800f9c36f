#include "Audio/Capture/HopChunker.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kelvo {
namespace {

HopChunker makeChunker(double rate, std::optional<int> channels = std::nullopt) {
    return HopChunker(std::make_unique<BandEnergyExtractor>(rate), rate, channels);
}

// Frame f of channel c: distinct per channel and frame so a wrong stride shows.
float sample(std::size_t f, std::size_t c) {
    return static_cast<float>(0.5 * std::sin(0.01 * double(f) * double(c + 1)) + 0.01 * double(c));
}

// Channels first, first + 1, … of each frame, interleaved.
std::vector<float> signal(std::size_t frames, std::size_t channels, std::size_t first = 0) {
    std::vector<float> out(frames * channels);
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = sample(i / channels, first + i % channels);
    return out;
}

TEST(HopChunkerMix, MixesTheRequestedChannelsAcrossBuffersUpToWhatThereIs) {
    const auto sixteen = signal(512, 16), stereo = signal(512, 2), left = signal(512, 1),
               right = signal(512, 1, 1), third = signal(512, 1, 2), fourth = signal(512, 1, 3);
    struct Case {
        std::optional<int> requested;
        std::vector<AudioBuffer> list;
        std::size_t mixed;
    };
    const Case cases[] = {
        {std::nullopt, {{2, stereo.data()}}, 2},
        // Non-interleaved stereo mixes like interleaved stereo.
        {std::nullopt, {{1, left.data()}, {1, right.data()}}, 2},
        {2, {{16, sixteen.data()}}, 2},
        {4, {{2, stereo.data()}}, 2},
        // [stereo, (no data), mono, mono]: the buffer without data does not use up a channel.
        {3, {{2, stereo.data()}, {1, nullptr}, {1, third.data()}, {1, fourth.data()}}, 3},
    };
    for (const Case& c : cases) {
        auto chunker = makeChunker(48000, c.requested);
        const auto hops = chunker.pushMono(c.list, 512);
        ASSERT_EQ(hops.size(), 1u) << c.mixed;
        for (std::size_t f : {0u, 9u, 511u}) {
            float sum = 0;
            for (std::size_t channel = 0; channel < c.mixed; ++channel)
                sum += sample(f, channel);
            EXPECT_FLOAT_EQ(hops[0].samples[f], sum / float(c.mixed)) << c.mixed << " " << f;
        }
    }
}

TEST(HopChunkerCarry, HopBoundariesDoNotDependOnTheBufferSize) {
    const auto mono = signal(2048, 1);
    auto whole = makeChunker(44100);
    const AudioBuffer list[] = {{1, mono.data()}};
    const auto hops = whole.pushMono(list, 2048);
    ASSERT_EQ(hops.size(), 4u);
    EXPECT_DOUBLE_EQ(hops[1].dt, 512.0 / 44100.0);

    // Buffers of 100 frames: the sixth completes the first hop, the rest is carried over.
    auto pieces = makeChunker(44100);
    std::vector<MicHop> piecewise;
    for (std::size_t start = 0; start < 2048; start += 100) {
        const auto n = static_cast<std::uint32_t>(std::min<std::size_t>(100, 2048 - start));
        const AudioBuffer piece[] = {{1, mono.data() + start}};
        for (auto& hop : pieces.pushMono(piece, n))
            piecewise.push_back(std::move(hop));
    }
    EXPECT_EQ(piecewise, hops);
}

} // namespace
} // namespace kelvo
