#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kelvo::test {

/// A 239-byte ArtPollReply as a node sends it, with the fields the parser reads.
struct ArtPollReplyBytes {
    std::array<std::uint8_t, 4> ip = {10, 0, 0, 7};
    std::array<std::uint8_t, 6> mac = {0x00, 0x1a, 0x2B, 0x3c, 0x4d, 0xFe};
    std::uint8_t netSwitch = 0;
    std::uint8_t subSwitch = 0;
    std::uint16_t numPorts = 1;
    std::array<std::uint8_t, 4> portTypes = {0x80, 0, 0, 0};
    std::array<std::uint8_t, 4> goodOutput = {0x80, 0, 0, 0};
    std::array<std::uint8_t, 4> swOut = {0, 0, 0, 0};
    std::string shortName = "Node";
    std::string longName = "A test node";

    std::vector<std::uint8_t> build() const {
        std::vector<std::uint8_t> data(239, 0);
        std::memcpy(data.data(), "Art-Net", 8);
        data[9] = 0x21; // OpPollReply, low byte first
        std::memcpy(&data[10], ip.data(), 4);
        data[14] = 0x36; // port 6454, low byte first
        data[15] = 0x19;
        data[18] = netSwitch;
        data[19] = subSwitch;
        std::memcpy(&data[26], shortName.data(), std::min<std::size_t>(shortName.size(), 18));
        std::memcpy(&data[44], longName.data(), std::min<std::size_t>(longName.size(), 64));
        data[172] = static_cast<std::uint8_t>(numPorts >> 8);
        data[173] = static_cast<std::uint8_t>(numPorts & 0xFF);
        std::memcpy(&data[174], portTypes.data(), 4);
        std::memcpy(&data[182], goodOutput.data(), 4);
        std::memcpy(&data[190], swOut.data(), 4);
        std::memcpy(&data[201], mac.data(), 6);
        return data;
    }
};

} // namespace kelvo::test
