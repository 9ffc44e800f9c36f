#pragma once

#include "Audio/AudioBufferListView.h"
#include "Audio/BandEnergyExtractor.h"
#include "Audio/MicHop.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace kelvo {

/// Mixes each render buffer down to mono and cuts the mono stream into 512-frame hops,
/// carrying leftovers to the next buffer so hop boundaries do not depend on the device's
/// buffer size. One per capture run; used only on that run's audio thread. Per buffer it
/// allocates only the returned hop list and each hop's samples.
class HopChunker {
public:
    static constexpr std::size_t hopFrames = BandEnergyExtractor::hopSize;

    /// `channelCount`: how many leading channels to mix; absent (or below 1) mixes all.
    HopChunker(std::unique_ptr<BandEnergyExtractor> extractor, double sampleRate,
               std::optional<int> channelCount = std::nullopt);

    /// The hops this buffer completed, in order.
    std::vector<MicHop> pushMono(AudioBufferListView list, std::uint32_t frameCount);

    double sampleRate() const { return sampleRate_; }
    double hopSeconds() const { return hopSeconds_; }
    std::optional<int> channelCount() const { return channelCount_; }
    std::size_t carried() const { return carried_; }
    BandEnergyExtractor& extractor() { return *extractor_; }

private:
    MicHop completeHop();

    std::unique_ptr<BandEnergyExtractor> extractor_;
    double sampleRate_;
    double hopSeconds_;
    std::optional<int> channelCount_;
    std::array<float, hopFrames> carry_{};
    std::size_t carried_ = 0;
};

} // namespace kelvo
