// Hostile bytes from a serial device answering (or not) Get Widget Parameters: the parser
// must never crash or read out of bounds, and a reply it accepts must be in the input.
#include "DMX/EnttecReplyParser.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto parameters = kelvo::EnttecReplyParser::findWidgetParameters({data, size});
    if (parameters && size < 4 + kelvo::EnttecReplyParser::parametersSize + 1)
        std::abort();
    return 0;
}
