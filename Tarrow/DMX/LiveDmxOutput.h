#pragma once

#include "DMX/ArtNetSender.h"
#include "DMX/DmxFrame.h"
#include "DMX/EnttecSerialSender.h"
#include "DMX/OutputSettings.h"

namespace kelvo {

/// Hands each routed universe of a frame to its output. Main thread only.
class LiveDmxOutput {
public:
    LiveDmxOutput(EnttecSerialSender enttec, std::shared_ptr<UDPSending> artnetTransport);

    /// Serves every route in table order, each on its own: a route without a buffer in this
    /// frame is skipped, a failing output never stops the others, and nothing is thrown.
    void send(const DmxFrame& frame, const OutputSettings& settings);

    /// Closes the widget's descriptor now and forgets it; the next Enttec frame scans again.
    void disconnectEnttec();

    /// Packets handed to the Art-Net transport and frames written to the widget since start.
    std::uint64_t artnetPacketsSent() const { return artnetPackets_; }
    std::uint64_t enttecFramesWritten() const {
        return static_cast<std::uint64_t>(enttec.status().framesWritten);
    }
    /// Frames the widget could not take when they were due.
    std::uint64_t enttecFramesDropped() const {
        return static_cast<std::uint64_t>(enttec.status().framesDropped);
    }

    EnttecSerialSender enttec;
    ArtNetSender artnet;

private:
    std::uint64_t artnetPackets_ = 0;
};

} // namespace kelvo
