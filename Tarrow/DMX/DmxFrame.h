#pragma once

#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

namespace kelvo {

/// One engine frame: virtual universe → channel bytes (index 0 is channel 1).
using DmxFrame = std::map<std::int64_t, std::vector<std::uint8_t>>;

/// Reads the engine's frame: converts the JSON text of the engine's `dmx` value. It must be an
/// object whose values are all arrays, else the result is empty. Keys are decimal universe numbers
/// (optional sign); other keys are skipped. Number elements keep the low 8 bits of their integer
/// part, anything else becomes 0.
DmxFrame parseDmxBuffersJSON(std::string_view json);

/// The key rule alone: base-10 with an optional leading sign, no other character, no overflow.
bool parseUniverseKey(std::string_view key, std::int64_t& universe);

/// The element rule alone: integer part, low 8 bits; 0 when not finite or out of 64-bit range.
std::uint8_t channelByte(double value);

} // namespace kelvo
