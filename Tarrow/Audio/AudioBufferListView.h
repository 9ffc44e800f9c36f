#pragma once

#include <cstdint>
#include <span>

namespace kelvo {

/// One buffer of a render buffer list: `numberChannels` channels interleaved with that stride.
/// A null `data` marks a buffer that carries nothing this time.
struct AudioBuffer {
    std::uint32_t numberChannels = 0;
    const float* data = nullptr;
};

/// A render buffer list as the capture delivers it: one interleaved buffer, one buffer per
/// channel (non-interleaved), or any mix. Frame count travels beside it.
using AudioBufferListView = std::span<const AudioBuffer>;

/// Total channels over all buffers, counting buffers without data too.
inline std::uint32_t totalChannels(AudioBufferListView list) {
    std::uint32_t total = 0;
    for (const AudioBuffer& buffer : list)
        total += buffer.numberChannels;
    return total;
}

} // namespace kelvo
