#include "Audio/Capture/RecordedFragment.h"

#include <algorithm>

namespace kelvo {

void deliverRecordedFragment(const void* data, std::size_t bytes, std::uint32_t channels,
                             std::span<const float> silence, const RenderReceiver& receiver) {
    if (channels == 0)
        return;
    const std::size_t frames = bytes / (channels * sizeof(float));
    if (data) {
        const AudioBuffer buffer{channels, static_cast<const float*>(data)};
        receiver(AudioBufferListView(&buffer, 1), static_cast<std::uint32_t>(frames));
        return;
    }
    const std::size_t piece = silence.size() / channels;
    if (piece == 0)
        return;
    const AudioBuffer zeros{channels, silence.data()};
    for (std::size_t left = frames; left > 0;) {
        const std::size_t n = std::min(left, piece);
        receiver(AudioBufferListView(&zeros, 1), static_cast<std::uint32_t>(n));
        left -= n;
    }
}

} // namespace kelvo
