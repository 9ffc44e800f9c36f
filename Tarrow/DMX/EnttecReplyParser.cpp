#include "DMX/EnttecReplyParser.h"

#include "DMX/EnttecFrameBuilder.h"

namespace kelvo {

std::optional<EnttecWidgetParameters>
EnttecReplyParser::findWidgetParameters(std::span<const std::uint8_t> bytes) {
    constexpr std::size_t headerSize = 4;
    for (std::size_t at = 0; at + headerSize < bytes.size(); ++at) {
        if (bytes[at] != EnttecFrameBuilder::startOfMessage ||
            bytes[at + 1] != EnttecFrameBuilder::getWidgetParametersLabel)
            continue;
        const std::size_t length = bytes[at + 2] | (std::size_t(bytes[at + 3]) << 8);
        const std::size_t end = at + headerSize + length; // index of the end-of-message byte
        if (length < parametersSize || length > maxDataLength || end >= bytes.size() ||
            bytes[end] != EnttecFrameBuilder::endOfMessage)
            continue;
        const auto data = bytes.subspan(at + headerSize, length);
        return EnttecWidgetParameters{static_cast<std::uint16_t>(data[0] | (data[1] << 8)), data[2],
                                      data[3], data[4]};
    }
    return std::nullopt;
}

} // namespace kelvo
