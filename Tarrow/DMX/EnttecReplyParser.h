#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace kelvo {

/// What a DMX USB Pro answers to Get Widget Parameters (label 3).
struct EnttecWidgetParameters {
    std::uint16_t firmwareVersion = 0;
    std::uint8_t breakTime = 0;          ///< in units of 10.67 µs
    std::uint8_t markAfterBreakTime = 0; ///< in units of 10.67 µs
    std::uint8_t refreshRate = 0;        ///< packets per second

    friend bool operator==(const EnttecWidgetParameters&, const EnttecWidgetParameters&) = default;
};

/// Reads bytes that came back from a serial device, which may be anything at all.
struct EnttecReplyParser {
    static constexpr std::size_t parametersSize = 5; ///< before any user configuration bytes
    static constexpr std::size_t maxDataLength = 600;

    /// The first well-formed Get Widget Parameters reply in `bytes`: 7E 03 len-lo len-hi,
    /// at least five data bytes, E7. Noise and other messages before it are skipped.
    static std::optional<EnttecWidgetParameters>
    findWidgetParameters(std::span<const std::uint8_t> bytes);
};

} // namespace kelvo
