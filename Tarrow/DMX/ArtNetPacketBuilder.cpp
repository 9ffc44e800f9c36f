#include "DMX/ArtNetPacketBuilder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace kelvo {

namespace {

constexpr std::uint8_t packetID[8] = {'A', 'r', 't', '-', 'N', 'e', 't', 0};

void writeHeader(std::uint8_t* out, std::uint16_t opCode) {
    std::memcpy(out, packetID, sizeof packetID);
    out[8] = static_cast<std::uint8_t>(opCode & 0xFF); // OpCode is little-endian
    out[9] = static_cast<std::uint8_t>(opCode >> 8);
    out[10] = 0; // protocol version is big-endian
    out[11] = static_cast<std::uint8_t>(ArtNetPacketBuilder::protocolVersion);
}

} // namespace

void ArtNetPacketBuilder::writeArtDmxPacket(std::vector<std::uint8_t>& packet,
                                            std::int64_t universe, std::uint8_t sequence,
                                            std::uint8_t physical,
                                            std::span<const std::uint8_t> channels) {
    const std::size_t kept = std::min(channels.size(), maxChannels);
    const std::size_t length = kept == 0 ? 2 : kept + (kept % 2);
    if (length > 0xFFFF)
        std::abort(); // cannot happen after normalizing; the length field is 16 bits
    const auto address =
        static_cast<std::uint16_t>(std::clamp<std::int64_t>(universe, 0, maxPortAddress));

    packet.resize(headerSize + length);
    std::uint8_t* out = packet.data();
    writeHeader(out, opDmx);
    out[12] = sequence;
    out[13] = physical;
    out[14] = static_cast<std::uint8_t>(address & 0xFF); // SubUni
    out[15] = static_cast<std::uint8_t>(address >> 8);   // Net
    out[16] = static_cast<std::uint8_t>(length >> 8);
    out[17] = static_cast<std::uint8_t>(length & 0xFF);
    if (kept > 0)
        std::memcpy(out + headerSize, channels.data(), kept);
    std::fill(out + headerSize + kept, out + headerSize + length, std::uint8_t{0});
}

std::vector<std::uint8_t>
ArtNetPacketBuilder::buildArtDmxPacket(std::int64_t universe, std::uint8_t sequence,
                                       std::uint8_t physical,
                                       std::span<const std::uint8_t> channels) {
    std::vector<std::uint8_t> packet;
    writeArtDmxPacket(packet, universe, sequence, physical, channels);
    return packet;
}

std::vector<std::uint8_t> ArtNetPacketBuilder::buildArtPollPacket() {
    std::vector<std::uint8_t> packet(14, 0);
    writeHeader(packet.data(), opPoll);
    packet[12] = 0x00; // Flags
    packet[13] = 0x00; // DiagPriority
    return packet;
}

std::vector<std::uint8_t>
ArtNetPacketBuilder::normalizedPayload(std::span<const std::uint8_t> channels) {
    std::vector<std::uint8_t> payload(channels.begin(),
                                      channels.begin() + std::min(channels.size(), maxChannels));
    if (payload.empty())
        return {0x00, 0x00};
    if (payload.size() % 2 != 0)
        payload.push_back(0x00);
    return payload;
}

} // namespace kelvo
