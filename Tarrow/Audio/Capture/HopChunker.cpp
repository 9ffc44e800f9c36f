#include "Audio/Capture/HopChunker.h"

#include <algorithm>

namespace kelvo {

HopChunker::HopChunker(std::unique_ptr<BandEnergyExtractor> extractor, double sampleRate,
                       std::optional<int> channelCount)
    : extractor_(std::move(extractor)), sampleRate_(sampleRate),
      hopSeconds_(static_cast<double>(hopFrames) / sampleRate),
      channelCount_(channelCount && *channelCount > 0 ? channelCount : std::nullopt) {}

std::vector<MicHop> HopChunker::pushMono(AudioBufferListView list, std::uint32_t frameCount) {
    std::vector<MicHop> hops;
    pushMono(list, frameCount,
             [&](const BandDecibelLevels& levels, std::span<const float> samples) {
                 hops.push_back(
                     MicHop{levels, hopSeconds_, {samples.begin(), samples.end()}, sampleRate_});
             });
    return hops;
}

void HopChunker::analyseCarry() {
    extractor_->appendHopToRing(carry_);
    extractor_->updateSpectrum();
    carried_ = 0;
}

} // namespace kelvo
