// Hostile ArtPollReply datagrams: parsing must never crash, read out of bounds or produce a
// node that breaks the invariants discovery relies on.
#include "DMX/ArtNetPollReplyParser.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> bytes(data, size);
    const auto node = kelvo::ArtNetPollReplyParser::parse(bytes);
    if (node) {
        if (size < kelvo::ArtNetPollReplyParser::minimumReplySize)
            std::abort();
        if (node->outputUniverses.size() > 4 ||
            node->transmittingUniverses.size() > node->outputUniverses.size())
            std::abort();
        for (const std::int64_t universe : node->outputUniverses)
            if (universe < 0 || universe > 0x7FFF)
                std::abort();
        if (node->mac.size() != 17 || node->ip.size() < 7 || node->ip.size() > 15)
            std::abort();
    }
    // Field reads at arbitrary positions, including past the end.
    if (size >= 2) {
        const std::string text = kelvo::ArtNetPollReplyParser::asciiField(bytes, data[0], data[1]);
        if (text.size() > 3 * static_cast<std::size_t>(data[1]))
            std::abort(); // each input byte yields at most one replacement (3 bytes)
    }
    return 0;
}
