// The fast dmx reader must agree with a document parser on every input and never crash.
#include "Engine/DmxBuffers.h"

#include "../support/DmxBuffersReference.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const kelvo::DmxFrame fast = kelvo::parseDmxBuffersJSON(text);
    const nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
    // Only well-formed JSON without escapes has an oracle; the document parser stops at a NUL.
    if (!document.is_discarded() && text.find('\\') == std::string_view::npos &&
        text.find('\0') == std::string_view::npos &&
        fast != kelvo::testing_support::referenceDmxBuffers(text))
        std::abort();
    return 0;
}
