#include "Audio/Devices/AudioInputSelection.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace kelvo {

namespace {

std::string lowercased(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

bool contains(const std::string& haystack, std::string_view needle) {
    return haystack.find(needle) != std::string::npos;
}

} // namespace

bool AudioInputSelection::isPioneerMixerName(std::string_view name) {
    const std::string lower = lowercased(name);
    return contains(lower, "djm-a9") || contains(lower, "djm a9") ||
           (contains(lower, "pioneer") && contains(lower, "a9"));
}

std::optional<AudioInputDeviceInfo>
AudioInputSelection::preferredUSBDevice(const std::vector<AudioInputDeviceInfo>& devices) {
    std::optional<AudioInputDeviceInfo> firstUSB;
    for (const AudioInputDeviceInfo& device : devices) {
        if (!device.isUSB)
            continue;
        if (isPioneerMixerName(device.name))
            return device;
        if (!firstUSB)
            firstUSB = device;
    }
    return firstUSB;
}

std::optional<AudioInputDeviceInfo>
AudioInputSelection::preferredMicrophoneDevice(const std::vector<AudioInputDeviceInfo>& devices) {
    for (const AudioInputDeviceInfo& device : devices)
        if (device.isBuiltIn && !device.isUSB)
            return device;
    for (const AudioInputDeviceInfo& device : devices)
        if (!device.isUSB)
            return device;
    return std::nullopt;
}

std::string AudioInputSelection::shortDisplayName(const AudioInputDeviceInfo& device) {
    if (isPioneerMixerName(device.name))
        return mixerName;
    if (device.isBuiltIn)
        return microphoneName;
    if (!device.isUSB && device.name.empty())
        return microphoneName;
    return device.name;
}

ResolvedAudioInput AudioInputSelection::resolve(const std::vector<AudioInputDeviceInfo>& devices,
                                                bool preferMicrophone) {
    if (const auto usb = preferredUSBDevice(devices); usb && !preferMicrophone)
        return {AudioInputSourceKind::usb, usb->uid, shortDisplayName(*usb)};
    if (const auto mic = preferredMicrophoneDevice(devices))
        return {AudioInputSourceKind::microphone, mic->uid, shortDisplayName(*mic)};
    return {AudioInputSourceKind::microphone, std::nullopt, microphoneName};
}

bool AudioOutputClockPolicy::followsOutputClock(AudioClockTransport transport,
                                                std::string_view deviceName) {
    switch (transport) {
    case AudioClockTransport::builtIn:
    case AudioClockTransport::displayPort:
    case AudioClockTransport::thunderbolt:
        return true;
    case AudioClockTransport::usb:
    case AudioClockTransport::other:
        break;
    }
    const std::string lower = lowercased(deviceName);
    return contains(lower, "studio display") || contains(lower, "pro display");
}

} // namespace kelvo
