#include "DMX/ArtNetPollReplyParser.h"

#include "DMX/ArtNetPacketBuilder.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kelvo {

namespace {

constexpr std::uint8_t packetID[8] = {'A', 'r', 't', '-', 'N', 'e', 't', 0};
constexpr char replacementCharacter[] = "\xEF\xBF\xBD";

// Offsets of the ArtPollReply fields we read.
constexpr std::size_t ipOffset = 10;
constexpr std::size_t netSwitchOffset = 18;
constexpr std::size_t subSwitchOffset = 19;
constexpr std::size_t shortNameOffset = 26;
constexpr std::size_t shortNameLength = 18;
constexpr std::size_t longNameOffset = 44;
constexpr std::size_t longNameLength = 64;
constexpr std::size_t numPortsOffset = 172;
constexpr std::size_t portTypesOffset = 174;
constexpr std::size_t goodOutputOffset = 182;
constexpr std::size_t swOutOffset = 190;
constexpr std::size_t macOffset = 201;

constexpr std::uint8_t outputCapableBit = 0x80;
constexpr std::uint8_t transmittingBit = 0x80;

bool isContinuation(std::uint8_t byte) {
    return (byte & 0xC0) == 0x80;
}

// Length of the valid UTF-8 sequence at `i`, or of the maximal invalid prefix (as a negative
// number) so it can be replaced by one U+FFFD, following the Unicode substitution practice.
std::ptrdiff_t sequenceAt(std::span<const std::uint8_t> s, std::size_t i) {
    const std::uint8_t lead = s[i];
    if (lead < 0x80)
        return 1;
    std::size_t need = 0;
    std::uint8_t low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        need = 1;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        need = 2;
        if (lead == 0xE0)
            low = 0xA0;
        if (lead == 0xED)
            high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        need = 3;
        if (lead == 0xF0)
            low = 0x90;
        if (lead == 0xF4)
            high = 0x8F;
    } else {
        return -1;
    }
    std::size_t taken = 1;
    for (std::size_t k = 0; k < need; ++k) {
        const std::size_t at = i + 1 + k;
        if (at >= s.size())
            return -static_cast<std::ptrdiff_t>(taken);
        const std::uint8_t byte = s[at];
        const bool inRange = k == 0 ? (byte >= low && byte <= high) : isContinuation(byte);
        if (!inRange)
            return -static_cast<std::ptrdiff_t>(taken);
        ++taken;
    }
    return static_cast<std::ptrdiff_t>(taken);
}

std::int64_t portAddress(std::uint8_t netSwitch, std::uint8_t subSwitch, std::uint8_t swOut) {
    return (static_cast<std::int64_t>(netSwitch & 0x7F) << 8) |
           (static_cast<std::int64_t>(subSwitch & 0x0F) << 4) | (swOut & 0x0F);
}

} // namespace

std::string decodeUtf8Lossy(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve(bytes.size());
    std::size_t i = 0;
    while (i < bytes.size()) {
        const std::ptrdiff_t n = sequenceAt(bytes, i);
        if (n > 0) {
            text.append(reinterpret_cast<const char*>(bytes.data() + i), static_cast<size_t>(n));
            i += static_cast<std::size_t>(n);
        } else {
            text.append(replacementCharacter);
            i += static_cast<std::size_t>(-n);
        }
    }
    return text;
}

std::string ArtNetPollReplyParser::asciiField(std::span<const std::uint8_t> bytes,
                                              std::size_t start, std::size_t length) {
    if (start >= bytes.size() || length == 0)
        return {};
    const std::size_t end = start + std::min(length, bytes.size() - start);
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(start);
    const auto last = std::find(first, bytes.begin() + static_cast<std::ptrdiff_t>(end), 0);
    std::string text = decodeUtf8Lossy({first, last});
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    const auto head = std::find_if_not(text.begin(), text.end(), isBlank);
    const auto tail = std::find_if_not(text.rbegin(), text.rend(), isBlank).base();
    return head < tail ? std::string(head, tail) : std::string();
}

std::optional<ArtNetNode> ArtNetPollReplyParser::parse(std::span<const std::uint8_t> data,
                                                       std::chrono::system_clock::time_point now) {
    if (data.size() < minimumReplySize)
        return std::nullopt;
    if (std::memcmp(data.data(), packetID, sizeof packetID) != 0)
        return std::nullopt;
    const std::uint16_t opCode = static_cast<std::uint16_t>(data[8] | (data[9] << 8));
    if (opCode != ArtNetPacketBuilder::opPollReply)
        return std::nullopt;

    ArtNetNode node;
    const std::size_t portCount =
        static_cast<std::size_t>((data[numPortsOffset] << 8) | data[numPortsOffset + 1]);
    for (std::size_t i = 0; i < std::min(portCount, maxPortsRead); ++i) {
        if ((data[portTypesOffset + i] & outputCapableBit) == 0)
            continue;
        const std::int64_t address =
            portAddress(data[netSwitchOffset], data[subSwitchOffset], data[swOutOffset + i]);
        node.outputUniverses.push_back(address);
        if (data[goodOutputOffset + i] & transmittingBit)
            node.transmittingUniverses.push_back(address);
    }

    node.ip = std::to_string(data[ipOffset]) + "." + std::to_string(data[ipOffset + 1]) + "." +
              std::to_string(data[ipOffset + 2]) + "." + std::to_string(data[ipOffset + 3]);
    char mac[18];
    std::snprintf(mac, sizeof mac, "%02x:%02x:%02x:%02x:%02x:%02x", data[macOffset],
                  data[macOffset + 1], data[macOffset + 2], data[macOffset + 3],
                  data[macOffset + 4], data[macOffset + 5]);
    node.mac = mac;
    node.shortName = asciiField(data, shortNameOffset, shortNameLength);
    node.longName = asciiField(data, longNameOffset, longNameLength);
    node.lastSeen = now;
    return node;
}

} // namespace kelvo
