#pragma once

#include "Audio/AudioBufferListView.h"
#include "Audio/BandEnergyExtractor.h"
#include "Audio/MicHop.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace kelvo {

/// Mixes each render buffer down to mono and cuts the mono stream into 512-frame hops,
/// carrying leftovers to the next buffer so hop boundaries do not depend on the device's
/// buffer size. One per capture run; used only on that run's audio thread, where it allocates
/// nothing.
class HopChunker {
public:
    static constexpr std::size_t hopFrames = BandEnergyExtractor::hopSize;

    /// `channelCount`: how many leading channels to mix; absent (or below 1) mixes all.
    HopChunker(std::unique_ptr<BandEnergyExtractor> extractor, double sampleRate,
               std::optional<int> channelCount = std::nullopt);

    /// Calls `onHop(levels, samples)` for each hop this buffer completes, in order; `samples`
    /// (512 mono samples) are valid during the call only. Allocates nothing.
    template <typename OnHop>
    void pushMono(AudioBufferListView list, std::uint32_t frameCount, OnHop&& onHop) {
        const std::uint32_t mixed = mixedChannels(list);
        if (mixed < 1 || frameCount == 0)
            return;
        for (std::uint32_t f = 0; f < frameCount; ++f) {
            carry_[carried_++] = mixFrame(list, f, mixed);
            if (carried_ == hopFrames) {
                analyseCarry();
                onHop(extractor_->levels(), std::span<const float>(carry_));
            }
        }
    }
    /// The hops this buffer completed, in order.
    std::vector<MicHop> pushMono(AudioBufferListView list, std::uint32_t frameCount);

    double sampleRate() const { return sampleRate_; }
    double hopSeconds() const { return hopSeconds_; }
    std::optional<int> channelCount() const { return channelCount_; }
    std::size_t carried() const { return carried_; }
    BandEnergyExtractor& extractor() { return *extractor_; }

private:
    std::uint32_t mixedChannels(AudioBufferListView list) const {
        const std::uint32_t total = totalChannels(list);
        return channelCount_ ? std::min(static_cast<std::uint32_t>(*channelCount_), total) : total;
    }
    /// The mean of frame `f` over the first `mixed` channels, counted across buffers; a buffer
    /// without data is skipped and does not count.
    static float mixFrame(AudioBufferListView list, std::uint32_t f, std::uint32_t mixed) {
        float sum = 0.0f;
        std::uint32_t base = 0;
        for (const AudioBuffer& buffer : list) {
            if (!buffer.data)
                continue;
            const std::uint32_t n = buffer.numberChannels;
            const float* frame = buffer.data + static_cast<std::size_t>(f) * n;
            for (std::uint32_t k = 0; k < n && k < mixed - base; ++k)
                sum += frame[k];
            base += n;
            if (base >= mixed)
                break;
        }
        return sum / static_cast<float>(mixed);
    }
    /// Feeds the full carry to the extractor and starts the next hop.
    void analyseCarry();

    std::unique_ptr<BandEnergyExtractor> extractor_;
    double sampleRate_;
    double hopSeconds_;
    std::optional<int> channelCount_;
    std::array<float, hopFrames> carry_{};
    std::size_t carried_ = 0;
};

} // namespace kelvo
