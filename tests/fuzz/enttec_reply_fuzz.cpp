// Hostile bytes from a serial device answering (or not) Get Widget Parameters: the parser
// must never crash or read out of bounds, and a reply it accepts must be in the input.
#include "DMX/EnttecReplyParser.h"
#include "FuzzTarget.h"

KELVO_FUZZ_TARGET(input) {
    if (EnttecReplyParser::findWidgetParameters(
            std::span(reinterpret_cast<const std::uint8_t*>(input.data()), input.size())))
        require(input.size() >= 4 + EnttecReplyParser::parametersSize + 1);
}
