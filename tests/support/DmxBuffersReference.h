#pragma once

#include "DMX/DmxFrame.h"

#include <nlohmann/json.hpp>

namespace kelvo::test {

// Straightforward DOM-based reading of the engine's dmx JSON, the oracle for the fast reader.
inline DmxFrame referenceDmxBuffers(std::string_view text) {
    const nlohmann::json value = nlohmann::json::parse(text, nullptr, false);
    if (value.is_discarded() || !value.is_object())
        return {};
    DmxFrame buffers;
    for (const auto& [key, elements] : value.items()) {
        if (!elements.is_array())
            return {};
        std::int64_t universe = 0;
        if (key.find('"') != std::string::npos || key.find('\\') != std::string::npos ||
            !parseUniverseKey(key, universe))
            continue;
        std::vector<std::uint8_t> bytes;
        for (const auto& element : elements)
            bytes.push_back(element.is_number() ? channelByte(element.get<double>()) : 0);
        buffers.insert_or_assign(universe, bytes);
    }
    return buffers;
}

} // namespace kelvo::test
