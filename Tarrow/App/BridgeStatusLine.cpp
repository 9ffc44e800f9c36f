#include "App/BridgeStatusLine.h"

#include <cstdio>

namespace kelvo {

std::string formatBridgeStatusLine(const BridgeStatusSample& s) {
    const double seconds = s.seconds > 0 ? s.seconds : 1.0;
    char text[256];
    std::snprintf(text, sizeof text,
                  "%.1f ticks/s · %.1f BPM · beat %d%s · drop %s · Art-Net %.0f/s",
                  double(s.ticks) / seconds, s.beat.bpm, s.beat.beatCount, s.beat.beat ? " ●" : "",
                  s.dropStatus.c_str(), double(s.artnetPackets) / seconds);
    std::string line = text;
    // The headline may be long (a node's name), so it is kept out of the fixed-size buffer.
    if (!s.artnetHealth.empty())
        line += " (" + s.artnetHealth + ")";
    std::snprintf(text, sizeof text, " · Enttec %.0f/s", double(s.enttecFrames) / seconds);
    line += text;
    if (!s.capturing)
        line += " · no audio input";
    if (s.recording)
        line += " · recording";
    if (!s.connectionStatus.empty())
        line += " · cloud " + s.connectionStatus;
    if (!s.statusMessage.empty())
        line += " · " + s.statusMessage;
    return line;
}

} // namespace kelvo
