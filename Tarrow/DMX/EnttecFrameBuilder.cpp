#include "DMX/EnttecFrameBuilder.h"

#include <algorithm>

namespace kelvo {

std::vector<std::uint8_t>
EnttecFrameBuilder::buildSendDmxFrame(std::span<const std::uint8_t> channels) {
    const std::size_t count = std::min(channels.size(), maxChannels);
    const std::size_t dataLength = count + 1; // the start code is part of the data
    std::vector<std::uint8_t> frame;
    frame.reserve(count + 6);
    frame.push_back(startOfMessage);
    frame.push_back(sendDmxLabel);
    frame.push_back(static_cast<std::uint8_t>(dataLength & 0xFF));
    frame.push_back(static_cast<std::uint8_t>(dataLength >> 8));
    frame.push_back(dmxStartCode);
    frame.insert(frame.end(), channels.begin(), channels.begin() + static_cast<long>(count));
    frame.push_back(endOfMessage);
    return frame;
}

std::vector<std::uint8_t> EnttecFrameBuilder::buildGetWidgetParametersRequest() {
    return {startOfMessage, getWidgetParametersLabel, 0x02, 0x00, 0x00, 0x00, endOfMessage};
}

} // namespace kelvo
