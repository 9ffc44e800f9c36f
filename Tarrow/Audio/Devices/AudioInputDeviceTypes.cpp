#include "Audio/Devices/AudioInputDeviceTypes.h"
#include "Support/Overloaded.h"

#include <cmath>

namespace kelvo {

namespace {

std::string wholeHertz(double hz) {
    return std::to_string(static_cast<long long>(std::llround(hz)));
}

} // namespace

std::optional<AudioInputSourceKind> audioInputSourceKindFromText(std::string_view text) {
    if (text == "microphone")
        return AudioInputSourceKind::microphone;
    if (text == "usb")
        return AudioInputSourceKind::usb;
    return std::nullopt;
}

std::string AudioInputDeviceError::description() const {
    return std::visit(
        Overloaded{
            [](const DeviceNotFound& e) { return "Audio input device not found (" + e.uid + ")"; },
            [](const SetDeviceFailed& e) {
                return "Failed to select audio input device (status " + std::to_string(e.status) +
                       ")";
            },
            [](const InputClockMismatch& e) {
                return "Audio input is " + wholeHertz(e.inputHz) + " Hz but playback is " +
                       wholeHertz(e.outputHz) +
                       " Hz, so the meter stays silent. The input can't switch to match.";
            },
            [](const AudioUnitUnavailable&) { return std::string("Audio input unit unavailable"); },
        },
        value);
}

} // namespace kelvo
