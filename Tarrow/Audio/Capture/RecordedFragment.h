#pragma once

#include "Audio/Capture/AudioInputStream.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace kelvo {

/// Hands one fragment read from a record stream to `receiver` on the audio thread: audio as it
/// came, or for a hole (`data` null: the server had nothing for that stretch) as many frames of
/// silence, in pieces no longer than `silence` holds, so the recording and the analysis keep
/// time with the room. A trailing partial frame is dropped. Never allocates.
void deliverRecordedFragment(const void* data, std::size_t bytes, std::uint32_t channels,
                             std::span<const float> silence, const RenderReceiver& receiver);

} // namespace kelvo
