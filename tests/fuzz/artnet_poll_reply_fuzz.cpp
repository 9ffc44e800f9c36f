// Hostile ArtPollReply datagrams: parsing must never crash, read out of bounds or produce a
// node that breaks the invariants discovery relies on.
#include "DMX/ArtNetPollReplyParser.h"
#include "FuzzTarget.h"

KELVO_FUZZ_TARGET(input) {
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    if (const auto node = ArtNetPollReplyParser::parse(bytes)) {
        require(input.size() >= ArtNetPollReplyParser::minimumReplySize);
        require(node->outputUniverses.size() <= 4 &&
                node->transmittingUniverses.size() <= node->outputUniverses.size());
        for (const std::int64_t universe : node->outputUniverses)
            require(universe >= 0 && universe <= 0x7FFF);
        require(node->mac.size() == 17 && node->ip.size() >= 7 && node->ip.size() <= 15);
    }
    // Field reads at arbitrary positions, including past the end; each input byte yields at
    // most one replacement (3 bytes).
    if (bytes.size() >= 2)
        require(ArtNetPollReplyParser::asciiField(bytes, bytes[0], bytes[1]).size() <=
                3 * std::size_t(bytes[1]));
}
