#pragma once

#include "DMX/ArtNetNode.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace kelvo {

/// Reads ArtPollReply datagrams from the network. Stateless; takes any bytes.
struct ArtNetPollReplyParser {
    static constexpr std::size_t minimumReplySize = 207;
    static constexpr std::size_t maxPortsRead = 4;

    /// The node a reply describes, or nothing for anything that is not a whole ArtPollReply.
    static std::optional<ArtNetNode>
    parse(std::span<const std::uint8_t> data,
          std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

    /// Text of a fixed-size, zero-terminated field: lossy UTF-8, spaces and tabs trimmed.
    static std::string asciiField(std::span<const std::uint8_t> bytes, std::size_t start,
                                  std::size_t length);
};

/// UTF-8 with every maximal invalid subsequence replaced by U+FFFD.
std::string decodeUtf8Lossy(std::span<const std::uint8_t> bytes);

} // namespace kelvo
