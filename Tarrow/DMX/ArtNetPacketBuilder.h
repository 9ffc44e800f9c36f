#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kelvo {

/// Builds the Art-Net (protocol revision 14) packets the bridge sends. Stateless.
struct ArtNetPacketBuilder {
    static constexpr std::uint16_t artNetPort = 6454;
    static constexpr std::uint16_t opDmx = 0x5000;
    static constexpr std::uint16_t opPoll = 0x2000;
    static constexpr std::uint16_t opPollReply = 0x2100;
    static constexpr std::uint16_t protocolVersion = 14;
    static constexpr std::size_t headerSize = 18;
    static constexpr std::size_t maxChannels = 512;
    static constexpr std::int64_t maxPortAddress = 0x7FFF;

    /// ArtDmx: 18-byte header then the normalized payload. The universe is clamped to 0…32767.
    static std::vector<std::uint8_t> buildArtDmxPacket(std::int64_t universe, std::uint8_t sequence,
                                                       std::uint8_t physical,
                                                       std::span<const std::uint8_t> channels);

    /// Same packet written into `packet` (resized), so a hot loop can reuse one allocation.
    static void writeArtDmxPacket(std::vector<std::uint8_t>& packet, std::int64_t universe,
                                  std::uint8_t sequence, std::uint8_t physical,
                                  std::span<const std::uint8_t> channels);

    /// The 14-byte ArtPoll: no reply-on-change, no diagnostics.
    static std::vector<std::uint8_t> buildArtPollPacket();

    /// At most 512 bytes, never empty (two zeros), even length (one zero appended when odd).
    static std::vector<std::uint8_t> normalizedPayload(std::span<const std::uint8_t> channels);
};

} // namespace kelvo
