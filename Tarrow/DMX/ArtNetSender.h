#pragma once

#include "DMX/UDPSending.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace kelvo {

/// The Art-Net side of the output: the transport and the one ArtDmx sequence counter that
/// all universes share.
class ArtNetSender {
public:
    explicit ArtNetSender(std::shared_ptr<UDPSending> transport);

    /// 1, 2, …, 255, then 1 again: 0 would tell receivers to ignore sequencing.
    std::uint8_t advanceSequence();
    std::uint8_t sequence() const { return sequence_; }

    /// Advances the sequence, builds the ArtDmx (physical 0) and hands it to the transport.
    void sendDmx(std::int64_t universe, std::span<const std::uint8_t> channels,
                 const std::string& host);

    UDPSending& transport() { return *transport_; }

private:
    std::shared_ptr<UDPSending> transport_;
    std::uint8_t sequence_ = 0;
    std::vector<std::uint8_t> packet_; // reused: one allocation for the life of the sender
};

} // namespace kelvo
