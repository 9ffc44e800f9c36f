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
    const std::uint32_t total = totalChannels(list);
    const std::uint32_t mixed =
        channelCount_ ? std::min(static_cast<std::uint32_t>(*channelCount_), total) : total;
    if (mixed < 1 || frameCount == 0)
        return hops;

    for (std::uint32_t f = 0; f < frameCount; ++f) {
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
        carry_[carried_++] = sum / static_cast<float>(mixed);
        if (carried_ == hopFrames)
            hops.push_back(completeHop());
    }
    return hops;
}

MicHop HopChunker::completeHop() {
    extractor_->appendHopToRing(carry_);
    extractor_->updateSpectrum();
    carried_ = 0;
    return MicHop{extractor_->levels(), hopSeconds_,
                  std::vector<float>(carry_.begin(), carry_.end()), sampleRate_};
}

} // namespace kelvo
