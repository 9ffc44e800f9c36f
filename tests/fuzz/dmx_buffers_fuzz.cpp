// The fast dmx reader must agree with a document parser on every input and never crash.
#include "DMX/DmxFrame.h"
#include "FuzzTarget.h"

#include <nlohmann/json.hpp>

#include <set>
#include <string>

using namespace kelvo;

namespace {

// A plain reading of the same document, the oracle for the fast reader.
DmxFrame referenceDmxBuffers(const nlohmann::json& value) {
    if (!value.is_object())
        return {};
    DmxFrame buffers;
    for (const auto& [key, elements] : value.items()) {
        if (!elements.is_array())
            return {};
        std::int64_t universe = 0;
        if (key.find('"') != std::string::npos || !parseUniverseKey(key, universe))
            continue;
        std::vector<std::uint8_t> bytes;
        for (const auto& element : elements)
            bytes.push_back(element.is_number() ? channelByte(element.get<double>()) : 0);
        buffers.insert_or_assign(universe, bytes);
    }
    return buffers;
}

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
                (parseUniverseKey(key, universe) && !universes.insert(universe).second))
                ambiguous = true;
        }
        return true;
    };
    (void)nlohmann::json::parse(text, noteKey, false);
    return ambiguous;
}

} // namespace

KELVO_FUZZ_TARGET(input) {
    const DmxFrame fast = parseDmxBuffersJSON(input);
    const nlohmann::json document = nlohmann::json::parse(input, nullptr, false);
    // Only well-formed JSON without escapes has an oracle; the document parser stops at a NUL.
    if (!document.is_discarded() && input.find('\\') == std::string_view::npos &&
        input.find('\0') == std::string_view::npos && !hasAmbiguousKeys(input))
        require(fast == referenceDmxBuffers(document));
}
