#include "DMX/ArtNetSender.h"

#include "DMX/ArtNetPacketBuilder.h"

namespace kelvo {

ArtNetSender::ArtNetSender(std::shared_ptr<UDPSending> transport)
    : transport_(std::move(transport)) {
    packet_.reserve(ArtNetPacketBuilder::headerSize + ArtNetPacketBuilder::maxChannels);
}

std::uint8_t ArtNetSender::advanceSequence() {
    sequence_ = sequence_ >= 255 ? 1 : static_cast<std::uint8_t>(sequence_ + 1);
    return sequence_;
}

void ArtNetSender::sendDmx(std::int64_t universe, std::span<const std::uint8_t> channels,
                           const std::string& host) {
    const std::uint8_t sequence = advanceSequence();
    ArtNetPacketBuilder::writeArtDmxPacket(packet_, universe, sequence, 0, channels);
    transport_->send(packet_, host, ArtNetPacketBuilder::artNetPort);
}

} // namespace kelvo
