// The fast dmx reader must agree with a document parser on every input and never crash.
#include "DMX/DmxFrame.h"

#include "../support/DmxBuffersReference.h"

#include <cstdlib>
#include <set>
#include <string>

namespace {

// JSON.stringify never repeats a key, and keys naming one universe twice ("1", "01") may leave
// either entry; a document parser keeps the last in its own order, so such maps have no oracle.
bool hasAmbiguousKeys(std::string_view text) {
    std::set<std::string> keys;
    std::set<std::int64_t> universes;
    bool ambiguous = false;
    const auto noteKey = [&](int depth, nlohmann::json::parse_event_t event,
                             nlohmann::json& parsed) {
        if (depth == 1 && event == nlohmann::json::parse_event_t::key && parsed.is_string()) {
            const auto& key = parsed.get_ref<const std::string&>();
            std::int64_t universe = 0;
            if (!keys.insert(key).second ||
                (kelvo::parseUniverseKey(key, universe) && !universes.insert(universe).second))
                ambiguous = true;
        }
        return true;
    };
    (void)nlohmann::json::parse(text, noteKey, false);
    return ambiguous;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const kelvo::DmxFrame fast = kelvo::parseDmxBuffersJSON(text);
    const nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
    // Only well-formed JSON without escapes has an oracle; the document parser stops at a NUL.
    if (!document.is_discarded() && text.find('\\') == std::string_view::npos &&
        text.find('\0') == std::string_view::npos && !hasAmbiguousKeys(text) &&
        fast != kelvo::test::referenceDmxBuffers(text))
        std::abort();
    return 0;
}
