#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kelvo {

/// Wraps channel bytes in the Enttec USB DMX Pro "Output Only Send DMX Packet" message.
struct EnttecFrameBuilder {
    static constexpr std::uint8_t startOfMessage = 0x7E;
    static constexpr std::uint8_t getWidgetParametersLabel = 0x03;
    static constexpr std::uint8_t sendDmxLabel = 0x06;
    static constexpr std::uint8_t dmxStartCode = 0x00;
    static constexpr std::uint8_t endOfMessage = 0xE7;
    static constexpr std::size_t maxChannels = 512;

    /// 7E 06 len-lo len-hi 00 <up to 512 channels> E7; nothing is padded.
    static std::vector<std::uint8_t> buildSendDmxFrame(std::span<const std::uint8_t> channels);

    /// 7E 03 02 00 00 00 E7: asks for the parameters without user configuration bytes.
    static std::vector<std::uint8_t> buildGetWidgetParametersRequest();
};

} // namespace kelvo
