#include "DMX/LiveDmxOutput.h"

#include "DMX/ArtNetPacketBuilder.h"

namespace kelvo {

LiveDmxOutput::LiveDmxOutput(EnttecSerialSender enttecSender,
                             std::shared_ptr<UDPSending> artnetTransport)
    : enttec(std::move(enttecSender)), artnet(std::move(artnetTransport)) {}

void LiveDmxOutput::send(const DmxFrame& frame, const OutputSettings& settings) {
    const bool enttecEnabled = settings.enttecEnabled;
    const bool artnetEnabled = settings.artnetEnabled;
    const std::string& host = settings.artnetHost;
    using Kind = UniverseRoute::Destination::Kind;
    for (const UniverseRoute& route : settings.routes) {
        const auto buffer = frame.find(route.virtualUniverse);
        if (buffer == frame.end())
            continue;
        switch (route.destination.kind) {
        case Kind::artnet:
            if (artnetEnabled) {
                artnet.sendDmx(route.destination.universe, buffer->second, host);
                ++artnetPackets_;
            }
            break;
        case Kind::enttec:
            if (enttecEnabled)
                enttec.sendDmx(buffer->second);
            break;
        case Kind::unmapped:
            break;
        }
    }
}

void LiveDmxOutput::disconnectEnttec() {
    enttec.disconnect();
}

} // namespace kelvo
