#include "DMX/ArtNetHealth.h"
#include "Support/Overloaded.h"

namespace kelvo {

namespace {

// Headlines.
constexpr const char* noDmxHeadline = "No DMX to send";
constexpr const char* stalledHeadline = "Not transmitting";
constexpr const char* unavailableHeadline = "Cannot verify output";
constexpr const char* searchingHeadlinePrefix = "No reply from ";
constexpr const char* silentHeadlineSuffix = " not responding";
constexpr const char* mismatchHeadline = "Universe mismatch";
constexpr const char* idleHeadlineSuffix = " ports idle";
constexpr const char* streamingHeadlineJoiner = " · ";
constexpr const char* streamingHeadlineUnit = " universe";
constexpr const char* disabledHeadline = "Disabled";
constexpr const char* noUniversesHeadline = "No universes mapped";
constexpr const char* blockedHeadline = "Local Network access needed";

// Explanations, fragment by fragment.
constexpr const char* noDmxDetailHead = "Art-Net ";
constexpr const char* noDmxDetailTail =
    " is mapped and the node is addressed correctly, but the engine has produced no DMX "
    "for those universes, so no packet has been sent. Check that a show is loaded and the "
    "lighting mode is not blacked out.";
constexpr const char* stalledDetailHead = "The UDP connection is ";
constexpr const char* stalledDetailTail =
    ", so packets are being discarded before they reach the network. Rebuilding it.";
constexpr const char* stalledLastError = " Last error: ";
constexpr const char* unavailableDetailTail =
    " Art-Net is still being sent, but the bridge cannot confirm any node is receiving it.";
constexpr const char* searchingDetailHead = "Sending to ";
constexpr const char* searchingDetailTail =
    ", but no Art-Net node has answered an ArtPoll. Either nothing is listening at that "
    "address or the node is on a different subnet.";
constexpr const char* silentDetailHead = "Nothing answered at ";
constexpr const char* silentDetailFound = ". Found instead: ";
constexpr const char* nodeAt = " at ";
constexpr const char* listSeparator = ", ";
constexpr const char* sentenceEnd = ".";
constexpr const char* mismatchDrives = " drives Art-Net ";
constexpr const char* mismatchSending = "but the bridge is sending ";
constexpr const char* mismatchDetailTail =
    ". The node ignores universes it is not patched to, so its DMX ports stay dark.";
constexpr const char* idlePatched = " is patched to Art-Net ";
constexpr const char* idleDetailTail =
    " and packets are being sent, but it reports its DMX ports are not transmitting, so its "
    "port lights stay dark. Check the node is in Art-Net mode rather than sACN, and that its "
    "ports are enabled as outputs.";
constexpr const char* streamingConfirms = " confirms it is driving DMX on Art-Net ";
constexpr const char* disabledDetail = "Art-Net output is off. Nothing is being sent.";
constexpr const char* noUniversesDetail =
    "Art-Net is enabled but every virtual universe routes elsewhere, so no packets are produced.";
constexpr const char* blockedDetail =
    "Art-Net is being sent, but no inbound packet has arrived — not even this app's own ArtPoll "
    "broadcast. Grant Kelvo access under System Settings → Privacy & Security → Local Network "
    "so node replies can be read.";
constexpr const char* noUniverses = "none";

// Fix summaries.
constexpr const char* adoptHostSummary = "Point Art-Net output at ";
constexpr const char* remapSummary = "Send Art-Net ";

std::string nodeAtAddress(const ArtNetNode& node) {
    return artnetNodeName(node) + nodeAt + node.ip;
}

std::string joinedUniverses(const std::vector<std::int64_t>& universes) {
    std::string text;
    for (std::size_t i = 0; i < universes.size(); ++i) {
        if (i > 0)
            text += listSeparator;
        text += std::to_string(universes[i]);
    }
    return text;
}

} // namespace

std::string artnetNodeName(const ArtNetNode& node) {
    return node.shortName.empty() ? node.ip : node.shortName;
}

std::string artnetUniverseList(const std::vector<std::int64_t>& universes) {
    return universes.empty() ? noUniverses : joinedUniverses(universes);
}

std::string ArtNetHealth::caseName() const {
    static constexpr const char* names[] = {
        "noDmxGenerated", "transportStalled",  "discoveryUnavailable", "searching",
        "hostSilent",     "universeMismatch",  "nodeNotOutputting",    "streaming",
        "disabled",       "noUniversesMapped", "discoveryBlocked"};
    static_assert(std::size(names) == std::variant_size_v<Case>);
    return names[value.index()];
}

std::string ArtNetHealth::headline() const {
    return std::visit(
        Overloaded{
            [](const NoDmxGenerated&) -> std::string { return noDmxHeadline; },
            [](const TransportStalled&) -> std::string { return stalledHeadline; },
            [](const DiscoveryUnavailable&) -> std::string { return unavailableHeadline; },
            [](const Searching& s) { return searchingHeadlinePrefix + s.host; },
            [](const HostSilent& s) { return s.host + silentHeadlineSuffix; },
            [](const UniverseMismatch&) -> std::string { return mismatchHeadline; },
            [](const NodeNotOutputting& s) { return artnetNodeName(s.node) + idleHeadlineSuffix; },
            [](const Streaming& s) {
                const std::size_t count = s.universes.size();
                return artnetNodeName(s.node) + streamingHeadlineJoiner + std::to_string(count) +
                       streamingHeadlineUnit + (count == 1 ? "" : "s");
            },
            [](const Disabled&) -> std::string { return disabledHeadline; },
            [](const NoUniversesMapped&) -> std::string { return noUniversesHeadline; },
            [](const DiscoveryBlocked&) -> std::string { return blockedHeadline; },
        },
        value);
}

std::string ArtNetHealth::detail() const {
    return std::visit(
        Overloaded{
            [](const NoDmxGenerated& s) {
                return noDmxDetailHead + artnetUniverseList(s.universes) + noDmxDetailTail;
            },
            [](const TransportStalled& s) {
                std::string text = stalledDetailHead + s.state + stalledDetailTail;
                if (s.detail && !s.detail->empty())
                    text += stalledLastError + *s.detail;
                return text;
            },
            [](const DiscoveryUnavailable& s) { return s.reason + unavailableDetailTail; },
            [](const Searching& s) { return searchingDetailHead + s.host + searchingDetailTail; },
            [](const HostSilent& s) {
                std::string text = silentDetailHead + s.host + silentDetailFound;
                bool first = true;
                for (const ArtNetNode& node : s.discovered) {
                    if (!first)
                        text += listSeparator;
                    first = false;
                    text += nodeAtAddress(node);
                }
                return text + sentenceEnd;
            },
            [](const UniverseMismatch& s) {
                return nodeAtAddress(s.node) + mismatchDrives +
                       artnetUniverseList(s.node.outputUniverses) + listSeparator +
                       mismatchSending + artnetUniverseList(s.sending) + mismatchDetailTail;
            },
            [](const NodeNotOutputting& s) {
                return nodeAtAddress(s.node) + idlePatched + artnetUniverseList(s.universes) +
                       idleDetailTail;
            },
            [](const Streaming& s) {
                return nodeAtAddress(s.node) + streamingConfirms + artnetUniverseList(s.universes) +
                       sentenceEnd;
            },
            [](const Disabled&) -> std::string { return disabledDetail; },
            [](const NoUniversesMapped&) -> std::string { return noUniversesDetail; },
            [](const DiscoveryBlocked&) -> std::string { return blockedDetail; },
        },
        value);
}

std::string ArtNetAutoFix::summary() const {
    if (const auto* adopt = std::get_if<AdoptHost>(&value))
        return adoptHostSummary + adopt->host;
    return remapSummary + joinedUniverses(std::get<RemapUniverses>(value).universes);
}

} // namespace kelvo
